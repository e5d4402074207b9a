#include "ErrorFrameWords.h"

#include <gtest/gtest.h>

namespace
{

std::string Words(unsigned int header, const std::vector<unsigned char>& data)
{
    tarn::CanMessage frame;
    frame.SetHeader(header);
    frame.GetFlags() = tarn::CanMessage::FLAG_ERROR;
    frame.SetData(data);
    return tarn::tool::DescribeErrorFrame(frame);
}

// Numbers as in the kernel's linux/can/error.h.

TEST(ErrorFrameWords, NamesEveryClass)
{
    EXPECT_EQ(Words(0x001, {}), "transmit time-out");
    EXPECT_EQ(Words(0x002, {}), "arbitration lost");
    EXPECT_EQ(Words(0x002, {7}), "arbitration lost at bit 7");
    EXPECT_EQ(Words(0x004, {}), "controller");
    EXPECT_EQ(Words(0x004, {0, 0x30}), "controller: receive error-passive, transmit error-passive");
    EXPECT_EQ(Words(0x008, {0, 0, 0x84, 0x0A}),
              "protocol: stuff error, while sending, at the data");
    EXPECT_EQ(Words(0x010, {0, 0, 0, 0, 0x70}), "transceiver: CANL: short to ground");
    EXPECT_EQ(Words(0x010, {}), "transceiver");
    EXPECT_EQ(Words(0x020, {}), "nobody acknowledged");
    EXPECT_EQ(Words(0x040, {}), "bus-off");
    EXPECT_EQ(Words(0x080, {}), "bus error");
    EXPECT_EQ(Words(0x100, {}), "restarted after bus-off");
    EXPECT_EQ(Words(0x200, {0, 0, 0, 0, 0, 0, 128, 3}), "counters: transmit 128, receive 3");
}

TEST(ErrorFrameWords, JoinsWhatComesTogether)
{
    EXPECT_EQ(Words(0x244, {0, 0x08, 0, 0, 0, 0, 97, 0}),
              "bus-off; controller: transmit error warning; counters: transmit 97, receive 0");
}

TEST(ErrorFrameWords, HasAWordForTheUnknown)
{
    EXPECT_EQ(Words(0x10000, {}), "of an unknown kind");
    EXPECT_EQ(Words(0x008, {0, 0, 0, 0xFF}), "protocol");
}

} // namespace
