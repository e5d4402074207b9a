#include "support/CaseName.h"
#include "support/Frames.h"

#include <tarn/TarnMessage.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <ostream>
#include <random>
#include <vector>

namespace
{

using support::Bytes;
using support::PayloadOf;
using support::WithPayload;
using tarn::TarnMessage;

constexpr float INF = std::numeric_limits<float>::infinity();
constexpr float NOT_A_NUMBER = std::numeric_limits<float>::quiet_NaN();

TarnMessage::tTarnDataType Format(int format)
{
    return static_cast<TarnMessage::tTarnDataType>(format);
}

/// The word that the typed setter writes for one value.
unsigned int Encoded(float value, int format)
{
    TarnMessage message;
    std::vector<float> values{value};
    EXPECT_TRUE(message.SetData(values, Format(format)));
    const Bytes payload = PayloadOf(message);
    return payload.at(0) + 256u * payload.at(1);
}

float Decoded(unsigned int word, unsigned int format)
{
    std::vector<float> values;
    const Bytes payload{static_cast<unsigned char>(word % 256),
                        static_cast<unsigned char>(word / 256)};
    EXPECT_TRUE(WithPayload(format, payload).GetData(values));
    return values.at(0);
}

unsigned int BitsOf(float value)
{
    unsigned int bits = 0;
    std::memcpy(&bits, &value, sizeof bits);
    return bits;
}

struct EncodedCase {
    const char* name;
    float value;
    int format;
    unsigned int word;
};

void PrintTo(const EncodedCase& row, std::ostream* out)
{
    *out << row.name;
}

class FixedPointEncoding : public testing::TestWithParam<EncodedCase>
{
};

TEST_P(FixedPointEncoding, WritesTheWord)
{
    const EncodedCase& row = GetParam();
    EXPECT_EQ(Encoded(row.value, row.format), row.word);
}

INSTANTIATE_TEST_SUITE_P(
    Exact, FixedPointEncoding,
    testing::Values(
        EncodedCase{"Zero", 0.0F, 0, 0x0000}, EncodedCase{"MinusZero", -0.0F, 0, 0},
        EncodedCase{"OneS16F0", 1.0F, 0, 0x2000}, EncodedCase{"MinusOneS16F0", -1.0F, 0, 0xE000},
        EncodedCase{"OneS16F1", 1.0F, 1, 0x0800}, EncodedCase{"OneS16F2", 1.0F, 2, 0x0200},
        EncodedCase{"OneS16F3", 1.0F, 3, 0x0080}, EncodedCase{"OneS16F4", 1.0F, 4, 0x0020},
        EncodedCase{"OneS16F5", 1.0F, 5, 0x0008}, EncodedCase{"OneS16F6", 1.0F, 6, 0x0002},
        EncodedCase{"TwoS16F7", 2.0F, 7, 0x0001}, EncodedCase{"MinusTwoS16F7", -2.0F, 7, 0xFFFF},
        EncodedCase{"LargestS16F7", 65534.0F, 7, 0x7FFF},
        EncodedCase{"SmallestS16F7", -65536.0F, 7, 0x8000}),
    support::CaseName());

INSTANTIATE_TEST_SUITE_P(RoundedHalfAwayFromZero, FixedPointEncoding,
                         testing::Values(EncodedCase{"Half", 0x1p-14F, 0, 1},
                                         EncodedCase{"MinusHalf", -0x1p-14F, 0, 0xFFFF},
                                         EncodedCase{"BelowHalf", 0x1.FFFFFEp-15F, 0, 0},
                                         EncodedCase{"AboveMinusHalf", -0x1.FFFFFEp-15F, 0, 0},
                                         EncodedCase{"OneAndAHalf", 3.0F, 7, 2},
                                         EncodedCase{"MinusOneAndAHalf", -3.0F, 7, 0xFFFE},
                                         EncodedCase{"TwoAndAHalf", 5.0F, 7, 3},
                                         EncodedCase{"MinusTwoAndAHalf", -5.0F, 7, 0xFFFD},
                                         EncodedCase{"OddStepBeyondHalfPrecision", 8388609.0F, 6,
                                                     2}),
                         support::CaseName());

INSTANTIATE_TEST_SUITE_P(
    BeyondTheRange, FixedPointEncoding,
    testing::Values(
        EncodedCase{"FiveWraps", 5.0F, 0, 0xA000}, EncodedCase{"MinusFiveWraps", -5.0F, 0, 0x6000},
        EncodedCase{"EightIsZero", 8.0F, 0, 0x0000},
        EncodedCase{"RoundsInto32768", 0x1.FFFFp1F, 0, 0x8000},
        EncodedCase{"LastBelowSaturation", 0x1.FFFFFEp18F, 0, 0xFF00},
        EncodedCase{"LastNegativeBelowSaturation", -0x1.FFFFFEp18F, 0, 0x0100},
        EncodedCase{"Saturates", 524288.0F, 0, 0xFFFF},
        EncodedCase{"NegativeSaturates", -524288.0F, 0, 0x0001},
        EncodedCase{"Largest", 0x1.FFFFFEp127F, 7, 0xFFFF},
        EncodedCase{"LargestNegative", -0x1.FFFFFEp127F, 7, 0x0001},
        EncodedCase{"Infinity", INF, 3, 0xFFFF}, EncodedCase{"MinusInfinity", -INF, 3, 0x0001},
        EncodedCase{"NotANumber", NOT_A_NUMBER, 0, 0},
        EncodedCase{"MinusNotANumber", -NOT_A_NUMBER, 7, 0},
        EncodedCase{"Denormal", 0x1p-149F, 0, 0}, EncodedCase{"MinusDenormal", -0x1p-149F, 0, 0}),
    support::CaseName());

TEST(FixedPoint, WrapsIntoTheOtherSign)
{
    EXPECT_EQ(Decoded(0xA000, 0), -3.0F);
}

TEST(FixedPoint, EveryWordOfEveryFormatIsExactAndEncodesAgain)
{
    for (int format = 0; format < 8; ++format) {
        const double step = std::ldexp(1.0, 2 * format - 13);
        for (int word = 0; word < 65536; ++word) {
            const int steps = word < 32768 ? word : word - 65536;
            const auto raw = static_cast<unsigned int>(word);
            const float value = Decoded(raw, static_cast<unsigned int>(format));
            ASSERT_EQ(static_cast<double>(value), steps * step) << format << " " << word;
            ASSERT_EQ(BitsOf(value) == 0x80000000u, false) << "a negative zero";
            ASSERT_EQ(Encoded(value, format), raw) << format << " " << word;
        }
    }
}

/// The word by the rule in whole numbers: the magnitude in steps, rounded half up, at most 2^32-1,
/// then its residue modulo 2^16 with the sign of the value.
unsigned int OracleWord(float value, int format)
{
    if (std::isnan(value))
        return 0;
    const long double steps =
        std::fabs(static_cast<long double>(value)) * 8192.0L / powl(4.0L, format);
    const long double rounded = std::min(floorl(steps + 0.5L), 4294967295.0L);
    const auto residue = static_cast<unsigned int>(fmodl(rounded, 65536.0L));
    return value < 0 ? (65536u - residue) % 65536u : residue;
}

void ExpectOracle(float value)
{
    for (int format = 0; format < 8; ++format)
        ASSERT_EQ(Encoded(value, format), OracleWord(value, format)) << value << " " << format;
}

TEST(FixedPoint, RandomBitPatternsEncodeAsTheRuleSays)
{
    std::mt19937 random(20240229);
    for (int i = 0; i < 20000; ++i) {
        const auto bits = static_cast<unsigned int>(random());
        float value = 0;
        std::memcpy(&value, &bits, sizeof value);
        ExpectOracle(value);
    }
}

TEST(FixedPoint, RandomValuesAroundTheRangesEncodeAsTheRuleSays)
{
    std::mt19937 random(20240301);
    std::uniform_real_distribution<float> mantissa(-1.0F, 1.0F);
    std::uniform_int_distribution<int> exponent(-16, 36);
    for (int i = 0; i < 20000; ++i)
        ExpectOracle(std::ldexp(mantissa(random), exponent(random)));
}

TEST(FixedPoint, TakesUpToThreeValuesInOrder)
{
    TarnMessage message;
    std::vector<float> values{1.0F, -1.0F, 0.5F};
    EXPECT_TRUE(message.SetData(values, Format(1)));
    EXPECT_EQ(message.GetDataType(), 1);
    EXPECT_EQ(PayloadOf(message), (Bytes{0x00, 0x08, 0x00, 0xF8, 0x00, 0x04}));
    EXPECT_EQ(message.GetDataSize(), 3u);
    std::vector<float> read;
    EXPECT_TRUE(message.GetData(read));
    EXPECT_EQ(read, values);
}

void ExpectRefused(std::vector<float> values, int format)
{
    TarnMessage message = WithPayload(8, {1, 2, 3});
    EXPECT_FALSE(message.SetData(values, Format(format))) << format;
    EXPECT_TRUE(message == WithPayload(8, {1, 2, 3}));
}

TEST(FixedPoint, RefusesOtherFormats)
{
    for (const int format : {8, 13, 15, 16, 256, 0x7FFFFFFF, -1, -8, -256})
        ExpectRefused({1.0F}, format);
}

TEST(FixedPoint, RefusesNoneAndMoreThanThreeValues)
{
    ExpectRefused({}, 0);
    ExpectRefused({1, 2, 3, 4}, 7);
}

TEST(FormatLimits, HaveTheseBits)
{
    EXPECT_EQ(BitsOf(TarnMessage::S16F0_MAX), 0x4079999Au);
    EXPECT_EQ(BitsOf(TarnMessage::S16F1_MAX), 0x417E6666u);
    EXPECT_EQ(BitsOf(TarnMessage::S16F2_MAX), 0x427F999Au);
    EXPECT_EQ(BitsOf(TarnMessage::S16F3_MAX), 0x437FE666u);
    EXPECT_EQ(BitsOf(TarnMessage::S16F4_MAX), 0x447FF99Au);
    EXPECT_EQ(BitsOf(TarnMessage::S16F5_MAX), 0x457FFE66u);
    EXPECT_EQ(BitsOf(TarnMessage::S16F6_MAX), 0x467FFF9Au);
    EXPECT_EQ(BitsOf(TarnMessage::S16F7_MAX), 0x477FFE00u);
}

struct ChoiceCase {
    const char* name;
    std::vector<float> values;
    int format;
    Bytes payload;
};

void PrintTo(const ChoiceCase& row, std::ostream* out)
{
    *out << row.name;
}

class FormatChoice : public testing::TestWithParam<ChoiceCase>
{
};

TEST_P(FormatChoice, TakesTheFinestThatHoldsTheLargestMagnitude)
{
    ChoiceCase row = GetParam();
    TarnMessage message;
    ASSERT_TRUE(message.SetData(row.values));
    EXPECT_EQ(message.GetDataType(), row.format);
    EXPECT_EQ(PayloadOf(message), row.payload);
}

// 3.9 * 8192 = 31948.8; 3.9000003 is the next single above S16F0_MAX, and so on.
INSTANTIATE_TEST_SUITE_P(
    Edges, FormatChoice,
    testing::Values(ChoiceCase{"Zero", {0.0F}, 0, {0, 0}},
                    ChoiceCase{"LastOfS16F0", {3.9F}, 0, {0xCD, 0x7C}},
                    ChoiceCase{"FirstOfS16F1", {0x1.F33336p1F}, 1, {0x33, 0x1F}},
                    ChoiceCase{"FourIsS16F1", {4.0F}, 1, {0x00, 0x20}},
                    ChoiceCase{"LastOfS16F1", {15.9F}, 1, {0x33, 0x7F}},
                    ChoiceCase{"FirstOfS16F2", {0x1.FCCCCEp3F}, 2, {0xCD, 0x1F}},
                    ChoiceCase{"LastOfS16F2", {63.9F}, 2, {0xCD, 0x7F}},
                    ChoiceCase{"FirstOfS16F3", {0x1.FF3336p5F}, 3, {0xF3, 0x1F}},
                    ChoiceCase{"LastOfS16F3", {255.9F}, 3, {0xF3, 0x7F}},
                    ChoiceCase{"FirstOfS16F4", {0x1.FFCCCEp7F}, 4, {0xFD, 0x1F}},
                    ChoiceCase{"LastOfS16F4", {1023.9F}, 4, {0xFD, 0x7F}},
                    ChoiceCase{"FirstOfS16F5", {0x1.FFF336p9F}, 5, {0xFF, 0x1F}},
                    ChoiceCase{"LastOfS16F5", {4095.9F}, 5, {0xFF, 0x7F}},
                    ChoiceCase{"FirstOfS16F6", {0x1.FFFCCEp11F}, 6, {0x00, 0x20}},
                    ChoiceCase{"LastOfS16F6WrapsOver", {16383.9F}, 6, {0x00, 0x80}},
                    ChoiceCase{"FirstOfS16F7", {0x1.FFFF36p13F}, 7, {0x00, 0x20}},
                    ChoiceCase{"LastOfS16F7", {65534.0F}, 7, {0xFF, 0x7F}},
                    ChoiceCase{"NegativeLastOfS16F7", {-65534.0F}, 7, {0x01, 0x80}}),
    support::CaseName());

INSTANTIATE_TEST_SUITE_P(
    AmongSeveral, FormatChoice,
    testing::Values(
        ChoiceCase{"LargestLast", {1.0F, 2.0F, 4.0F}, 1, {0x00, 0x08, 0x00, 0x10, 0x00, 0x20}},
        ChoiceCase{"SmallestFirst", {-4.0F, 1.0F}, 1, {0x00, 0xE0, 0x00, 0x08}},
        ChoiceCase{
            "SmallestInTheMiddle", {1.0F, -4.0F, 2.0F}, 1, {0x00, 0x08, 0x00, 0xE0, 0x00, 0x10}},
        ChoiceCase{"NaNSecondOfTwo", {1.0F, NOT_A_NUMBER}, 0, {0x00, 0x20, 0, 0}},
        ChoiceCase{"NaNSecondOfThree", {1.0F, NOT_A_NUMBER, 5.0F}, 1, {0x00, 0x08, 0, 0, 0, 0x28}},
        ChoiceCase{
            "NaNSecondBeforeASmaller", {1.0F, NOT_A_NUMBER, -5.0F}, 1, {0x00, 0x08, 0, 0, 0, 0xD8}},
        ChoiceCase{"NaNThirdAfterTheLargest",
                   {1.0F, 5.0F, NOT_A_NUMBER},
                   1,
                   {0x00, 0x08, 0x00, 0x28, 0, 0}},
        ChoiceCase{"NaNThird", {-5.0F, 1.0F, NOT_A_NUMBER}, 1, {0x00, 0xD8, 0x00, 0x08, 0, 0}}),
    support::CaseName());

TEST(FormatChoice, TheEdgeOfS16F6ReadsBackAsItsSmallest)
{
    for (const float value : {16383.9F, -16383.9F}) {
        TarnMessage message;
        std::vector<float> values{value};
        ASSERT_TRUE(message.SetData(values));
        EXPECT_EQ(message.GetDataType(), TarnMessage::DATATYPE_S16F6);
        ASSERT_TRUE(message.GetData(values));
        EXPECT_EQ(values, std::vector<float>{-16384.0F});
    }
}

void ExpectNoFormat(std::vector<float> values)
{
    TarnMessage message = WithPayload(8, {1, 2, 3});
    EXPECT_FALSE(message.SetData(values));
    EXPECT_TRUE(message == WithPayload(8, {1, 2, 3}));
}

TEST(FormatChoice, FindsNoneBeyond65534)
{
    ExpectNoFormat({65534.5F});
    ExpectNoFormat({-65534.5F});
    ExpectNoFormat({0x1.FFFC02p15F});
    ExpectNoFormat({1.0F, 65536.0F, 1.0F});
    ExpectNoFormat({INF});
    ExpectNoFormat({0.0F, -INF});
}

TEST(FormatChoice, FindsNoneForANaNInTheFirstPlace)
{
    ExpectNoFormat({NOT_A_NUMBER});
    ExpectNoFormat({NOT_A_NUMBER, 1.0F});
    ExpectNoFormat({NOT_A_NUMBER, 1.0F, -2.0F});
}

TEST(FormatChoice, RefusesNoneAndMoreThanThreeValues)
{
    ExpectNoFormat({});
    ExpectNoFormat({1, 2, 3, 4});
}

} // namespace
