#include "support/AllocationCounter.h"
#include "support/CaseName.h"
#include "support/Frames.h"

#include <tarn/TarnMessage.h>

#include <gtest/gtest.h>

#include <functional>
#include <optional>
#include <ostream>
#include <string>
#include <thread>

namespace
{

using support::Bytes;
using support::CountAllocations;
using support::Frame;
using support::WithPayload;
using tarn::CanMessage;
using tarn::tarn_u24_t;
using tarn::TarnMessage;

unsigned long AllocationsOfParsing(unsigned int header, const Bytes& data, unsigned int flags = 1)
{
    CanMessage frame = Frame(header, data, flags);
    std::optional<TarnMessage> message;
    return CountAllocations([&] { message.emplace(frame); });
}

TEST(Allocations, CountWhatIsAllocated)
{
    EXPECT_EQ(CountAllocations([] { Bytes(3); }), 1u);
    EXPECT_EQ(CountAllocations([] {}), 0u);
}

TEST(Parsing, AllocatesOnceWhateverTheFrameHolds)
{
    const Bytes eight{1, 2, 3, 4, 5, 6, 7, 8};
    for (std::size_t size = 0; size <= 8; ++size) {
        const Bytes data(eight.begin(), eight.begin() + static_cast<std::ptrdiff_t>(size));
        for (const unsigned int header : {0u, 0x00400000u, 0x10000000u}) {
            EXPECT_LE(AllocationsOfParsing(header, data), 1u) << size << " " << header;
            EXPECT_LE(AllocationsOfParsing(header, data, 4), 1u) << size << " " << header;
            EXPECT_LE(AllocationsOfParsing(header, data, 0), 1u) << size << " " << header;
        }
    }
}

TEST(Framing, AllocatesNothingAfterTheFirstFrameOfTheThread)
{
    TarnMessage message;
    message.SetModule(9);
    Bytes payload{1, 2, 3, 4, 5, 6};
    message.SetData(payload);
    message.RawMessageRef();
    EXPECT_EQ(CountAllocations([&] { message.RawMessageRef(); }), 0u);
    EXPECT_EQ(CountAllocations([&] { message.RawMessage(); }), 0u);
}

TEST(Framing, AllocatesNothingForTheLongestFrameAfterTheShortest)
{
    std::thread([] { // where nothing has been framed yet
        TarnMessage shortest;
        shortest.RawMessageRef();
        TarnMessage longest = WithPayload(8, {1, 2, 3, 4, 5, 6});
        longest.SetModule(9);
        EXPECT_EQ(CountAllocations([&] { longest.RawMessageRef(); }), 0u);
    })
        .join();
}

TEST(NewMessage, AllocatesItsPayloadOnce)
{
    std::optional<TarnMessage> message;
    EXPECT_EQ(CountAllocations([&] { message.emplace(); }), 1u);
    Bytes payload{1, 2, 3, 4, 5, 6};
    EXPECT_EQ(CountAllocations([&] { message->SetData(payload); }), 0u);
}

TEST(Copy, HasRoomForAFullPayloadInOneAllocation)
{
    const TarnMessage original;
    std::optional<TarnMessage> message;
    EXPECT_EQ(CountAllocations([&] { message.emplace(original); }), 1u);
    Bytes payload{1, 2, 3, 4, 5, 6};
    EXPECT_EQ(CountAllocations([&] { message->SetData(payload); }), 0u);
    TarnMessage target;
    EXPECT_EQ(CountAllocations([&] { target = *message; }), 0u);
}

TEST(ReceivedMessage, HasRoomForAFullPayload)
{
    for (const unsigned int flags : {0u, 1u}) {
        TarnMessage message = support::Received(0, {0}, flags);
        Bytes payload{1, 2, 3, 4, 5, 6};
        EXPECT_EQ(CountAllocations([&] { message.SetData(payload); }), 0u);
    }
}

struct PayloadCase {
    const char* name;
    unsigned int dataType;
    Bytes payload;
    std::function<bool(TarnMessage&)> get;
    std::function<bool(TarnMessage&)> set;
};

void PrintTo(const PayloadCase& row, std::ostream* out)
{
    *out << row.name;
}

class PayloadAccess : public testing::TestWithParam<PayloadCase>
{
};

TEST_P(PayloadAccess, AllocatesNothingForAVectorWithRoom)
{
    TarnMessage message = WithPayload(GetParam().dataType, GetParam().payload);
    EXPECT_EQ(CountAllocations([&] { EXPECT_TRUE(GetParam().get(message)); }), 0u);
    EXPECT_EQ(CountAllocations([&] { EXPECT_TRUE(GetParam().set(message)); }), 0u);
}

template <typename Value>
bool Get(TarnMessage& message)
{
    static std::vector<Value> values(6);
    return message.GetData(values);
}

template <typename Value>
bool Set(TarnMessage& message)
{
    static std::vector<Value> values(1);
    return message.SetData(values);
}

template <typename Value>
PayloadCase Row(const char* name, unsigned int dataType, const Bytes& payload)
{
    // Both vectors are made here, before anything is counted.
    TarnMessage warmUp;
    Set<Value>(warmUp);
    Get<Value>(warmUp);
    return {name, dataType, payload, Get<Value>, Set<Value>};
}

bool AppendFloat(TarnMessage& message)
{
    static std::vector<float> values;
    values.clear();
    return message.GetData(values);
}

PayloadCase AppendingRow()
{
    TarnMessage warmUp = WithPayload(13, {0, 0, 0, 0});
    AppendFloat(warmUp);
    return {"FloatAsSingle", 13, {0, 0, 0, 0}, AppendFloat, Set<float>};
}

INSTANTIATE_TEST_SUITE_P(Of, PayloadAccess,
                         testing::Values(Row<unsigned char>("U8", 8, {1, 2, 3, 4, 5, 6}),
                                         Row<unsigned short>("U16", 9, {1, 2, 3, 4, 5, 6}),
                                         Row<tarn_u24_t>("U24", 10, {1, 2, 3, 4, 5, 6}),
                                         Row<unsigned int>("U32", 11, {1, 2, 3, 4}),
                                         Row<unsigned long long>("U48", 12, {1, 2, 3, 4, 5, 6}),
                                         Row<double>("Float", 13, {0, 0, 0, 0}),
                                         Row<float>("FixedPoint", 3, {1, 2, 3, 4, 5, 6}),
                                         AppendingRow()),
                         support::CaseName());

TEST(PayloadGetter, AllocatesWhatAnEmptyVectorNeeds)
{
    TarnMessage message = WithPayload(9, {1, 2, 3, 4, 5, 6});
    std::vector<unsigned short> values;
    EXPECT_EQ(CountAllocations([&] { message.GetData(values); }), 1u);
}

TEST(HeaderAccess, AllocatesNothing)
{
    TarnMessage message;
    EXPECT_EQ(CountAllocations([&] {
                  message.SetModule(1);
                  message.SetFullHeader(message.GetFullHeader() + 1);
                  message.SetRStatus(TarnMessage::STATUS_OFFLINE);
                  message.SetChcpID(1);
                  message.SetChcpCommand(TarnMessage::CHCP_COMMAND_1);
                  message.GetChcpDeviceCode();
                  message.SetType(TarnMessage::TYPE_DATA);
                  (void)(message == message);
              }),
              0u);
}

} // namespace
