#include "support/Frames.h"

#include <tarn/TarnMessage.h>

#include <gtest/gtest.h>

namespace
{

using support::Bytes;
using support::PayloadOf;
using support::Received;
using tarn::TarnMessage;

constexpr auto TYPE_CHCP = TarnMessage::TYPE_CHCP;
constexpr auto TYPE_DATA = TarnMessage::TYPE_DATA;

TarnMessage::tTarnDeviceCode DeviceCode(unsigned long long code)
{
    return static_cast<TarnMessage::tTarnDeviceCode>(code);
}

TarnMessage::tTarnChcpCommand Command(int command)
{
    return static_cast<TarnMessage::tTarnChcpCommand>(command);
}

TarnMessage DataMessage(Bytes payload)
{
    TarnMessage message;
    message.SetData(payload);
    return message;
}

TEST(ChcpType, GivesADataMessageSixZeroBytes)
{
    for (const Bytes& payload : {Bytes{1}, Bytes{1, 2, 3, 4, 5}}) {
        TarnMessage message = DataMessage(payload);
        EXPECT_TRUE(message.SetType(TYPE_CHCP));
        EXPECT_EQ(PayloadOf(message), (Bytes{0, 0, 0, 0, 0, 0}));
    }
    TarnMessage empty;
    EXPECT_TRUE(empty.SetType(TYPE_CHCP));
    EXPECT_EQ(PayloadOf(empty), (Bytes{0, 0, 0, 0, 0, 0}));
}

TEST(ChcpType, ReplacesSevenReceivedBytes)
{
    TarnMessage message = Received(0, {1, 2, 3, 4, 5, 6, 7, 0x28});
    EXPECT_TRUE(message.SetType(TYPE_CHCP));
    EXPECT_EQ(PayloadOf(message), (Bytes{0, 0, 0, 0, 0, 0}));
}

TEST(ChcpType, KeepsSixBytesInBothDirections)
{
    TarnMessage message = DataMessage({1, 2, 3, 4, 5, 6});
    EXPECT_TRUE(message.SetType(TYPE_CHCP));
    EXPECT_EQ(PayloadOf(message), (Bytes{1, 2, 3, 4, 5, 6}));
    EXPECT_TRUE(message.SetType(TYPE_DATA));
    EXPECT_EQ(PayloadOf(message), (Bytes{1, 2, 3, 4, 5, 6}));
    EXPECT_EQ(message.GetDataType(), TarnMessage::DATATYPE_U8);
}

TEST(ChcpType, LeavesThePayloadOfADataMessage)
{
    TarnMessage message = DataMessage({1, 2});
    EXPECT_TRUE(message.SetType(TYPE_DATA));
    EXPECT_EQ(PayloadOf(message), (Bytes{1, 2}));
}

TEST(ChcpType, SetByANegativeOddValueLeavesThePayload)
{
    TarnMessage message = DataMessage({1, 2});
    EXPECT_TRUE(message.SetType(static_cast<TarnMessage::tTarnMSgType>(-1)));
    EXPECT_EQ(message.GetType(), TYPE_CHCP);
    EXPECT_EQ(PayloadOf(message), (Bytes{1, 2}));
}

TEST(ChcpType, RefusedLeavesThePayload)
{
    TarnMessage message = DataMessage({1, 2});
    EXPECT_FALSE(message.SetType(static_cast<TarnMessage::tTarnMSgType>(3)));
    EXPECT_EQ(message.GetType(), TYPE_DATA);
    EXPECT_EQ(PayloadOf(message), (Bytes{1, 2}));
}

TEST(ChcpID, MakesADataMessageAChcpMessage)
{
    TarnMessage message;
    EXPECT_TRUE(message.SetChcpID(5));
    EXPECT_EQ(message.GetType(), TYPE_CHCP);
    EXPECT_EQ(PayloadOf(message), (Bytes{0, 0, 0, 0, 5, 0}));
    EXPECT_EQ(message.GetChcpID(), 5);
    EXPECT_EQ(message.GetFullHeader(), 0x1F800001u);
    EXPECT_TRUE(message.SetChcpID(127));
    EXPECT_EQ(message.GetChcpID(), 127);
}

TEST(ChcpID, Above127IsRefusedAndChangesNothing)
{
    for (const unsigned char id : Bytes{128, 133, 255}) {
        TarnMessage message = DataMessage({1, 2});
        EXPECT_FALSE(message.SetChcpID(id));
        EXPECT_TRUE(message == DataMessage({1, 2}));
    }
}

TEST(ChcpID, IgnoresBit7OnReading)
{
    EXPECT_EQ(Received(0x10000000, {0, 0, 0, 0, 0x85, 0, 0}).GetChcpID(), 5);
    EXPECT_EQ(Received(0x10000000, {0, 0, 0, 0, 0xFF, 0, 0}).GetChcpID(), 127);
}

TEST(ChcpCommand, MakesADataMessageAChcpMessage)
{
    TarnMessage message;
    for (const int command : {0, 1, 2, 3, 4, 5}) {
        EXPECT_TRUE(message.SetChcpCommand(Command(command)));
        EXPECT_EQ(message.GetChcpCommand(), command);
    }
    EXPECT_EQ(message.GetType(), TYPE_CHCP);
    EXPECT_EQ(PayloadOf(message), (Bytes{0, 0, 0, 0, 0, 5}));
}

TEST(ChcpCommand, Above5IsRefusedAndChangesNothing)
{
    for (const int command : {6, 7, 255, 256, 0x7FFFFFFF}) {
        TarnMessage message = DataMessage({1, 2});
        EXPECT_FALSE(message.SetChcpCommand(Command(command)));
        EXPECT_TRUE(message == DataMessage({1, 2}));
    }
}

TEST(ChcpCommand, NegativeIsTakenAndReadsAsNone)
{
    TarnMessage message;
    EXPECT_TRUE(message.SetChcpCommand(Command(-1)));
    EXPECT_EQ(PayloadOf(message), (Bytes{0, 0, 0, 0, 0, 255}));
    EXPECT_EQ(message.GetChcpCommand(), TarnMessage::CHCP_COMMAND_NONE);
    EXPECT_TRUE(message.SetChcpCommand(Command(-256)));
    EXPECT_EQ(PayloadOf(message), (Bytes{0, 0, 0, 0, 0, 0}));
    EXPECT_EQ(message.GetChcpCommand(), TarnMessage::CHCP_COMMAND_0);
}

TEST(ChcpCommand, UnknownBytesReadAsNone)
{
    EXPECT_EQ(Received(0x10000000, {0, 0, 0, 0, 0, 5, 0}).GetChcpCommand(), 5);
    for (const unsigned char byte : Bytes{6, 9, 128, 255})
        EXPECT_EQ(Received(0x10000000, {0, 0, 0, 0, 0, byte, 0}).GetChcpCommand(), 6);
}

TEST(ChcpDeviceCode, TravelsInItsLow32Bits)
{
    TarnMessage message;
    EXPECT_TRUE(message.SetChcpDeviceCode(DeviceCode(0x123456789ull)));
    EXPECT_EQ(message.GetType(), TYPE_CHCP);
    EXPECT_EQ(PayloadOf(message), (Bytes{0x89, 0x67, 0x45, 0x23, 0, 0}));
    EXPECT_EQ(message.GetChcpDeviceCode(), 0x23456789u);
    EXPECT_TRUE(message.SetChcpDeviceCode(DeviceCode(0xFFFFFFFFFFFFFFFFull)));
    EXPECT_EQ(message.GetChcpDeviceCode(), 0xFFFFFFFFull);
}

TEST(ChcpFields, ShareSixBytes)
{
    TarnMessage message;
    message.SetChcpCommand(TarnMessage::CHCP_COMMAND_3);
    message.SetChcpDeviceCode(DeviceCode(0xA1B2C3D4));
    message.SetChcpID(0x7E);
    EXPECT_EQ(PayloadOf(message), (Bytes{0xD4, 0xC3, 0xB2, 0xA1, 0x7E, 3}));
    EXPECT_EQ(message.GetChcpCommand(), TarnMessage::CHCP_COMMAND_3);
    EXPECT_EQ(message.GetChcpDeviceCode(), 0xA1B2C3D4u);
    EXPECT_EQ(message.GetChcpID(), 0x7E);
}

TEST(ChcpFields, KeepSixDataBytesAsTheirs)
{
    TarnMessage message = DataMessage({1, 2, 3, 4, 5, 6});
    EXPECT_TRUE(message.SetChcpID(9));
    EXPECT_EQ(PayloadOf(message), (Bytes{1, 2, 3, 4, 9, 6}));
}

void ExpectNoChcpFields(const TarnMessage& message)
{
    EXPECT_EQ(message.GetChcpID(), 0);
    EXPECT_EQ(message.GetChcpCommand(), TarnMessage::CHCP_COMMAND_NONE);
    EXPECT_EQ(message.GetChcpDeviceCode(), 0u);
}

TEST(ChcpFields, AreNeutralOnADataMessage)
{
    ExpectNoChcpFields(DataMessage({1, 2, 3, 4, 5, 3}));
}

TEST(ChcpFields, AreNeutralOnAPayloadOfOtherThanSixBytes)
{
    for (const Bytes& payload : {Bytes{1}, Bytes{1, 2, 3, 4, 5}}) {
        TarnMessage message = DataMessage(payload);
        message.SetFullHeader(0x10000000);
        ExpectNoChcpFields(message);
    }
    TarnMessage seven = Received(0, {1, 2, 3, 4, 5, 3, 3, 0});
    seven.SetFullHeader(0x10000000);
    ExpectNoChcpFields(seven);
}

TEST(ChcpMacID, IsTheLow28BitsOfAnyMessage)
{
    TarnMessage message;
    message.SetFullHeader(0xB0000000);
    EXPECT_TRUE(message.SetChcpMacID(0xFFFFFFFF));
    EXPECT_EQ(message.GetFullHeader(), 0xBFFFFFFFu);
    EXPECT_EQ(message.GetChcpMacID(), 0x0FFFFFFFu);
    EXPECT_EQ(message.GetType(), TYPE_CHCP);
    message.SetFullHeader(0xEFFFFFFF);
    EXPECT_TRUE(message.SetChcpMacID(0x1234567));
    EXPECT_EQ(message.GetFullHeader(), 0xE1234567u);
    EXPECT_EQ(message.GetType(), TYPE_DATA);
    EXPECT_EQ(message.GetSourceAddr(), 0x67);
    EXPECT_EQ(message.GetChcpMacID(), 0x1234567u);
}

} // namespace
