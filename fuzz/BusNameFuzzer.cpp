#include <plexa_can/BusName.h>
#include <plexa_can/CanException.h>

#include <cstdint>
#include <cstdlib>
#include <string>

namespace
{

std::string Joined(const tarn::BusName& name)
{
    std::string text = name.scheme + ':' + name.address;
    char separator = '?';
    for (const auto& option : name.options) {
        text += separator + option.first + '=' + option.second;
        separator = '&';
    }
    return text;
}

} // namespace

/// A name that is accepted is the sum of its parts.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::string text(data, data + size);
    try {
        if (Joined(tarn::ParseBusName(text)) != text)
            std::abort();
    } catch (const tarn::CanException& refusal) {
        if (refusal.message().empty() || refusal.message().size() > 400)
            std::abort();
    }
    return 0;
}
