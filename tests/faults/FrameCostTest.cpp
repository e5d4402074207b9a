#include "support/AllocationCounter.h"
#include "support/DispatchFakes.h"
#include "support/MutexFaults.h"

#include <tarn/TarnAsyncDispatcher.h>
#include <tarn/TarnAsyncDispatcherMock.h>

#include <gtest/gtest.h>

#include <vector>

// What every frame costs in allocations and in mutex operations: exactly what the guarantees of the
// dispatcher and of the message need.

namespace
{

using namespace tarn;
using support::CountAllocations;
using support::CountCalls;
using tarn::test::ChcpFrame;
using tarn::test::DataFrame;
using tarn::test::RecordingCanDispatcher;

class ReadsNothing : public iTarnMessageHandler
{
public:
    ~ReadsNothing() noexcept override {}
    bool DispatchResponse(TarnMessage&) override { return false; }
};

class SilentCanDispatcher : public iCanAsyncDispatcher
{
public:
    void Start(iCanMessageHandler*) override {}
    void Stop(iCanMessageHandler*) override {}
    void Send(CanMessage&) override {}
};

struct Cost {
    unsigned long allocations;
    unsigned int locks;
    unsigned int unlocks;
};

bool operator==(const Cost& left, const Cost& right)
{
    return left.allocations == right.allocations && left.locks == right.locks &&
           left.unlocks == right.unlocks;
}

void PrintTo(const Cost& cost, std::ostream* out)
{
    *out << cost.allocations << " allocations, " << cost.locks << " locks, " << cost.unlocks
         << " unlocks";
}

/// The second run counts: the first decides the log statements.
template <typename Operation>
Cost CostOf(Operation&& operation)
{
    operation();
    return {CountAllocations(operation), CountCalls(support::LOCK, operation),
            CountCalls(support::UNLOCK, operation)};
}

class FrameCost : public testing::Test
{
protected:
    template <typename Dispatcher>
    Cost CostOfRouting(Dispatcher& dispatcher, CanMessage frame)
    {
        dispatcher.SubscribeSource(5, &mHandler);
        dispatcher.SubscribeChcp(&mHandler);
        return CostOf([&] { dispatcher.DispatchResponse(frame); });
    }

    ReadsNothing mHandler;
    std::tr1::shared_ptr<TarnAsyncDispatcher> mDispatcher = TarnAsyncDispatcher::Create(
        std::tr1::shared_ptr<iCanAsyncDispatcher>(new SilentCanDispatcher));
    std::tr1::shared_ptr<TarnAsyncDispatcherMock> mMock = TarnAsyncDispatcherMock::Create();
};

TEST_F(FrameCost, OfDataIsThePayloadTheThreeListsAndTheThreeFieldsThatChooseThem)
{
    EXPECT_EQ(CostOfRouting(*mDispatcher, DataFrame(5, 9)), (Cost{1, 6, 6}));
}

TEST_F(FrameCost, OfDataForNobodyIsTheSame)
{
    EXPECT_EQ(CostOfRouting(*mDispatcher, DataFrame(6, 9)), (Cost{1, 6, 6}));
}

TEST_F(FrameCost, OfChcpIsThePayloadTheTwoListsAndTheType)
{
    EXPECT_EQ(CostOfRouting(*mDispatcher, ChcpFrame(5)), (Cost{1, 3, 3}));
}

TEST_F(FrameCost, OfAFrameThatIsNoMessageIsNoMutex)
{
    CanMessage frame = DataFrame(5, 9);
    frame.GetFlags() = CanMessage::FLAG_ERROR;
    EXPECT_EQ(CostOfRouting(*mDispatcher, frame), (Cost{1, 0, 0}));
}

TEST_F(FrameCost, InTheMockLacksTheAllList)
{
    EXPECT_EQ(CostOfRouting(*mMock, DataFrame(5, 9)), (Cost{1, 5, 5}));
}

TEST_F(FrameCost, OfChcpInTheMockIsTheTypeAlone)
{
    EXPECT_EQ(CostOfRouting(*mMock, ChcpFrame(5)), (Cost{1, 1, 1}));
}

TEST_F(FrameCost, OfSendingAReusedMessageIsNoAllocation)
{
    TarnMessage message;
    std::vector<float> value = {1.5F};
    const Cost cost = CostOf([&] {
        message.SetData(value);
        mDispatcher->Send(message);
    });
    EXPECT_EQ(cost, (Cost{0, 3, 3})) << "the values; the frame in the message, and its making";
}

TEST(Footprint, OfADispatcherIsAtMostTwelveKibibytes)
{
    const std::tr1::shared_ptr<iCanAsyncDispatcher> bus(new SilentCanDispatcher);
    std::tr1::shared_ptr<TarnAsyncDispatcher> dispatcher = TarnAsyncDispatcher::Create(bus);
    const unsigned long bytes =
        support::CountBytes([&] { dispatcher = TarnAsyncDispatcher::Create(bus); });
    EXPECT_GE(bytes, sizeof(TarnAsyncDispatcher));
    EXPECT_LE(bytes, 12u * 1024);
}

TEST(Footprint, OfAMessageIsAtMost160Bytes)
{
    EXPECT_LE(sizeof(TarnMessage), 160u);
}

} // namespace
