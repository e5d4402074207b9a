#include "support/CaseName.h"
#include "support/Frames.h"

#include <tarn/TarnMessage.h>

#include <gtest/gtest.h>

#include <ostream>
#include <string>
#include <thread>

namespace
{

using support::Bytes;
using support::EXTENDED;
using support::Frame;
using support::PayloadOf;
using support::Received;
using tarn::CanMessage;
using tarn::TarnMessage;

TarnMessage Message(unsigned int header, unsigned char module, int status, Bytes payload,
                    int dataType)
{
    TarnMessage message;
    message.SetModule(module);
    message.SetFullHeader(header);
    message.SetRStatus(static_cast<TarnMessage::tTarnRStatus>(status));
    if (!payload.empty())
        message.SetData(payload);
    message.SetDataType(static_cast<TarnMessage::tTarnDataType>(dataType));
    return message;
}

struct FramedCase {
    const char* name;
    unsigned int header;
    unsigned char module;
    int status;
    Bytes payload;
    int dataType;
    Bytes bytes;
};

void PrintTo(const FramedCase& row, std::ostream* out)
{
    *out << row.name;
}

class Framing : public testing::TestWithParam<FramedCase>
{
};

TEST_P(Framing, BuildsTheseBytesAndReadsThemBack)
{
    const FramedCase& row = GetParam();
    const TarnMessage message =
        Message(row.header, row.module, row.status, row.payload, row.dataType);
    CanMessage frame = message.RawMessage();
    EXPECT_EQ(frame.GetHeader(), row.header);
    EXPECT_EQ(frame.GetFlags(), 1u);
    EXPECT_EQ(frame.GetData(), row.bytes);
    const TarnMessage received(frame);
    EXPECT_FALSE(!received);
    EXPECT_EQ(received.GetFullHeader(), row.header);
    EXPECT_EQ(received.GetRStatus(), row.status);
    EXPECT_EQ(received.GetDataType(), row.dataType);
    EXPECT_EQ(PayloadOf(received), row.payload);
}

INSTANTIATE_TEST_SUITE_P(
    Accepted, Framing,
    testing::Values(
        FramedCase{"New", 0x0F800001, 0, 2, {}, 0, {0x20}},
        FramedCase{"Extended", 0x0FC00001, 5, 3, {1, 2}, 9, {1, 2, 0x39, 5}},
        FramedCase{"ExtendedEmpty", 0x0FC00001, 5, 15, {}, 15, {0xFF, 5}},
        FramedCase{"ExtendedModule0", 0x00400000, 0, 1, {7}, 8, {7, 0x18, 0}},
        FramedCase{
            "ExtendedFull", 0x00400000, 255, 0, {1, 2, 3, 4, 5, 6}, 8, {1, 2, 3, 4, 5, 6, 8, 255}},
        FramedCase{"StandardFull", 0, 0, 9, {1, 2, 3, 4, 5, 6}, 12, {1, 2, 3, 4, 5, 6, 0x9C}},
        FramedCase{"StandardIgnoresTheModule", 0, 9, 0, {1}, 8, {1, 8}},
        FramedCase{"KeepsBits29To31", 0xEF800001, 0, 2, {}, 0, {0x20}},
        FramedCase{"Chcp", 0x10000000, 0, 1, {1, 2, 3, 4, 5, 6}, 0, {1, 2, 3, 4, 5, 6, 0x10}},
        FramedCase{"ChcpWithModeBitAndModule",
                   0xFFFFFFFF,
                   9,
                   15,
                   {9, 8, 7, 6, 5, 4},
                   14,
                   {9, 8, 7, 6, 5, 4, 0xFE}}),
    support::CaseName());

struct ReceivedCase {
    const char* name;
    unsigned int header;
    Bytes bytes;
    bool valid;
    unsigned int shownHeader;
    int status;
    int dataType;
    int module;
    unsigned int payloadBytes;
};

void PrintTo(const ReceivedCase& row, std::ostream* out)
{
    *out << row.name;
}

class Receiving : public testing::TestWithParam<ReceivedCase>
{
};

TEST_P(Receiving, GivesTheseFields)
{
    const ReceivedCase& row = GetParam();
    TarnMessage message = Received(row.header, row.bytes);
    EXPECT_EQ(!message, !row.valid);
    EXPECT_EQ(message.GetFullHeader(), row.shownHeader);
    EXPECT_EQ(message.GetRStatus(), row.status);
    EXPECT_EQ(message.GetDataType(), row.dataType);
    EXPECT_EQ(message.GetModule(), row.module);
    message.SetDataType(TarnMessage::DATATYPE_U8);
    EXPECT_EQ(message.GetDataSize(), row.payloadBytes);
}

const Bytes EIGHT{1, 2, 3, 4, 5, 6, 7, 0xAB};

INSTANTIATE_TEST_SUITE_P(
    Accepted, Receiving,
    testing::Values(
        ReceivedCase{"Status", 0x0F, {0xF0}, true, 0x0F, 15, 0, 0, 0},
        ReceivedCase{"DataType", 0, {0x0E}, true, 0, 0, 14, 0, 0},
        ReceivedCase{"ExtendedPair", 0x00400000, {0x5D, 3}, true, 0x00400000, 5, 13, 3, 0},
        ReceivedCase{"ExtendedEight", 0x00400000, EIGHT, true, 0x00400000, 0, 7, 0xAB, 6},
        ReceivedCase{"StandardEightGivesSevenPayloadBytes", 0, EIGHT, true, 0, 10, 11, 0, 7},
        ReceivedCase{"Bits29To31", 0xE0000000, {0x11}, true, 0xE0000000, 1, 1, 0, 0},
        ReceivedCase{"ChcpWithModeBit",
                     0x10400000,
                     {1, 2, 3, 4, 5, 6, 0x7F},
                     true,
                     0x10400000,
                     7,
                     15,
                     0,
                     6}),
    support::CaseName());

INSTANTIATE_TEST_SUITE_P(
    ChcpOfOtherThan7BytesIsAValidZero, Receiving,
    testing::Values(ReceivedCase{"Empty", 0x10000000, {}, true, 0, 0, 0, 0, 0},
                    ReceivedCase{"One", 0x1FFFFFFF, {0xFF}, true, 0, 0, 0, 0, 0},
                    ReceivedCase{"Six", 0x10000000, {1, 2, 3, 4, 5, 0xFF}, true, 0, 0, 0, 0, 0},
                    ReceivedCase{"EightWithModeBit", 0xFFFFFFFF, EIGHT, true, 0, 0, 0, 0, 0}),
    support::CaseName());

INSTANTIATE_TEST_SUITE_P(
    Refused, Receiving,
    testing::Values(ReceivedCase{"StandardWithoutStatus", 0xEF800001, {}, false, 0, 0, 0, 0, 0},
                    ReceivedCase{"ExtendedEmpty", 0x0FC00001, {}, false, 0, 0, 0, 0, 0},
                    ReceivedCase{
                        "ExtendedWithoutModule", 0x0FC00001, {0xFF}, false, 0, 0, 0, 0, 0}),
    support::CaseName());

void ExpectRefused(unsigned int flags)
{
    const TarnMessage message = Received(0x0FC00001, {1, 2, 0x39, 5}, flags);
    EXPECT_TRUE(!message) << flags;
    EXPECT_EQ(message.GetFullHeader(), 0u);
    EXPECT_EQ(message.GetRStatus(), 0);
    EXPECT_EQ(message.GetDataType(), 0);
    EXPECT_EQ(message.GetModule(), 0);
    EXPECT_EQ(PayloadOf(message), Bytes{});
}

TEST(Receiving, RefusesErrorFramesAndShortIdentifiers)
{
    for (const unsigned int flags : {0u, 2u, 4u, 5u, 0xFFFFFFFEu, 0xFFFFFFFFu})
        ExpectRefused(flags);
}

TEST(Receiving, LooksAtNoOtherFlag)
{
    // All flags but bit 2, which marks an error frame.
    EXPECT_FALSE(!Received(0, {0x20}, 0xFFFFFFFB));
}

TEST(Receiving, RefusesAnErrorFrameThatWouldBeAWrongChcpFrame)
{
    EXPECT_TRUE(!Received(0x10000000, {}, 5));
    EXPECT_TRUE(!Received(0x10000000, {}, 0));
}

TEST(Receiving, OnlyReadsTheFrame)
{
    CanMessage frame = Frame(0xEFC00001, {1, 2, 0x39, 5}, 0x81);
    const TarnMessage message(frame);
    EXPECT_FALSE(!message);
    EXPECT_EQ(frame.GetHeader(), 0xEFC00001u);
    EXPECT_EQ(frame.GetFlags(), 0x81u);
    EXPECT_EQ(frame.GetData(), (Bytes{1, 2, 0x39, 5}));
}

std::string Refusal(TarnMessage& message, bool intoTheMessage)
{
    try {
        if (intoTheMessage)
            message.RawMessageRef();
        else
            message.RawMessage();
    } catch (const std::string& text) {
        return text;
    }
    return "framed";
}

constexpr const char* TOO_LONG =
    "tarn::CanMessage tarn::TarnMessage::RawMessage() : TYPE_DATA : mData.size() > 6!";
constexpr const char* NOT_SIX =
    "tarn::CanMessage tarn::TarnMessage::RawMessage() : TYPE_CHCP : mData.size() != 6!";

void ExpectFramingRefused(const TarnMessage& unframable, const std::string& text)
{
    TarnMessage message;
    const CanMessage& kept = message.RawMessageRef();
    message = unframable;
    EXPECT_EQ(Refusal(message, false), text);
    EXPECT_EQ(Refusal(message, true), text);
    EXPECT_TRUE(message == unframable);
    EXPECT_EQ(kept.ToString(), "0F800001#20") << "the frame before the refusal went";
    // Another thread gets the lock.
    std::thread([&message] { message.SetRegister(1); }).join();
    EXPECT_EQ(message.GetRegister(), 1);
}

TEST(Framing, RefusesADataMessageOf7Bytes)
{
    ExpectFramingRefused(Received(0, EIGHT), TOO_LONG);
    TarnMessage extended = Received(0, EIGHT);
    extended.SetModule(1);
    ExpectFramingRefused(extended, TOO_LONG);
}

TEST(Framing, RefusesAChcpMessageOfOtherThan6Bytes)
{
    ExpectFramingRefused(Message(0x10000000, 0, 0, {}, 0), NOT_SIX);
    ExpectFramingRefused(Message(0x10000000, 0, 0, {1, 2, 3, 4, 5}, 0), NOT_SIX);
    TarnMessage seven = Received(0, EIGHT);
    seven.SetFullHeader(0x1FFFFFFF);
    ExpectFramingRefused(seven, NOT_SIX);
}

TEST(FrameOfTheMessage, IsOneAndOverwrittenByTheNextCall)
{
    TarnMessage message;
    CanMessage& first = message.RawMessageRef();
    EXPECT_EQ(first.ToString(), "0F800001#20");
    message.SetModule(5);
    EXPECT_EQ(first.ToString(), "0F800001#20");
    CanMessage& second = message.RawMessageRef();
    EXPECT_EQ(&first, &second);
    EXPECT_EQ(first.ToString(), "0FC00001#2005");
}

TEST(FrameOfTheMessage, StartsOverFromAnEmptyFrame)
{
    TarnMessage message;
    CanMessage& frame = message.RawMessageRef();
    frame.GetFlags() = 0xFFFFFFFF;
    message.RawMessageRef();
    EXPECT_EQ(frame.GetFlags(), 1u);
}

TEST(Framing, BelongsToNobodyElsesFrame)
{
    const TarnMessage message;
    CanMessage frame = message.RawMessage();
    frame.SetHeader(0);
    EXPECT_EQ(message.RawMessage().ToString(), "0F800001#20");
}

/// Frames a message when its thread ends, after everything that the library keeps for the thread.
struct FramesAtTheEnd {
    CanMessage* frame = nullptr;
    bool* neighbourIntact = nullptr;
    ~FramesAtTheEnd()
    {
        const Bytes neighbour(8, 0xAA); // lies where memory of the thread was given back
        *frame = TarnMessage().RawMessage();
        *neighbourIntact = neighbour == Bytes(8, 0xAA);
    }
};

TEST(Framing, WorksUntilTheVeryEndOfAThread)
{
    CanMessage frame;
    bool neighbourIntact = false;
    std::thread([&] {
        static thread_local FramesAtTheEnd atTheEnd;
        atTheEnd.frame = &frame;
        atTheEnd.neighbourIntact = &neighbourIntact;
        TarnMessage().RawMessage();
    }).join();
    EXPECT_EQ(frame.ToString(), "0F800001#20");
    EXPECT_TRUE(neighbourIntact);
}

} // namespace
