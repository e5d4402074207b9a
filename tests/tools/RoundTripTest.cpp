#include "Tarn.h"

#include <gtest/gtest.h>

#include <random>
#include <sstream>

namespace
{

using support::CommandResult;

constexpr std::size_t FRAMES = ROUND_TRIP_FRAMES;
constexpr unsigned int CHCP_BIT = 1u << 28;
constexpr unsigned int EXTENDED_MODE_BIT = 1u << 22;

std::string Hex(unsigned int value, unsigned int digits)
{
    std::string text;
    while (digits-- > 0)
        text += "0123456789ABCDEF"[(value >> (4 * digits)) & 15];
    return text;
}

struct RandomFrame {
    std::string literal;
    std::size_t payloadSize;
    bool chcp;
    bool wrongChcpLength;
};

/// Any frame that is a Tarn message, FLOAT payloads of every sort of NaN among them.
class RandomFrames
{
public:
    RandomFrame Next()
    {
        const bool chcp = Random() % 5 == 0;
        const unsigned int identifier = (Random() & (CHCP_BIT - 1)) | (chcp ? CHCP_BIT : 0);
        const unsigned int trailing = !chcp && (identifier & EXTENDED_MODE_BIT) != 0 ? 2 : 1;
        std::vector<unsigned int> bytes(Size(chcp, trailing));
        for (unsigned int& byte : bytes)
            byte = Random() & 0xFF;
        if (!chcp && Random() % 4 == 0)
            bytes = NotANumber(trailing);
        RandomFrame frame = {Hex(identifier, 8) + '#', bytes.size() - trailing, chcp,
                             chcp && bytes.size() != 7};
        for (const unsigned int byte : bytes)
            frame.literal += Hex(byte, 2);
        return frame;
    }

private:
    std::size_t Size(bool chcp, unsigned int trailing)
    {
        if (chcp)
            return Random() % 3 == 0 ? Random() % 9 : 7;
        return trailing + Random() % (9 - trailing);
    }

    std::vector<unsigned int> NotANumber(unsigned int trailing)
    {
        const unsigned int mantissa = Random();
        std::vector<unsigned int> bytes = {mantissa & 0xFF, (mantissa >> 8) & 0xFF,
                                           0x80 | ((mantissa >> 16) & 0x7F),
                                           (Random() & 0x80) | 0x7F, 0x5D};
        if (trailing == 2)
            bytes.push_back(Random() & 0xFF);
        return bytes;
    }

    unsigned int Random() { return static_cast<unsigned int>(mEngine()); }

    std::mt19937 mEngine{20210104};
};

/// The first difference tells more than two texts of megabytes.
void ExpectSameLines(const std::string& actual, const std::string& expected)
{
    std::istringstream actualLines(actual);
    std::istringstream expectedLines(expected);
    std::string one;
    std::string other;
    std::size_t count = 0;
    for (; std::getline(expectedLines, other); ++count) {
        ASSERT_TRUE(std::getline(actualLines, one)) << "ends before line " << count + 1;
        ASSERT_EQ(one, other) << "line " << count + 1;
    }
    ASSERT_FALSE(std::getline(actualLines, one)) << "more than " << count << " lines";
}

class RoundTrip : public testing::Test
{
protected:
    RoundTrip()
    {
        RandomFrames frames;
        std::string literals;
        for (std::size_t i = 0; i < FRAMES; ++i) {
            mFrames.push_back(frames.Next());
            literals += mFrames.back().literal + '\n';
        }
        mLiterals = literals;
        const CommandResult decoded = Tarn({"decode", "--json"}, mLiterals);
        EXPECT_EQ(decoded.err, "tarn decode: " + std::to_string(FRAMES) +
                                   " frames read: " + std::to_string(FRAMES) +
                                   " decoded, 0 not Tarn; "
                                   "0 lines malformed, 0 comments\n");
        mObjects = decoded.out;
    }

    std::vector<RandomFrame> mFrames;
    std::string mLiterals;
    std::string mObjects;
};

TEST_F(RoundTrip, EncodeGivesBackEveryFrameThatDecodeTook)
{
    const CommandResult encoded = Tarn({"encode", "--json"}, mObjects);
    EXPECT_EQ(encoded.err, "");
    ExpectSameLines(encoded.out, mLiterals);
}

std::string WithoutMember(const std::string& object, const std::string& name)
{
    const std::size_t begin = object.find('"' + name + "\":");
    return object.substr(0, begin) + object.substr(object.find(',', begin) + 1);
}

TEST_F(RoundTrip, FieldsAloneGiveEveryFrameThatAMessageCanHave)
{
    std::istringstream objects(mObjects);
    std::string fields;
    std::string expected;
    for (const RandomFrame& frame : mFrames) {
        std::string object;
        std::getline(objects, object);
        if (!frame.chcp && frame.payloadSize > 6)
            continue;
        fields += WithoutMember(object, "frame") + '\n';
        expected += (frame.wrongChcpLength ? "00000000#00" : frame.literal) + '\n';
    }
    const CommandResult encoded = Tarn({"encode", "--json"}, fields);
    EXPECT_EQ(encoded.err, "");
    ExpectSameLines(encoded.out, expected);
}

} // namespace
