#include <plexa_can/CanException.h>
#include <plexa_can/CanMessage.h>

#include <gtest/gtest.h>

#include <memory>
#include <ostream>

namespace
{

using tarn::CanException;
using tarn::CanMessage;
using Bytes = std::vector<unsigned char>;

CanMessage Frame(unsigned int header, unsigned int flags, const Bytes& data)
{
    CanMessage frame;
    frame.SetHeader(header);
    frame.GetFlags() = flags;
    frame.SetData(data);
    return frame;
}

TEST(CanMessage, BeginsEmpty)
{
    const CanMessage frame;
    EXPECT_EQ(frame.GetHeader(), 0u);
    EXPECT_EQ(frame.GetFlags(), 0u);
    EXPECT_EQ(frame.GetTimeStamp(), 0u);
    EXPECT_TRUE(frame.GetData().empty());
    EXPECT_FALSE(frame.HasError());
}

TEST(CanMessage, GivesBackWhatWasSet)
{
    CanMessage frame = Frame(0xFFFFFFFF, 1, {1, 2, 3, 4, 5, 6, 7, 8});
    frame.SetTimeStamp(1609779922655421000ull);
    EXPECT_EQ(frame.GetHeader(), 0xFFFFFFFFu);
    EXPECT_EQ(frame.GetFlags(), 1u);
    EXPECT_EQ(frame.GetData(), (Bytes{1, 2, 3, 4, 5, 6, 7, 8}));
    EXPECT_EQ(frame.GetTimeStamp(), 1609779922655421000ull);
}

TEST(CanMessage, HandsOverDataWithRoomForAWholeFrame)
{
    EXPECT_EQ(Frame(0, 1, {}).GetData().capacity(), 8u);
    EXPECT_EQ(Frame(0, 1, {1, 2, 3}).GetData().capacity(), 8u);
}

TEST(CanMessage, RefusesNineBytesAndKeepsItsOwn)
{
    CanMessage frame = Frame(5, 1, {7});
    try {
        frame.SetData({1, 2, 3, 4, 5, 6, 7, 8, 9});
        FAIL() << "nine bytes were taken";
    } catch (const CanException& exception) {
        EXPECT_EQ(exception.message(), "a CAN frame takes at most 8 data bytes, not 9");
        EXPECT_EQ(exception.code(), 0);
    }
    EXPECT_EQ(frame.GetData(), Bytes{7});
}

TEST(CanMessage, IsAnErrorFrameByBit2Only)
{
    EXPECT_TRUE(Frame(0, 4, {}).HasError());
    EXPECT_TRUE(Frame(0, 0xFFFFFFFF, {}).HasError());
    EXPECT_FALSE(Frame(0, 0xFFFFFFFB, {}).HasError());
}

struct Literal {
    unsigned int header;
    unsigned int flags;
    Bytes data;
    const char* text;
};

void PrintTo(const Literal& literal, std::ostream* out)
{
    *out << literal.text;
}

class CanMessageText : public testing::TestWithParam<Literal>
{
};

TEST_P(CanMessageText, IsCandumpsLiteral)
{
    const Literal& literal = GetParam();
    EXPECT_EQ(Frame(literal.header, literal.flags, literal.data).ToString(), literal.text);
}

INSTANTIATE_TEST_SUITE_P(
    Forms, CanMessageText,
    testing::Values(Literal{0x0F800001, 1, {0x20}, "0F800001#20"}, Literal{0x1, 1, {}, "00000001#"},
                    Literal{0xFFFFFFFF, 1, {0xAB}, "1FFFFFFF#AB"},
                    Literal{0x123, 0, {0x01, 0xEF}, "123#01EF"}, Literal{0x1, 3, {}, "00000001#R"},
                    Literal{0x7FF, 2, {}, "7FF#R"},
                    Literal{0x4, 4, {0, 0, 0, 0, 0, 0, 0, 0}, "20000004#0000000000000000"},
                    Literal{0x40, 5, {}, "20000040#"}));

TEST(CanException, CarriesTextAndCodeThroughCloneAndRethrow)
{
    const CanException original("bus is off", 100);
    EXPECT_EQ(original.message(), "bus is off");
    EXPECT_EQ(original.code(), 100);
    EXPECT_EQ(original.displayText(), "CAN exception: bus is off");
    const std::unique_ptr<Poco::Exception> copy(original.clone());
    try {
        copy->rethrow();
        FAIL();
    } catch (const CanException& again) {
        EXPECT_EQ(again.message(), "bus is off");
        EXPECT_EQ(again.code(), 100);
    }
}

} // namespace
