#include "ControllerState.h"

#include "LinkAnswer.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

namespace
{

using namespace tarn;
using namespace tarn::test;

/// From a buffer of just that size, so that a read beyond it is seen.
std::optional<tCanBusState> Parse(const std::string& littleEndian, unsigned int index = 7)
{
    const std::string answer = InOwnByteOrder(littleEndian);
    const std::vector<char> bytes(answer.begin(), answer.end());
    return ParseControllerState(bytes.data(), bytes.size(), index);
}

TEST(ControllerState, IsReadFromTheKernelsAnswer)
{
    EXPECT_EQ(Parse(LinkAnswer('\0')), CAN_BUS_ERROR_ACTIVE);
    EXPECT_EQ(Parse(LinkAnswer('\1')), CAN_BUS_ERROR_WARNING);
    EXPECT_EQ(Parse(LinkAnswer('\2')), CAN_BUS_ERROR_PASSIVE);
    EXPECT_EQ(Parse(LinkAnswer('\3')), CAN_BUS_OFF);
}

TEST(ControllerState, IsUnknownOfAControllerThatDoesNotRun)
{
    EXPECT_EQ(Parse(LinkAnswer('\4')), std::nullopt) << "stopped";
    EXPECT_EQ(Parse(LinkAnswer('\5')), std::nullopt) << "sleeping";
    EXPECT_EQ(Parse(LinkAnswer('\x7F')), std::nullopt);
}

TEST(ControllerState, IsUnknownWhereTheAnswerIsCutShort)
{
    const std::string whole = LinkAnswer('\2');
    ASSERT_EQ(whole.size(), 76u);
    for (std::size_t size = 0; size < whole.size(); ++size) {
        EXPECT_EQ(Parse(whole.substr(0, size)), std::nullopt) << size;
        std::string claiming = whole.substr(0, size);
        if (size >= 4)
            claiming[0] = static_cast<char>(size); // the length of the message
        EXPECT_EQ(Parse(claiming), std::nullopt) << size;
    }
}

struct Damage {
    const char* name;
    std::size_t at;
    char byte;
};

TEST(ControllerState, IsUnknownWhereTheAnswerIsDamagedOrAnother)
{
    EXPECT_EQ(Parse(LinkAnswer('\2'), 8), std::nullopt) << "of another interface";
    const Damage damages[] = {{"longer than it came", 0, 77},
                              {"error message", 4, 2},
                              {"interface", 20, 8},
                              {"name of no length", 32, 0},
                              {"name shorter than its header", 32, 3},
                              {"name beyond the end", 33, 1},
                              {"no link info", 46, 19},
                              {"link info beyond the end", 44, 33},
                              {"link info too short", 44, 8},
                              {"kind vcan", 52, 'v'},
                              {"kind of no length", 48, 0},
                              {"no data", 58, 9},
                              {"data too short", 56, 12},
                              {"state too short", 68, 7},
                              {"state beyond the end", 68, 9},
                              {"no state", 70, 5}};
    for (const Damage& damage : damages) {
        std::string answer = LinkAnswer('\2');
        answer[damage.at] = damage.byte;
        EXPECT_EQ(Parse(answer), std::nullopt) << damage.name;
    }
}

TEST(ControllerState, ForgivesTheMarkOfANestedAttribute)
{
    std::string answer = LinkAnswer('\2');
    answer[47] = '\x80';
    answer[59] = '\x80';
    EXPECT_EQ(Parse(answer), CAN_BUS_ERROR_PASSIVE);
}

} // namespace
