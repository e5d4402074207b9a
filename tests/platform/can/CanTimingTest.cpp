#include <plexa_can/CanTiming.h>
#include <plexa_can/CandumpLine.h>

#include <gtest/gtest.h>

#include <string>

namespace
{

using namespace tarn;

CanMessage Frame(const std::string& text)
{
    CandumpLine line;
    EXPECT_TRUE(ParseCandumpLine(text.data(), text.size(), line)) << text;
    return line.frame;
}

TEST(CanTiming, CountsTheBitsOfAFrame)
{
    // Start, identifier, control, checksum, acknowledge, end and interframe space: 47 and 67.
    EXPECT_EQ(FrameBits(Frame("123#")), 47u);
    EXPECT_EQ(FrameBits(Frame("123#0102030405060708")), 111u);
    EXPECT_EQ(FrameBits(Frame("0F800001#20")), 75u);
    EXPECT_EQ(FrameBits(Frame("0F800001#0102030405060708")), 131u);
    EXPECT_EQ(FrameBits(Frame("0F800001#R")), 67u);
}

TEST(CanTiming, TheLowerIdentifierGoesFirst)
{
    const auto goesFirst = [](const char* one, const char* other) {
        return ArbitrationRank(Frame(one)) < ArbitrationRank(Frame(other));
    };
    EXPECT_TRUE(goesFirst("0F800000#20", "0F800001#20"));
    EXPECT_TRUE(goesFirst("0F800001#20", "0F800001#R"));
    EXPECT_TRUE(goesFirst("3E0#20", "0F800001#20")); // the same first 11 bits
    EXPECT_TRUE(goesFirst("0F800001#20", "3E1#20"));
}

} // namespace
