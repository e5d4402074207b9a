#include "support/CanFakes.h"
#include "support/LogCapture.h"
#include "support/ThrowingChannel.h"

#include <plexa_can/CanException.h>
#include <plexa_can/VirtualCanBus.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <numeric>
#include <stdexcept>
#include <thread>

namespace
{

using namespace tarn;
using namespace tarn::test;
using testing::ElementsAre;
using testing::HasSubstr;

constexpr unsigned int PATIENCE_MS = 20000;

using Node = std::tr1::shared_ptr<VirtualCanNode>;

void Send(const Node& node, unsigned int header, const std::vector<unsigned char>& data = {})
{
    CanMessage frame = ExtendedFrame(header, data);
    node->Send(frame);
}

std::string SendFailure(const Node& node)
{
    try {
        Send(node, 1);
    } catch (const CanException& exception) {
        return exception.message();
    }
    return "no exception";
}

VirtualCanBus::Options With(VirtualCanBus::tDelivery delivery)
{
    VirtualCanBus::Options options;
    options.delivery = delivery;
    return options;
}

/// Both sides of the ledger; waits for the bus to come to rest first.
void ExpectBalance(const VirtualCanBus& bus)
{
    ASSERT_TRUE(bus.WaitUntilIdle(PATIENCE_MS));
    const auto counters = bus.GetCounters();
    EXPECT_EQ(counters.sent, counters.onBus + counters.waitingToSend + counters.unsent);
    EXPECT_EQ(counters.copies + counters.duplicated + counters.errorFrames,
              counters.delivered + counters.waiting + counters.lost + counters.unheard);
}

class VirtualCan : public testing::TestWithParam<VirtualCanBus::tDelivery>
{
protected:
    std::tr1::shared_ptr<VirtualCanBus> mBus = VirtualCanBus::Create(With(GetParam()));
};

INSTANTIATE_TEST_SUITE_P(Delivery, VirtualCan,
                         testing::Values(VirtualCanBus::DELIVERY_THREADED,
                                         VirtualCanBus::DELIVERY_INLINE),
                         [](const auto& bus) {
                             return bus.param == VirtualCanBus::DELIVERY_INLINE ? "Inline"
                                                                                : "Threaded";
                         });

TEST_P(VirtualCan, DeliversToEveryOtherNodeAndNotToTheSender)
{
    FrameRecorder own;
    FrameRecorder first;
    FrameRecorder second;
    const Node a = mBus->Connect();
    const Node b = mBus->Connect();
    const Node c = mBus->Connect();
    a->Start(&own);
    b->Start(&first);
    c->Start(&second);
    Send(a, 0x0F800001, {0x20});
    ASSERT_TRUE(mBus->WaitUntilIdle(PATIENCE_MS));
    ASSERT_EQ(first.Frames().size(), 1u);
    EXPECT_EQ(first.Frames()[0].ToString(), "0F800001#20");
    EXPECT_GT(first.Frames()[0].GetTimeStamp(), 1700000000000000000ull);
    EXPECT_EQ(second.Frames().size(), 1u);
    EXPECT_TRUE(own.Frames().empty());
}

TEST_P(VirtualCan, AllNodesSeeTheFramesOfManySendersInOneOrder)
{
    FrameRecorder first;
    FrameRecorder second;
    const Node a = mBus->Connect();
    const Node b = mBus->Connect();
    a->Start(&first);
    b->Start(&second);
    std::vector<std::thread> senders;
    for (unsigned int sender = 0; sender < 3; ++sender) {
        senders.emplace_back([&, sender, node = mBus->Connect()] {
            for (unsigned int i = 0; i < 500; ++i)
                Send(node, sender * 1000 + i);
        });
    }
    for (auto& sender : senders)
        sender.join();
    ASSERT_TRUE(mBus->WaitUntilIdle(PATIENCE_MS));
    EXPECT_EQ(first.Headers().size(), 1500u);
    EXPECT_EQ(first.Headers(), second.Headers());
    std::vector<unsigned int> ofTheLast;
    for (const unsigned int header : first.Headers()) {
        if (header >= 2000)
            ofTheLast.push_back(header);
    }
    std::vector<unsigned int> expected(500);
    std::iota(expected.begin(), expected.end(), 2000u);
    EXPECT_EQ(ofTheLast, expected);
}

TEST_P(VirtualCan, AFrameSentByAHandlerComesAfterThePresentOneForEverybody)
{
    const Node a = mBus->Connect();
    const Node b = mBus->Connect();
    const Node c = mBus->Connect();
    FrameRecorder answering([&](CanMessage& frame) {
        if (frame.GetHeader() == 1)
            Send(b, 2);
    });
    FrameRecorder looking;
    b->Start(&answering);
    c->Start(&looking);
    Send(a, 1);
    ASSERT_TRUE(looking.AwaitCount(2));
    EXPECT_THAT(looking.Headers(), ElementsAre(1u, 2u));
}

TEST_P(VirtualCan, AnExceptionOfAHandlerStopsNothing)
{
    const Node a = mBus->Connect();
    const Node b = mBus->Connect();
    FrameRecorder throwing([](CanMessage& frame) {
        switch (frame.GetHeader()) {
        case 0:
            throw std::runtime_error("standard");
        case 1:
            throw CanException("Poco", 1);
        case 2:
            throw std::string("text");
        case 3:
            throw 42;
        default:
            break;
        }
    });
    FrameRecorder behind;
    b->Start(&throwing);
    b->Start(&behind);
    for (unsigned int header = 0; header < 5; ++header)
        Send(a, header);
    ASSERT_TRUE(mBus->WaitUntilIdle(PATIENCE_MS));
    EXPECT_THAT(throwing.Headers(), ElementsAre(0u, 1u, 2u, 3u, 4u));
    EXPECT_THAT(behind.Headers(), ElementsAre(0u, 1u, 2u, 3u, 4u));
    EXPECT_EQ(mBus->GetCounters().handlerExceptions, 4u);
}

TEST_P(VirtualCan, LogsWhatAHandlerThrewEachTextOnceASecond)
{
    Poco::AutoPtr<LogCapture> capture(new LogCapture);
    Poco::Logger::get("VirtualCanBus").setChannel(capture);
    const Node a = mBus->Connect();
    const Node b = mBus->Connect();
    FrameRecorder throwing([](CanMessage& frame) {
        throw std::runtime_error(frame.GetHeader() < 50 ? "broken pump" : "broken valve");
    });
    b->Start(&throwing);
    for (unsigned int header = 0; header < 100; ++header)
        Send(a, header);
    ASSERT_TRUE(mBus->WaitUntilIdle(PATIENCE_MS));
    const std::string lines = capture->Take();
    EXPECT_EQ(lines, "3 VirtualCanBus A frame handler threw: broken pump\n"
                     "3 VirtualCanBus A frame handler threw: broken valve\n");
    Poco::Logger::get("VirtualCanBus").setChannel(nullptr);
}

TEST_P(VirtualCan, ALogThatFailsStopsNothing)
{
    const BrokenLog log("VirtualCanBus");
    const Node a = mBus->Connect();
    const Node b = mBus->Connect();
    FrameRecorder throwing([](CanMessage&) { throw std::runtime_error("broken pump"); });
    b->Start(&throwing);
    Send(a, 1);
    Send(a, 2);
    ASSERT_TRUE(mBus->WaitUntilIdle(PATIENCE_MS));
    EXPECT_THAT(throwing.Headers(), ElementsAre(1u, 2u));
    EXPECT_EQ(log.Calls(), 1);
}

TEST_P(VirtualCan, AHandlerMayStopItselfAndOthersAndStartAnother)
{
    const Node a = mBus->Connect();
    const Node b = mBus->Connect();
    FrameRecorder later;
    FrameRecorder neighbour;
    FrameRecorder leaving([&](CanMessage&) {
        b->Stop(&leaving);
        b->Stop(&neighbour);
        b->Start(&later);
    });
    b->Start(&leaving);
    b->Start(&neighbour);
    Send(a, 1);
    ASSERT_TRUE(mBus->WaitUntilIdle(PATIENCE_MS));
    Send(a, 2);
    ASSERT_TRUE(mBus->WaitUntilIdle(PATIENCE_MS));
    EXPECT_THAT(leaving.Headers(), ElementsAre(1u));
    EXPECT_TRUE(neighbour.Headers().empty());
    EXPECT_THAT(later.Headers(), ElementsAre(2u));
}

TEST_P(VirtualCan, StopReturnsOnlyWhenTheHandlerIsNotRunning)
{
    const Node a = mBus->Connect();
    const Node b = mBus->Connect();
    Gate entered;
    Gate leave;
    bool left = false; // guarded by what Stop promises
    FrameRecorder slow([&](CanMessage&) {
        entered.Open();
        leave.Pass();
        left = true;
    });
    b->Start(&slow);
    std::thread sender([&] { Send(a, 1); });
    ASSERT_TRUE(entered.Pass());
    std::thread opener([&] { leave.Open(); });
    b->Stop(&slow);
    EXPECT_TRUE(left);
    sender.join();
    opener.join();
}

TEST_P(VirtualCan, AHandlerIsCalledOnceHoweverOftenItWasStarted)
{
    const Node a = mBus->Connect();
    const Node b = mBus->Connect();
    FrameRecorder recorder;
    b->Start(&recorder);
    b->Start(&recorder);
    Send(a, 1);
    ASSERT_TRUE(mBus->WaitUntilIdle(PATIENCE_MS));
    b->Stop(&recorder);
    b->Stop(&recorder);
    Send(a, 2);
    ASSERT_TRUE(mBus->WaitUntilIdle(PATIENCE_MS));
    EXPECT_THAT(recorder.Headers(), ElementsAre(1u));
}

TEST_P(VirtualCan, CountsFramesThatNobodyHears)
{
    const Node a = mBus->Connect();
    const Node b = mBus->Connect();
    Send(a, 1);
    Send(b, 2);
    ExpectBalance(*mBus);
    EXPECT_EQ(mBus->GetCounters().unheard, 2u);
    EXPECT_EQ(mBus->GetCounters().delivered, 0u);
}

TEST_P(VirtualCan, ANodeMayGoFromInsideItsOwnHandler)
{
    const Node a = mBus->Connect();
    Node b = mBus->Connect();
    Gate gone;
    FrameRecorder closing([&](CanMessage&) {
        b.reset();
        gone.Open();
    });
    b->Start(&closing);
    Send(a, 1);
    ASSERT_TRUE(gone.Pass());
    Send(a, 2);
    EXPECT_THAT(closing.Headers(), ElementsAre(1u));
    ExpectBalance(*mBus);
}

TEST_P(VirtualCan, LosesDuplicatesAndDisturbsAsOftenAsTold)
{
    const Node a = mBus->Connect();
    const Node b = mBus->Connect();
    FrameRecorder recorder;
    b->Start(&recorder);
    VirtualCanBus::Faults faults;
    faults.loss = 0.25;
    faults.duplication = 0.5;
    faults.errorFrame = 0.125;
    mBus->SetFaults(faults);
    for (unsigned int i = 0; i < 4000; ++i)
        Send(a, i);
    ExpectBalance(*mBus);
    const auto counters = mBus->GetCounters();
    EXPECT_NEAR(static_cast<double>(counters.lost), 1000, 120);
    EXPECT_NEAR(static_cast<double>(counters.duplicated), 1500, 150);
    EXPECT_NEAR(static_cast<double>(counters.errorFrames), 500, 100);
    EXPECT_EQ(recorder.Frames().size(),
              4000 - counters.lost + counters.duplicated + counters.errorFrames);
}

TEST_P(VirtualCan, TheSameSeedGivesTheSameFaults)
{
    std::vector<std::vector<unsigned int>> runs;
    for (const unsigned long long seed : {7ull, 7ull, 8ull}) {
        const auto bus = VirtualCanBus::Create(With(GetParam()));
        const Node a = bus->Connect();
        const Node b = bus->Connect();
        FrameRecorder recorder;
        b->Start(&recorder);
        VirtualCanBus::Faults faults;
        faults.loss = 0.5;
        faults.seed = seed;
        bus->SetFaults(faults);
        for (unsigned int i = 0; i < 100; ++i)
            Send(a, i);
        ASSERT_TRUE(bus->WaitUntilIdle(PATIENCE_MS));
        runs.push_back(recorder.Headers());
        b->Stop(&recorder);
    }
    EXPECT_EQ(runs[0], runs[1]);
    EXPECT_NE(runs[0], runs[2]);
}

TEST_P(VirtualCan, ErrorFramesCarryTheClassOfTheKernel)
{
    const Node a = mBus->Connect();
    const Node b = mBus->Connect();
    FrameRecorder recorder;
    b->Start(&recorder);
    VirtualCanBus::Faults faults;
    faults.errorFrame = 1;
    mBus->SetFaults(faults);
    Send(a, 1);
    ASSERT_TRUE(mBus->WaitUntilIdle(PATIENCE_MS));
    ASSERT_EQ(recorder.Frames().size(), 2u);
    EXPECT_EQ(recorder.Frames()[0].ToString(), "20000080#0000000000000000");
    EXPECT_EQ(recorder.Frames()[1].ToString(), "00000001#");
}

TEST_P(VirtualCan, ANodeThatIsBusOffNeitherSendsNorReceives)
{
    const Node a = mBus->Connect();
    const Node b = mBus->Connect();
    FrameRecorder recorder;
    b->Start(&recorder);
    b->SetBusOff(true);
    EXPECT_THAT(SendFailure(b), HasSubstr("bus-off"));
    Send(a, 1);
    b->SetBusOff(false);
    Send(a, 2);
    Send(b, 3);
    ExpectBalance(*mBus);
    ASSERT_EQ(recorder.Frames().size(), 2u);
    EXPECT_EQ(recorder.Frames()[0].ToString(), "20000040#0000000000000000");
    EXPECT_EQ(recorder.Frames()[1].ToString(), "00000002#");
    EXPECT_EQ(mBus->GetCounters().lost, 1u);
}

TEST_P(VirtualCan, DelaysFramesAndKeepsTheirOrder)
{
    const Node a = mBus->Connect();
    const Node b = mBus->Connect();
    FrameRecorder recorder;
    b->Start(&recorder);
    VirtualCanBus::Faults faults;
    faults.delay = 30;
    mBus->SetFaults(faults);
    const auto start = std::chrono::steady_clock::now();
    Send(a, 1);
    Send(a, 2);
    ASSERT_TRUE(mBus->WaitUntilIdle(PATIENCE_MS));
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(30));
    EXPECT_THAT(recorder.Headers(), ElementsAre(1u, 2u));
}

