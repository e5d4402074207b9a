#include "Require.h"

#include <plexa_can/BusName.h>
#include <plexa_can/CanException.h>
#include <plexa_can/SocketCandDispatcher.h>
#include <plexa_can/SocketCandText.h>

#include <cstdint>
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

void RequireReason(const tarn::CanException& refusal)
{
    Require(!refusal.message().empty() && refusal.message().size() <= 400, "a short reason");
}

/// A name that is accepted is the sum of its parts.
void ReadBusName(const std::string& text)
{
    try {
        Require(Joined(tarn::ParseBusName(text)) == text, "a name put together again");
    } catch (const tarn::CanException& refusal) {
        RequireReason(refusal);
    }
}

/// So is the address of a bus over TCP; the port may be left out.
void ReadServerAddress(const std::string& text)
{
    try {
        const tarn::SocketCandAddress address = tarn::ParseSocketCandAddress(text);
        const bool isQuoted = text[0] == '[';
        const std::string host = isQuoted ? '[' + address.host + ']' : address.host;
        Require(text == host + ':' + address.port + '/' + address.bus ||
                    (address.port == "29536" && text == host + '/' + address.bus),
                "an address put together again");
        Require(tarn::IsSocketCandBusName(address.bus), "a bus that can be opened");
    } catch (const tarn::CanException& refusal) {
        RequireReason(refusal);
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::string text(data, data + size);
    ReadBusName(text);
    ReadServerAddress(text);
    return 0;
}
