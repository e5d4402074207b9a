#include "MessageChecks.h"
#include "Require.h"

#include <cstddef>
#include <cstdint>
#include <vector>

// Reads any frame that a bus can hand over and holds the message against the wire format.
//
// Input: 4 bytes identifier, highest first; 1 byte flags; up to 8 bytes data. What is longer is
// not a frame and left alone.

namespace
{

constexpr std::size_t HEAD_BYTES = 5;

std::uint32_t Identifier(const std::uint8_t* input)
{
    return static_cast<std::uint32_t>(input[0]) << 24 | static_cast<std::uint32_t>(input[1]) << 16 |
           static_cast<std::uint32_t>(input[2]) << 8 | input[3];
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* input, std::size_t size)
{
    if (size < HEAD_BYTES || size > HEAD_BYTES + tarn::CanMessage::MAX_DATA_SIZE)
        return -1;
    tarn::CanMessage frame;
    frame.SetHeader(Identifier(input));
    frame.GetFlags() = input[4];
    frame.SetBytes(input + HEAD_BYTES, size - HEAD_BYTES);
    const WireMessage wire = WireRead(input[4], Identifier(input), input + HEAD_BYTES,
                                      static_cast<unsigned int>(size - HEAD_BYTES));
    tarn::TarnMessage message(frame);
    RequireSameMessage(message, wire);
    tarn::TarnMessage copy(message);
    RequireSameMessage(copy, wire);
    Require(copy == message, "a copy");
    return 0;
}