TEST_P(VirtualCan, TheLedgerBalancesUnderLoadFromFourThreads)
{
    VirtualCanBus::Faults faults;
    faults.loss = 0.1;
    faults.duplication = 0.1;
    faults.errorFrame = 0.1;
    mBus->SetFaults(faults);
    FrameRecorder recorder([count = 0](CanMessage&) mutable {
        if (++count % 10 == 0)
            throw std::runtime_error("now and then");
    });
    const Node deaf = mBus->Connect();
    const Node listening = mBus->Connect();
    listening->Start(&recorder);
    std::vector<std::thread> senders;
    for (int sender = 0; sender < 4; ++sender) {
        senders.emplace_back([node = mBus->Connect()] {
            for (unsigned int i = 0; i < 2500; ++i)
                Send(node, i);
        });
    }
    for (auto& sender : senders)
        sender.join();
    ExpectBalance(*mBus);
    const auto counters = mBus->GetCounters();
    EXPECT_EQ(counters.sent, 10000u);
    EXPECT_EQ(counters.onBus, 10000u);
    EXPECT_EQ(counters.delivered, recorder.Frames().size());
    EXPECT_EQ(counters.handlerExceptions, recorder.Frames().size() / 10);
}

// Queues.

TEST(ThreadedVirtualCan, AFullQueueHoldsTheSenderUpAndThenRefusesTheFrame)
{
    VirtualCanBus::Options options;
    options.queueSize = 2;
    options.sendTimeout = 20;
    const auto bus = VirtualCanBus::Create(options);
    const Node a = bus->Connect();
    const Node b = bus->Connect();
    const Node c = bus->Connect();
    Gate entered;
    Gate leave;
    FrameRecorder slow([&](CanMessage&) {
        entered.Open();
        leave.Pass();
    });
    FrameRecorder quick;
    b->Start(&slow);
    c->Start(&quick);
    Send(a, 1);
    ASSERT_TRUE(entered.Pass());
    Send(a, 2);
    Send(a, 3);
    EXPECT_EQ(SendFailure(a),
              "a frame was not sent: the virtual CAN bus waited 20 ms for the receive queue of "
              "another node; let handlers return sooner, or raise queueSize or sendTimeout");
    leave.Open();
    ExpectBalance(*bus);
    EXPECT_THAT(slow.Headers(), ElementsAre(1u, 2u, 3u));
    EXPECT_THAT(quick.Headers(), ElementsAre(1u, 2u, 3u));
    EXPECT_EQ(bus->GetCounters().sendTimeouts, 1u);
}

