#include "support/CaseName.h"
#include "support/Frames.h"

#include <tarn/TarnMessage.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <ostream>
#include <string>
#include <vector>

namespace
{

using support::Bytes;
using support::PayloadOf;
using support::WithPayload;
using tarn::tarn_u24_t;
using tarn::TarnMessage;

/// A vector type of the accessors with two values that no payload here decodes to.
template <typename Value>
std::vector<Value> Sentinel()
{
    return {Value(77), Value(78)};
}

template <>
std::vector<tarn_u24_t> Sentinel<tarn_u24_t>()
{
    return {tarn_u24_t{77}, tarn_u24_t{78}};
}

template <typename Value>
bool Same(const std::vector<Value>& left, const std::vector<Value>& right)
{
    return left == right;
}

bool Same(const std::vector<tarn_u24_t>& left, const std::vector<tarn_u24_t>& right)
{
    return std::equal(left.begin(), left.end(), right.begin(), right.end(),
                      [](tarn_u24_t a, tarn_u24_t b) { return a.value == b.value; });
}

template <typename Value>
void ExpectTravels(std::vector<Value> values, int dataType, const Bytes& payload)
{
    TarnMessage message;
    ASSERT_TRUE(message.SetData(values));
    EXPECT_EQ(message.GetDataType(), dataType);
    EXPECT_EQ(PayloadOf(message), payload);
    EXPECT_EQ(message.GetFullHeader(), 0x0F800001u);
    EXPECT_EQ(message.GetWStatus(), 2);
    std::vector<Value> read = Sentinel<Value>();
    EXPECT_TRUE(message.GetData(read));
    EXPECT_TRUE(Same(read, values));
}

TEST(U8Payload, TravelsAsItIs)
{
    ExpectTravels<unsigned char>({0xFF}, 8, {0xFF});
    ExpectTravels<unsigned char>({1, 2, 3, 4, 5, 6}, 8, {1, 2, 3, 4, 5, 6});
}

TEST(U16Payload, TravelsLowByteFirst)
{
    ExpectTravels<unsigned short>({0x1234}, 9, {0x34, 0x12});
    ExpectTravels<unsigned short>({0xFFFF, 0x00FF, 0xFF00}, 9,
                                  {0xFF, 0xFF, 0xFF, 0x00, 0x00, 0xFF});
}

TEST(U24Payload, TravelsLowByteFirst)
{
    ExpectTravels<tarn_u24_t>({tarn_u24_t{0x123456}}, 10, {0x56, 0x34, 0x12});
    ExpectTravels<tarn_u24_t>({tarn_u24_t{0xFFFFFF}, tarn_u24_t{0x800001}}, 10,
                              {0xFF, 0xFF, 0xFF, 0x01, 0x00, 0x80});
}

TEST(U24Payload, LeavesTheTopByteOfTheUnitZero)
{
    std::vector<tarn_u24_t> values;
    ASSERT_TRUE(WithPayload(10, {0xFF, 0xFF, 0xFF}).GetData(values));
    unsigned char unit[sizeof(tarn_u24_t)] = {};
    std::memcpy(unit, &values.front(), sizeof unit);
    // The byte behind the value, in the order of either kind of machine.
    EXPECT_THAT(unit, testing::ElementsAre(0xFF, 0xFF, 0xFF, 0x00));
}

TEST(U32Payload, TravelsLowByteFirst)
{
    ExpectTravels<unsigned int>({0x12345678}, 11, {0x78, 0x56, 0x34, 0x12});
    ExpectTravels<unsigned int>({0xFFFFFFFF}, 11, {0xFF, 0xFF, 0xFF, 0xFF});
}

TEST(U48Payload, TravelsLowByteFirst)
{
    ExpectTravels<unsigned long long>({0x123456789ABCull}, 12,
                                      {0xBC, 0x9A, 0x78, 0x56, 0x34, 0x12});
    ExpectTravels<unsigned long long>({0xFFFFFFFFFFFFull}, 12,
                                      {0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF});
}

TEST(U48Payload, DropsWhatIsAbove48Bits)
{
    TarnMessage message;
    std::vector<unsigned long long> values{0x123456789ABCDEF0ull};
    ASSERT_TRUE(message.SetData(values));
    EXPECT_EQ(PayloadOf(message), (Bytes{0xF0, 0xDE, 0xBC, 0x9A, 0x78, 0x56}));
    ASSERT_TRUE(message.GetData(values));
    EXPECT_EQ(values, std::vector<unsigned long long>{0x56789ABCDEF0ull});
}

TEST(FloatPayload, TravelsAsASingleLowByteFirst)
{
    ExpectTravels<double>({1.5}, 13, {0x00, 0x00, 0xC0, 0x3F});
    ExpectTravels<double>({-0.15625}, 13, {0x00, 0x00, 0x20, 0xBE});
    ExpectTravels<double>({std::numeric_limits<double>::infinity()}, 13, {0x00, 0x00, 0x80, 0x7F});
    ExpectTravels<double>({0x1p-149}, 13, {0x01, 0x00, 0x00, 0x00});
}

struct NarrowedCase {
    const char* name;
    double value;
    Bytes payload;
};

void PrintTo(const NarrowedCase& row, std::ostream* out)
{
    *out << row.name;
}

class FloatNarrowing : public testing::TestWithParam<NarrowedCase>
{
};

TEST_P(FloatNarrowing, GivesTheNearestSingle)
{
    TarnMessage message;
    std::vector<double> values{GetParam().value};
    ASSERT_TRUE(message.SetData(values));
    EXPECT_EQ(PayloadOf(message), GetParam().payload);
}

INSTANTIATE_TEST_SUITE_P(
    Of, FloatNarrowing,
    testing::Values(
        NarrowedCase{"OneTenth", 0.1, {0xCD, 0xCC, 0xCC, 0x3D}},
        NarrowedCase{"NegativeZero", -0.0, {0x00, 0x00, 0x00, 0x80}},
        NarrowedCase{"TieToEvenBelow", 1.0 + 0x1p-24, {0x00, 0x00, 0x80, 0x3F}},
        NarrowedCase{"TieToEvenAbove", 1.0 + 0x1.8p-23, {0x02, 0x00, 0x80, 0x3F}},
        NarrowedCase{"Largest", 0x1.FFFFFEp127, {0xFF, 0xFF, 0x7F, 0x7F}},
        NarrowedCase{"JustBelowTheTie", 0x1.FFFFFEFFFFFFFp127, {0xFF, 0xFF, 0x7F, 0x7F}},
        NarrowedCase{"TheTieIsInfinite", 0x1.FFFFFFp127, {0x00, 0x00, 0x80, 0x7F}},
        NarrowedCase{"NegativeJustBelowTheTie", -0x1.FFFFFEFFFFFFFp127, {0xFF, 0xFF, 0x7F, 0xFF}},
        NarrowedCase{"NegativeTieIsInfinite", -0x1.FFFFFFp127, {0x00, 0x00, 0x80, 0xFF}},
        NarrowedCase{"LargestDouble", 0x1.FFFFFFFFFFFFFp1023, {0x00, 0x00, 0x80, 0x7F}},
        NarrowedCase{"TooSmall", 0x1p-151, {0x00, 0x00, 0x00, 0x00}},
        NarrowedCase{"SmallestDenormal", 0x1p-149, {0x01, 0x00, 0x00, 0x00}}),
    support::CaseName());

TEST(FloatPayload, StaysNotANumber)
{
    TarnMessage message;
    std::vector<double> values{std::nan("")};
    ASSERT_TRUE(message.SetData(values));
    ASSERT_TRUE(message.GetData(values));
    ASSERT_EQ(values.size(), 1u);
    EXPECT_TRUE(std::isnan(values[0]));
}

TEST(FloatGetter, AppendsAFloatPayload)
{
    const TarnMessage message = WithPayload(13, {0x00, 0x00, 0xC0, 0x3F});
    std::vector<float> values{7.0F, 8.0F};
    EXPECT_TRUE(message.GetData(values));
    EXPECT_EQ(values, (std::vector<float>{7.0F, 8.0F, 1.5F}));
}

TEST(FloatGetter, ReadsEverySingleOfAFloatPayload)
{
    const float infinity = std::numeric_limits<float>::infinity();
    std::vector<float> values;
    EXPECT_TRUE(WithPayload(13, {0xFF, 0xFF, 0x7F, 0x7F}).GetData(values));
    EXPECT_TRUE(WithPayload(13, {0x00, 0x00, 0x80, 0xFF}).GetData(values));
    EXPECT_TRUE(WithPayload(13, {0x01, 0x00, 0x00, 0x80}).GetData(values));
    EXPECT_EQ(values, (std::vector<float>{0x1.FFFFFEp127F, -infinity, -0x1p-149F}));
    EXPECT_TRUE(WithPayload(13, {0x00, 0x00, 0xC0, 0x7F}).GetData(values));
    EXPECT_TRUE(std::isnan(values.back()));
}

TEST(FloatGetter, ReplacesByAFixedPointPayload)
{
    const TarnMessage message = WithPayload(0, {0x00, 0x20, 0x00, 0xE0});
    std::vector<float> values{7.0F, 8.0F, 9.0F};
    EXPECT_TRUE(message.GetData(values));
    EXPECT_EQ(values, (std::vector<float>{1.0F, -1.0F}));
}

/// A message before a setter that refuses; it shows changes of payload and data type.
TarnMessage Before()
{
    TarnMessage message;
    Bytes payload{0xA1, 0xA2, 0xA3};
    message.SetData(payload);
    return message;
}

template <typename Value>
void ExpectCountsRefused(const std::vector<std::size_t>& counts)
{
    for (const std::size_t count : counts) {
        TarnMessage message = Before();
        std::vector<Value> values(count);
        EXPECT_FALSE(message.SetData(values)) << count;
        EXPECT_TRUE(message == Before()) << count;
        EXPECT_EQ(values.size(), count);
    }
}

TEST(PayloadSetters, RefuseNoneAndTooManyValues)
{
    ExpectCountsRefused<unsigned char>({0, 7, 8, 1000});
    ExpectCountsRefused<unsigned short>({0, 4, 6});
    ExpectCountsRefused<tarn_u24_t>({0, 3, 6});
    ExpectCountsRefused<unsigned int>({0, 2, 3});
    ExpectCountsRefused<unsigned long long>({0, 2, 6});
    ExpectCountsRefused<double>({0, 2, 3});
    ExpectCountsRefused<float>({0, 4, 6});
}

TEST(PayloadSetters, ReplaceALongerPayload)
{
    TarnMessage message = Before();
    std::vector<unsigned short> values{0x0102};
    EXPECT_TRUE(message.SetData(values));
    EXPECT_EQ(PayloadOf(message), (Bytes{2, 1}));
    TarnMessage seven = support::Received(0, {1, 2, 3, 4, 5, 6, 7, 8});
    EXPECT_TRUE(seven.SetData(values));
    EXPECT_EQ(PayloadOf(seven), (Bytes{2, 1}));
}

template <typename Value>
bool Reads(const TarnMessage& message)
{
    std::vector<Value> values = Sentinel<Value>();
    const bool answer = message.GetData(values);
    if (!answer) {
        EXPECT_TRUE(Same(values, Sentinel<Value>())) << "a refused vector was touched";
    }
    return answer;
}

/// The getters that take a payload, as one letter each: C unsigned char, S short, T tarn_u24_t,
/// I int, L long long, D double, F float.
std::string TakenBy(const TarnMessage& message)
{
    std::string getters;
    getters += Reads<unsigned char>(message) ? "C" : "";
    getters += Reads<unsigned short>(message) ? "S" : "";
    getters += Reads<tarn_u24_t>(message) ? "T" : "";
    getters += Reads<unsigned int>(message) ? "I" : "";
    getters += Reads<unsigned long long>(message) ? "L" : "";
    getters += Reads<double>(message) ? "D" : "";
    getters += Reads<float>(message) ? "F" : "";
    return getters;
}

struct ShapeCase {
    const char* name;
    unsigned int dataType;
    // By the number of payload bytes, 0 to 7.
    std::vector<std::string> takenBy;
    std::vector<unsigned int> dataSize;
};

void PrintTo(const ShapeCase& row, std::ostream* out)
{
    *out << row.name;
}

class PayloadShape : public testing::TestWithParam<ShapeCase>
{
};

TEST_P(PayloadShape, DecidesWhichGetterTakesIt)
{
    const ShapeCase& row = GetParam();
    for (std::size_t bytes = 0; bytes <= 7; ++bytes) {
        const TarnMessage message = WithPayload(row.dataType, Bytes(bytes, 0x41));
        EXPECT_EQ(TakenBy(message), row.takenBy[bytes]) << bytes << " bytes";
        EXPECT_EQ(message.GetDataSize(), row.dataSize[bytes]) << bytes << " bytes";
    }
}

const std::vector<std::string> IN_PAIRS{"", "", "F", "", "F", "", "F", ""};
const std::vector<unsigned int> PAIRS{0, 0, 1, 1, 2, 2, 3, 3};
const std::vector<std::string> NOWHERE(8);

INSTANTIATE_TEST_SUITE_P(
    Of, PayloadShape,
    testing::Values(
        ShapeCase{"S16F0", 0, IN_PAIRS, PAIRS}, ShapeCase{"S16F1", 1, IN_PAIRS, PAIRS},
        ShapeCase{"S16F2", 2, IN_PAIRS, PAIRS}, ShapeCase{"S16F3", 3, IN_PAIRS, PAIRS},
        ShapeCase{"S16F4", 4, IN_PAIRS, PAIRS}, ShapeCase{"S16F5", 5, IN_PAIRS, PAIRS},
        ShapeCase{"S16F6", 6, IN_PAIRS, PAIRS}, ShapeCase{"S16F7", 7, IN_PAIRS, PAIRS},
        ShapeCase{"U8", 8, {"", "C", "C", "C", "C", "C", "C", ""}, {0, 1, 2, 3, 4, 5, 6, 7}},
        ShapeCase{"U16", 9, {"", "", "S", "", "S", "", "S", ""}, PAIRS},
        ShapeCase{"U24", 10, {"", "", "", "T", "", "", "T", ""}, {0, 0, 0, 1, 1, 1, 2, 2}},
        ShapeCase{"U32", 11, {"", "", "", "", "I", "", "", ""}, {0, 0, 0, 0, 1, 1, 1, 1}},
        ShapeCase{"U48", 12, {"", "", "", "", "", "", "L", ""}, {0, 0, 0, 0, 0, 0, 1, 1}},
        ShapeCase{"Float", 13, {"", "", "", "", "DF", "", "", ""}, {0, 0, 0, 0, 0, 0, 1, 1}},
        ShapeCase{"Type14", 14, NOWHERE, std::vector<unsigned int>(8)},
        ShapeCase{"NotAType", 15, NOWHERE, std::vector<unsigned int>(8)}),
    support::CaseName());

TEST(PayloadGetters, ReplaceWhatTheVectorHeld)
{
    Bytes bytes{9, 9, 9, 9, 9, 9, 9, 9, 9};
    EXPECT_TRUE(WithPayload(8, {1}).GetData(bytes));
    EXPECT_EQ(bytes, Bytes{1});
    std::vector<unsigned short> shorts(9);
    EXPECT_TRUE(WithPayload(9, {1, 0}).GetData(shorts));
    EXPECT_EQ(shorts, std::vector<unsigned short>{1});
    std::vector<tarn_u24_t> units(9);
    EXPECT_TRUE(WithPayload(10, {1, 0, 0}).GetData(units));
    EXPECT_EQ(units.size(), 1u);
    std::vector<unsigned int> ints(9);
    EXPECT_TRUE(WithPayload(11, {1, 0, 0, 0}).GetData(ints));
    EXPECT_EQ(ints, std::vector<unsigned int>{1});
    std::vector<unsigned long long> longs(9);
    EXPECT_TRUE(WithPayload(12, {1, 0, 0, 0, 0, 0}).GetData(longs));
    EXPECT_EQ(longs, std::vector<unsigned long long>{1});
    std::vector<double> doubles(9);
    EXPECT_TRUE(WithPayload(13, {0, 0, 0x80, 0x3F}).GetData(doubles));
    EXPECT_EQ(doubles, std::vector<double>{1.0});
}

TEST(PayloadGetters, ReadTheSameBytesAsTheNewTypeAfterARelabel)
{
    TarnMessage message = WithPayload(11, {0x34, 0x12, 0x78, 0x56});
    EXPECT_TRUE(message.SetDataType(TarnMessage::DATATYPE_U16));
    std::vector<unsigned short> values;
    EXPECT_TRUE(message.GetData(values));
    EXPECT_EQ(values, (std::vector<unsigned short>{0x1234, 0x5678}));
}

} // namespace
