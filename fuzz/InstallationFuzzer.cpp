#include "Failure.h"
#include "Installation.h"
#include "Require.h"
#include "TypedValues.h"

#include <algorithm>
#include <cstdint>
#include <string_view>

using namespace tarn::tool;

namespace
{

bool IsControl(char character)
{
    return (character >= 0 && character < ' ') || character == '\x7F';
}

/// What was accepted fits its type at any time, and has as many values as a message carries.
void RequireFittingValues(const InstalledRegister& entry)
{
    Require(!entry.values.empty() && entry.values.size() <= MaxCountOf(entry.dataType),
            "as many values as a message carries");
    for (const InstalledValue& value : entry.values) {
        MovingValue moving(value.motion);
        for (const long nanoseconds : {0L, 1L, 123456789L, 9876543210123L})
            Require(Holds(entry.dataType, value.OnBus(moving.At(Duration(nanoseconds)))),
                    "value that its type holds");
    }
}

void RequireOrder(const Installation& installation)
{
    for (const InstalledDevice& device : installation.devices) {
        Require(installation.Find(device.Address()) == &device, "device found by address");
        Require(installation.FindDevice(device.name) == &device, "device found by name");
        for (const InstalledRegister& entry : device.registers) {
            Require(device.Find(entry.place) == &entry, "register found by its place");
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
        const std::string why = refusal.what();
        Require(why.compare(0, 5, "file:") == 0, "refusal that names the file");
        Require(std::none_of(why.begin(), why.end(), IsControl), "refusal fit for a terminal");
    }
    return 0;
}
