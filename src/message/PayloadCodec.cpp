#include "message/PayloadCodec.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>

static_assert(std::numeric_limits<float>::is_iec559 && sizeof(float) == 4,
              "a FLOAT payload is an IEEE 754 binary32");
#if defined(__FAST_MATH__) || (defined(__FINITE_MATH_ONLY__) && __FINITE_MATH_ONLY__ != 0)
#error                                                                                             \
    "the payload codec needs NaN and exact rounding: build without -ffast-math, -ffinite-math-only, -Ofast"
#endif

namespace tarn::payload
{

namespace
{

/// S16F0 has this many steps to 1; every further format has a quarter of the one before.
constexpr float STEPS_PER_UNIT = 8192.0F;

float Divisor(unsigned int format)
{
    return static_cast<float>(1u << (2 * format));
}

/// One divided by the divisor, exactly, and so as good as a division.
float Fraction(unsigned int format)
{
    constexpr float FRACTIONS[] = {0x1p0F,  0x1p-2F,  0x1p-4F,  0x1p-6F,
                                   0x1p-8F, 0x1p-10F, 0x1p-12F, 0x1p-14F};
    return FRACTIONS[format];
}

/// Truncates a value that is not negative. NaN gives 0, what does not fit the largest number: a
/// plain cast would be undefined there.
std::uint32_t TruncateSaturated(double value)
{
    constexpr double LIMIT = 4294967296.0;
    if (std::isnan(value))
        return 0;
    if (value >= LIMIT)
        return std::numeric_limits<std::uint32_t>::max();
    return static_cast<std::uint32_t>(value);
}

std::uint32_t RoundedMagnitude(float steps)
{
    return TruncateSaturated(static_cast<double>(steps) + 0.5);
}

} // namespace

std::uint16_t EncodeFixedPoint(float value, unsigned int format)
{
    if (value < 0)
        return static_cast<std::uint16_t>(
            ~RoundedMagnitude(value * -STEPS_PER_UNIT * Fraction(format)) + 1u);
    return static_cast<std::uint16_t>(RoundedMagnitude(value * STEPS_PER_UNIT * Fraction(format)));
}

float DecodeFixedPoint(std::uint16_t word, unsigned int format)
{
    const float step = Divisor(format) / STEPS_PER_UNIT;
    const unsigned int low = word & 0x7FFFu;
    if ((word & 0x8000u) != 0)
        return static_cast<float>(0x8000u - low) * -step;
    return static_cast<float>(low) * step;
}

float NarrowToSingle(double value)
{
    constexpr auto LARGEST = static_cast<double>(std::numeric_limits<float>::max());
    // Halfway between the largest single and 2^128; the tie goes to the even neighbour, 2^128.
    constexpr double OVERFLOWS = LARGEST + 0x1p103;
    constexpr float INFINITE = std::numeric_limits<float>::infinity();
    if (std::fabs(value) >= OVERFLOWS)
        return value > 0 ? INFINITE : -INFINITE;
    return static_cast<float>(std::clamp(value, -LARGEST, LARGEST));
}

std::uint64_t Float::ToWord(double value)
{
    const float single = NarrowToSingle(value);
    std::uint32_t bits = 0;
    std::memcpy(&bits, &single, sizeof bits);
    return bits;
}

double Float::ToValue(std::uint64_t word)
{
    const auto bits = static_cast<std::uint32_t>(word);
    float single = 0;
    std::memcpy(&single, &bits, sizeof single);
    return static_cast<double>(single);
}

} // namespace tarn::payload