TEST(ThreadedVirtualCan, AWaitingSenderGoesOnAsSoonAsThereIsRoom)
{
    VirtualCanBus::Options options;
    options.queueSize = 1;
    options.sendTimeout = PATIENCE_MS;
    const auto bus = VirtualCanBus::Create(options);
    const Node a = bus->Connect();
    const Node b = bus->Connect();
    FrameRecorder recorder;
    b->Start(&recorder);
    for (unsigned int i = 0; i < 1000; ++i)
        Send(a, i);
    ExpectBalance(*bus);
    EXPECT_EQ(recorder.Frames().size(), 1000u);
    EXPECT_EQ(bus->GetCounters().sendTimeouts, 0u);
}

TEST(InlineVirtualCan, RunsHandlersOnTheSendersThreadBeforeSendReturns)
{
    const auto bus = VirtualCanBus::Create(With(VirtualCanBus::DELIVERY_INLINE));
    const Node a = bus->Connect();
    const Node b = bus->Connect();
    std::thread::id ranOn;
    FrameRecorder recorder([&](CanMessage&) { ranOn = std::this_thread::get_id(); });
    b->Start(&recorder);
    Send(a, 1);
    EXPECT_EQ(ranOn, std::this_thread::get_id());
}

TEST(InlineVirtualCan, HandlersThatAnswerEachOtherForEverAreStopped)
{
    VirtualCanBus::Options options = With(VirtualCanBus::DELIVERY_INLINE);
    options.queueSize = 4;
    const auto bus = VirtualCanBus::Create(options);
    const Node a = bus->Connect();
    const Node b = bus->Connect();
    std::string refusal;
    FrameRecorder flooding([&](CanMessage&) {
        for (unsigned int i = 0; i < 4; ++i)
            Send(b, i);
        refusal = SendFailure(b);
    });
    b->Start(&flooding);
    Send(a, 1);
    EXPECT_EQ(refusal, "a frame was not sent: handlers have sent 4 frames while one was delivered; "
                       "let them send less, or raise queueSize");
    ExpectBalance(*bus);
}

