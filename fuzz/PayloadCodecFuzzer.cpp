#include "MessageChecks.h"
#include "PayloadSetters.h"
#include "Require.h"

#include <cstdint>

// Puts values of every type into a message and holds what it then says, in values, bytes and texts,
// against the wire format. Then reads the same bytes as every other type.

namespace
{

WireMessage NewMessage()
{
    const unsigned char data[] = {0x20};
    return WireRead(1, 0x0F800001, data, 1);
}

void Relabel(tarn::TarnMessage& message, WireMessage& wire)
{
    for (unsigned int type = 0; type < 16; ++type) {
        Require(message.SetDataType(static_cast<tarn::TarnMessage::tTarnDataType>(type)),
                "a data type");
        wire.type = type;
        RequireSameMessage(message, wire);
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    FuzzedDataProvider input(data, size);
    tarn::TarnMessage message;
    WireMessage wire = NewMessage();
    while (input.remaining_bytes() > 0) {
        SetSomePayload(message, wire, input);
        RequireSameMessage(message, wire);
    }
    Relabel(message, wire);
    return 0;
}
