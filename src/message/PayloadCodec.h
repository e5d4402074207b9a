#ifndef TARN_MESSAGE_PAYLOAD_CODEC_H
#define TARN_MESSAGE_PAYLOAD_CODEC_H

#include <tarn/TarnMessage.h>

#include <cstddef>
#include <cstdint>

namespace tarn::payload
{

/// Most payload bytes that fit into a frame beside the status byte and the module byte.
constexpr std::size_t MAX_BYTES = 6;

/// A CHCP message always carries this many.
constexpr std::size_t CHCP_BYTES = 6;

constexpr std::size_t DEVICE_CODE_BYTES = 4;

/// The Width bytes at bytes, least significant first.
template <std::size_t Width>
std::uint64_t ReadWord(const unsigned char* bytes)
{
    std::uint64_t word = 0;
    for (std::size_t i = 0; i < Width; ++i)
        word |= static_cast<std::uint64_t>(bytes[i]) << (8 * i);
    return word;
}

/// The low Width bytes of the word, least significant first.
template <std::size_t Width>
void WriteWord(unsigned char* bytes, std::uint64_t word)
{
    for (std::size_t i = 0; i < Width; ++i)
        bytes[i] = static_cast<unsigned char>((word >> (8 * i)) & 0xFFu);
}

/// The step of S16F<format> nearest to the value, half away from zero, kept to 16 bits. NaN gives
/// 0.
std::uint16_t EncodeFixedPoint(float value, unsigned int format);

/// The value of a step, exactly.
float DecodeFixedPoint(std::uint16_t word, unsigned int format);

/// Rounds to the nearest single; beyond the range of a single the result is infinite.
float NarrowToSingle(double value);

/// How the values of one data type lie in the payload: Width bytes each, and what a value has to do
/// with the unsigned word in those bytes. Value is what the accessors hand out.
struct FixedPoint {
    using Value = float;
    static constexpr std::size_t WIDTH = 2;
    unsigned int format;
    std::uint64_t ToWord(float value) const { return EncodeFixedPoint(value, format); }
    float ToValue(std::uint64_t word) const
    {
        return DecodeFixedPoint(static_cast<std::uint16_t>(word), format);
    }
};

template <typename Integer, std::size_t Width>
struct Unsigned {
    using Value = Integer;
    static constexpr std::size_t WIDTH = Width;
    static std::uint64_t ToWord(Integer value) { return value; }
    static Integer ToValue(std::uint64_t word) { return static_cast<Integer>(word); }
};

using U8 = Unsigned<unsigned char, 1>;
using U16 = Unsigned<unsigned short, 2>;
using U32 = Unsigned<unsigned int, 4>;
using U48 = Unsigned<unsigned long long, 6>;

struct U24 {
    using Value = tarn_u24_t;
    static constexpr std::size_t WIDTH = 3;
    static std::uint64_t ToWord(tarn_u24_t element) { return element.value; }
    static tarn_u24_t ToValue(std::uint64_t word)
    {
        tarn_u24_t element = {};
        element.value = word & 0xFFFFFFu;
        return element;
    }
};

struct Float {
    using Value = double;
    static constexpr std::size_t WIDTH = 4;
    static std::uint64_t ToWord(double value);
    static double ToValue(std::uint64_t word);
};

/// True when this many bytes are a whole number of values of this width that fit a frame.
constexpr bool Holds(std::size_t bytes, std::size_t width)
{
    return bytes != 0 && bytes <= MAX_BYTES && bytes % width == 0;
}

template <typename Coding>
constexpr bool Holds(std::size_t bytes)
{
    return Holds(bytes, Coding::WIDTH);
}

} // namespace tarn::payload

#endif