// Time on the bus.

TEST(PacedVirtualCan, FramesTakeTheirTime)
{
    VirtualCanBus::Options options;
    options.bitRate = 125000;
    const auto bus = VirtualCanBus::Create(options);
    const Node a = bus->Connect();
    const Node b = bus->Connect();
    FrameRecorder recorder;
    b->Start(&recorder);
    const auto start = std::chrono::steady_clock::now();
    for (unsigned int i = 0; i < 50; ++i)
        Send(a, i, {1, 2, 3, 4, 5, 6, 7, 8});
    ExpectBalance(*bus);
    // 131 bits a frame at 8 us a bit: 1,048 us each.
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::microseconds(50 * 1048));
    EXPECT_EQ(recorder.Frames().size(), 50u);
}

TEST(PacedVirtualCan, TheLowestIdentifierGoesFirst)
{
    VirtualCanBus::Options options;
    options.bitRate = 1000000;
    options.queueSize = 2;
    const auto bus = VirtualCanBus::Create(options);
    Gate queued;
    FrameRecorder recorder([&](CanMessage&) { queued.Pass(); });
    const Node listening = bus->Connect();
    listening->Start(&recorder);
    std::vector<Node> nodes;
    for (int i = 0; i < 4; ++i)
        nodes.push_back(bus->Connect());
    // One frame in the handler, two in its queue, and one that holds the bus until there is room.
    for (int i = 0; i < 4; ++i)
        Send(nodes[0], 0);
    Send(nodes[0], 0x1FFFFFFF);
    Send(nodes[0], 0x00000500);
    Send(nodes[1], 0x00000400);
    Send(nodes[1], 0x00000100);
    Send(nodes[2], 0x00000200);
    CanMessage elevenBits;
    elevenBits.SetHeader(0x001);
    nodes[3]->Send(elevenBits);
    queued.Open();
    ExpectBalance(*bus);
    EXPECT_THAT(recorder.Headers(),
                ElementsAre(0u, 0u, 0u, 0u, 0x200u, 0x400u, 0x100u, 0x1u, 0x1FFFFFFFu, 0x500u));
    listening->Stop(&recorder);
}

