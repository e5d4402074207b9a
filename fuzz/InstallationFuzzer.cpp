#include "Failure.h"
#include "Installation.h"
#include "TypedValues.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string_view>

using namespace tarn::tool;

namespace
{

void Require(bool holds)
{
    if (!holds)
        std::abort();
}

/// What was accepted fits its type at any time, and has as many values as a message carries.
void RequireFittingValues(const InstalledRegister& entry)
{
    Require(!entry.values.empty() && entry.values.size() <= MaxCountOf(entry.dataType));
    for (const InstalledValue& value : entry.values) {
        MovingValue moving(value.motion);
        for (const long nanoseconds : {0L, 1L, 123456789L, 9876543210123L})
            Require(Holds(entry.dataType, value.OnBus(moving.At(Duration(nanoseconds)))));
    }
}

void RequireOrder(const Installation& installation)
{
    for (const InstalledDevice& device : installation.devices) {
        Require(installation.Find(device.Address()) == &device);
        Require(installation.FindDevice(device.name) == &device);
        for (const InstalledRegister& entry : device.registers) {
            Require(device.Find(entry.place) == &entry);
            RequireFittingValues(entry);
        }
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::string text(data, data + size);
    try {
        RequireOrder(ParseInstallation("file", text));
    } catch (const Failure& refusal) {
        Require(std::strncmp(refusal.what(), "file:", 5) == 0);
    }
    return 0;
}
