#include <tarn/TarnMessage.h>

#include <gtest/gtest.h>

#include <numeric>
#include <string>
#include <vector>

// The message over a CAN layer that is not ours (foreign/), whose frames may hold anything.

namespace
{

using tarn::CanMessage;
using tarn::tarn_u24_t;
using tarn::TarnMessage;
using Bytes = std::vector<unsigned char>;

TarnMessage Received(unsigned int header, Bytes data)
{
    CanMessage frame;
    frame.SetHeader(header);
    frame.GetFlags() = 1;
    frame.SetData(data);
    return TarnMessage(frame);
}

/// The bytes 1, 2, 3 and so on, with a status byte and a module byte at the end.
Bytes Counting(std::size_t payload, unsigned char status, unsigned char module)
{
    Bytes bytes(payload);
    std::iota(bytes.begin(), bytes.end(), static_cast<unsigned char>(1));
    bytes.push_back(status);
    bytes.push_back(module);
    return bytes;
}

template <typename Value>
void ExpectUnread(const TarnMessage& message)
{
    std::vector<Value> values(2);
    EXPECT_FALSE(message.GetData(values));
    EXPECT_EQ(values.size(), 2u);
}

void ExpectUnreadByAll(const TarnMessage& message)
{
    ExpectUnread<unsigned char>(message);
    ExpectUnread<unsigned short>(message);
    ExpectUnread<tarn_u24_t>(message);
    ExpectUnread<unsigned int>(message);
    ExpectUnread<unsigned long long>(message);
    ExpectUnread<double>(message);
    ExpectUnread<float>(message);
}

void ExpectNotFramed(TarnMessage& message, const std::string& text)
{
    try {
        message.RawMessageRef();
        FAIL() << "framed";
    } catch (const std::string& refusal) {
        EXPECT_EQ(refusal, text);
    }
}

TEST(LongFrame, IsKeptButNeitherReadNorSentAgain)
{
    for (const std::size_t payload : {7u, 8u, 12u, 24u, 62u, 5000u}) {
        for (unsigned char type = 0; type < 16; ++type) {
            const auto status = static_cast<unsigned char>(0x30 + type);
            TarnMessage message = Received(0x00400000, Counting(payload, status, 9));
            EXPECT_FALSE(!message);
            EXPECT_EQ(message.GetRStatus(), 3);
            EXPECT_EQ(message.GetDataType(), type);
            EXPECT_EQ(message.GetModule(), 9);
            ExpectUnreadByAll(message);
            ExpectNotFramed(message, "tarn::CanMessage tarn::TarnMessage::RawMessage() : "
                                     "TYPE_DATA : mData.size() > 6!");
        }
    }
}

TEST(LongFrame, ShowsItsBytesInTheText)
{
    const TarnMessage message = Received(0, Counting(8, 9, 0x08));
    EXPECT_EQ(message.ToStringShort().substr(message.ToStringShort().find("Status")),
              "Status: UNKNOWN,DataType: U8,Data(0) : ,Raw-Header : 0,Raw-Data(9) :  - 0x01() - "
              "0x02() - 0x03() - 0x04() - 0x05() - 0x06() - 0x07() - 0x08() - 0x09()");
    EXPECT_EQ(message.GetDataSize(), 9u);
}

TEST(LongFrame, ShowsThousandsOfBytesInTheText)
{
    const std::string text =
        Received(0, Bytes(5001, 0x41)).ToStringShort(); // the last is the status byte
    const std::string end =
        ",Status: STARTUP,DataType: S16F1,Data(0) : ,Raw-Header : 0,Raw-Data(5000) : ";
    const std::size_t bytes = text.find(end) + end.size();
    ASSERT_EQ(text.size() - bytes, 50000u);
    for (std::size_t at = bytes; at < text.size(); at += 10)
        ASSERT_EQ(text.substr(at, 10), " - 0x41(A)") << at;
}

TEST(LongFrame, CopiesAndComparesWhole)
{
    const TarnMessage message = Received(0, Counting(20, 0, 8));
    TarnMessage other = Received(0, Counting(21, 0, 8));
    EXPECT_FALSE(message == other);
    other = message;
    EXPECT_TRUE(TarnMessage(other) == message);
}

TEST(LongFrame, GivesWayToAPayloadThatIsSet)
{
    TarnMessage message = Received(0, Counting(20, 0, 8));
    Bytes payload{0x41};
    EXPECT_TRUE(message.SetData(payload));
    EXPECT_EQ(message.RawMessage().GetData(), (Bytes{0x41, 0x08}));
}

TEST(LongFrame, OfChcpTypeIsAValidZero)
{
    const TarnMessage message = Received(0x1FFFFFFF, Counting(62, 0xFF, 0xFF));
    EXPECT_FALSE(!message);
    EXPECT_EQ(message.GetFullHeader(), 0u);
    EXPECT_EQ(message.GetRStatus(), 0);
    EXPECT_EQ(message.GetDataSize(), 0u);
}

TEST(LongFrame, MadeChcpGetsSixZeroBytes)
{
    TarnMessage message = Received(0, Counting(20, 0, 8));
    EXPECT_EQ(message.GetChcpID(), 0);
    EXPECT_TRUE(message.SetChcpID(3));
    EXPECT_EQ(message.RawMessage().GetData(), (Bytes{0, 0, 0, 0, 3, 0, 0x08}));
}

TEST(ForeignFrame, ThatKeepsTheVectorIsBuiltAgainAndAgain)
{
    TarnMessage message;
    for (int i = 0; i < 3; ++i) {
        CanMessage& frame = message.RawMessageRef();
        EXPECT_EQ(frame.GetHeader(), 0x0F800001u);
        EXPECT_EQ(frame.GetFlags(), 1u);
        EXPECT_EQ(frame.GetData(), Bytes{0x20});
    }
}

TEST(ForeignFrame, WithAnErrorIsRefusedWhateverItsFlags)
{
    CanMessage frame;
    frame.GetFlags() = 1;
    Bytes data{0x20};
    frame.SetData(data);
    EXPECT_FALSE(!TarnMessage(frame));
    frame.mError = true;
    EXPECT_TRUE(!TarnMessage(frame));
}

} // namespace