TEST(PacedVirtualCan, CountsFramesOfANodeThatWentBeforeTheirTurn)
{
    VirtualCanBus::Options options;
    options.bitRate = 10000;
    const auto bus = VirtualCanBus::Create(options);
    Node a = bus->Connect();
    for (unsigned int i = 0; i < 10; ++i)
        Send(a, i);
    a.reset();
    ExpectBalance(*bus);
    EXPECT_GE(bus->GetCounters().unsent, 1u);
    EXPECT_EQ(bus->GetCounters().sent, 10u);
}

TEST(PacedVirtualCan, ABusMayGoWithFramesWaiting)
{
    VirtualCanBus::Options options;
    options.bitRate = 1;
    const Node a = VirtualCanBus::Create(options)->Connect();
    Send(a, 1);
    Send(a, 2);
}

TEST(VirtualCanOptions, ContradictionsAreRefusedWithTheWayOut)
{
    VirtualCanBus::Options none;
    none.queueSize = 0;
    EXPECT_THROW(VirtualCanBus::Create(none), CanException);
    VirtualCanBus::Options paced = With(VirtualCanBus::DELIVERY_INLINE);
    paced.bitRate = 500000;
    try {
        VirtualCanBus::Create(paced);
        FAIL();
    } catch (const CanException& exception) {
        EXPECT_THAT(exception.message(), HasSubstr("needs threaded delivery"));
    }
}

// Buses by name.

TEST(NamedVirtualCan, IsSharedByNameAndGoesWithItsLastUser)
{
    FrameRecorder recorder;
    {
        const Node a = VirtualCanBus::Open("shared")->Connect();
        const Node b = VirtualCanBus::Open("shared")->Connect();
        const Node other = VirtualCanBus::Open("other")->Connect();
        b->Start(&recorder);
        Send(a, 1);
        Send(other, 2);
        const auto bus = VirtualCanBus::Open("shared");
        ExpectBalance(*bus);
        EXPECT_EQ(bus->GetCounters().sent, 1u);
    }
    EXPECT_THAT(recorder.Headers(), ElementsAre(1u));
    EXPECT_EQ(VirtualCanBus::Open("shared")->GetCounters().sent, 0u);
}

TEST(NamedVirtualCan, AFailedOpenLeavesTheNameFree)
{
    VirtualCanBus::Options bad;
    bad.queueSize = 0;
    EXPECT_THROW(VirtualCanBus::Open("name", bad), CanException);
    EXPECT_NO_THROW(VirtualCanBus::Open("name"));
}

} // namespace
