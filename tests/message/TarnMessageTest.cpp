#include <tarn/TarnMessage.h>

#include <gtest/gtest.h>

namespace
{

using tarn::CanMessage;
using tarn::TarnMessage;
using Bytes = std::vector<unsigned char>;

TEST(TarnMessage, BeginsAsAnEmptyReadRequest)
{
    TarnMessage message;
    EXPECT_FALSE(!message);
    EXPECT_EQ(message.GetFullHeader(), 0x0F800001u);
    EXPECT_EQ(message.GetWStatus(), 2);
    EXPECT_EQ(message.GetDataType(), TarnMessage::DATATYPE_S16F0);
    EXPECT_EQ(message.GetModule(), 0);
    EXPECT_EQ(message.RawMessage().ToString(), "0F800001#20");
    EXPECT_EQ(message.ToStringShort(),
              "Type: DATA,Priority: DATA,Addressing: DEVICE,AccessType: READ,Direction: REQUEST,"
              "AddressingMode: STANDARD,Register:00,TargetAddr:00,SourceAddr:01,Module:00,"
              "Status: POWERUP,DataType: S16F0,Data(0) : ,Raw-Header : f800001,Raw-Data(0) : ");
}

TEST(TarnMessage, TravelsThroughAFrame)
{
    TarnMessage message;
    message.SetModule(5);
    message.SetRStatus(TarnMessage::STATUS_STANDBY);
    std::vector<unsigned short> values{0x0201};
    ASSERT_TRUE(message.SetData(values));
    CanMessage frame = message.RawMessage();
    EXPECT_EQ(frame.GetData(), (Bytes{0x01, 0x02, 0x39, 0x05}));
    TarnMessage received(frame);
    EXPECT_FALSE(!received);
    EXPECT_TRUE(received == message);
}

} // namespace
