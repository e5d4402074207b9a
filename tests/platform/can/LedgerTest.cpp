#include "support/CanFakes.h"
#include "support/LedgerText.h"
#include "support/TemporaryFolder.h"

#include <plexa_can/CanBus.h>
#include <plexa_can/CanException.h>
#include <plexa_can/LogReplayDispatcher.h>
#include <plexa_can/VirtualCanBus.h>

#include <gtest/gtest.h>

#include <stdexcept>
#include <thread>

// What each connection says of itself, counted by hand. The ledger of a CAN interface is with its
// other tests.

namespace
{

using namespace tarn;
using namespace tarn::test;

constexpr unsigned int PATIENCE_MS = 20000;

using Node = std::tr1::shared_ptr<VirtualCanNode>;

void Send(iCanBus& bus, unsigned int count)
{
    CanMessage frame = ExtendedFrame(1);
    for (unsigned int i = 0; i < count; ++i)
        bus.Send(frame);
}

void SendInVain(iCanBus& bus, unsigned int count)
{
    CanMessage frame = ExtendedFrame(1);
    for (unsigned int i = 0; i < count; ++i)
        EXPECT_THROW(bus.Send(frame), CanException);
}

class VirtualLedger : public testing::TestWithParam<VirtualCanBus::tDelivery>
{
protected:
    static VirtualCanBus::Options Options()
    {
        VirtualCanBus::Options options;
        options.delivery = GetParam();
        return options;
    }

    std::string LedgerOf(const Node& node) const
    {
        EXPECT_TRUE(mBus->WaitUntilIdle(PATIENCE_MS));
        return LedgerText(node->GetCounters());
    }

    void Suffer(double loss, double duplication, double errorFrame)
    {
        VirtualCanBus::Faults faults;
        faults.loss = loss;
        faults.duplication = duplication;
        faults.errorFrame = errorFrame;
        mBus->SetFaults(faults);
    }

    std::tr1::shared_ptr<VirtualCanBus> mBus = VirtualCanBus::Create(Options());
    FrameRecorder mHandler;
    Node mSender = mBus->Connect();
    Node mReceiver = mBus->Connect();
};

INSTANTIATE_TEST_SUITE_P(Delivery, VirtualLedger,
                         testing::Values(VirtualCanBus::DELIVERY_THREADED,
                                         VirtualCanBus::DELIVERY_INLINE),
                         [](const auto& bus) {
                             return bus.param == VirtualCanBus::DELIVERY_INLINE ? "Inline"
                                                                                : "Threaded";
                         });

TEST_P(VirtualLedger, TellsTheNodesApart)
{
    const Node deaf = mBus->Connect();
    mReceiver->Start(&mHandler);
    Send(*mSender, 5);
    Send(*mReceiver, 2);
    EXPECT_EQ(LedgerOf(mSender), "received 2, unheard 2, sent 5");
    EXPECT_EQ(LedgerOf(mReceiver), "received 5, delivered 5, sent 2");
    EXPECT_EQ(LedgerOf(deaf), "received 7, unheard 7");
    mReceiver->Stop(&mHandler);
    Send(*mSender, 1);
    EXPECT_EQ(LedgerOf(mReceiver), "received 6, delivered 5, unheard 1, sent 2");
}

TEST_P(VirtualLedger, AccountsForWhatFaultsTookAndAdded)
{
    mReceiver->Start(&mHandler);
    Suffer(1, 0, 0);
    Send(*mSender, 3);
    EXPECT_EQ(LedgerOf(mReceiver), "lost 3");
    Suffer(0, 1, 0);
    Send(*mSender, 2);
    EXPECT_EQ(LedgerOf(mReceiver), "received 4, delivered 4, lost 3, duplicated 2");
    Suffer(0, 0, 1);
    Send(*mSender, 2);
    EXPECT_EQ(LedgerOf(mReceiver), "received 8, delivered 8, errorFrames 2, lost 3, duplicated 2");
    EXPECT_EQ(LedgerOf(mSender), "sent 7");
}

TEST_P(VirtualLedger, BusOffLosesFramesAndFailsToSend)
{
    mReceiver->Start(&mHandler);
    mReceiver->SetBusOff(true);
    SendInVain(*mReceiver, 2);
    Send(*mSender, 3);
    mReceiver->SetBusOff(false);
    Send(*mReceiver, 1);
    EXPECT_EQ(LedgerOf(mReceiver),
              "received 1, delivered 1, errorFrames 1, lost 3, sent 1, sendFailures 2");
}

TEST_P(VirtualLedger, CountsTheExceptionsOfEachHandlerAndTheFrameOnce)
{
    FrameRecorder throwing([](CanMessage&) { throw std::runtime_error("broken pump"); });
    FrameRecorder throwingToo([](CanMessage&) { throw 42; });
    mReceiver->Start(&throwing);
    mReceiver->Start(&throwingToo);
    mReceiver->Start(&mHandler);
    Send(*mSender, 3);
    EXPECT_EQ(LedgerOf(mReceiver), "received 3, delivered 3, handlerExceptions 6");
    EXPECT_EQ(mBus->GetCounters().handlerExceptions, 6u);
    mReceiver->Stop(&throwing);
    mReceiver->Stop(&throwingToo);
}

TEST_P(VirtualLedger, TheBusKeepsTheExceptionThatANodeThrewAsItWent)
{
    Gate gone;
    FrameRecorder closing([&](CanMessage&) {
        mReceiver.reset();
        gone.Open();
        throw std::runtime_error("on the way out");
    });
    mReceiver->Start(&closing);
    Send(*mSender, 1);
    ASSERT_TRUE(gone.Pass());
    ASSERT_TRUE(mBus->WaitUntilIdle(PATIENCE_MS));
    EXPECT_EQ(mBus->GetCounters().handlerExceptions, 1u);
    EXPECT_EQ(mBus->GetCounters().delivered, 1u);
}

TEST(VirtualLedgerOfQueues, ASenderThatGaveUpOnAFullQueueHasWaitedOnceAndFailedOnce)
{
    VirtualCanBus::Options options;
    options.queueSize = 2;
    options.sendTimeout = 10;
    const auto bus = VirtualCanBus::Create(options);
    const Node sender = bus->Connect();
    const Node receiver = bus->Connect();
    Gate entered;
    Gate leave;
    FrameRecorder slow([&](CanMessage&) {
        entered.Open();
        leave.Pass();
    });
    receiver->Start(&slow);
    Send(*sender, 1);
    ASSERT_TRUE(entered.Pass());
    Send(*sender, 2);
    SendInVain(*sender, 1);
    EXPECT_EQ(LedgerText(sender->GetCounters()), "sent 3, sendRetries 1, sendFailures 1");
    EXPECT_EQ(LedgerText(receiver->GetCounters()), "received 3") << "none has come out yet";
    leave.Open();
    ASSERT_TRUE(bus->WaitUntilIdle(PATIENCE_MS));
    EXPECT_EQ(LedgerText(receiver->GetCounters()), "received 3, delivered 3");
}

TEST(VirtualLedgerOfQueues, WhatWaitedForAHandlerThatIsStoppedIsUnheard)
{
    const auto bus = VirtualCanBus::Create();
    const Node sender = bus->Connect();
    const Node receiver = bus->Connect();
    Gate entered;
    Gate leave;
    FrameRecorder slow([&](CanMessage&) {
        entered.Open();
        leave.Pass();
        receiver->Stop(&slow);
    });
    receiver->Start(&slow);
    Send(*sender, 1);
    ASSERT_TRUE(entered.Pass());
    Send(*sender, 4);
    leave.Open();
    ASSERT_TRUE(bus->WaitUntilIdle(PATIENCE_MS));
    EXPECT_EQ(LedgerText(receiver->GetCounters()), "received 5, delivered 1, unheard 4");
}

TEST(VirtualLedgerOfQueues, HandlersThatFloodAnInlineBusFail)
{
    VirtualCanBus::Options options;
    options.delivery = VirtualCanBus::DELIVERY_INLINE;
    options.queueSize = 4;
    const auto bus = VirtualCanBus::Create(options);
    const Node sender = bus->Connect();
    const Node receiver = bus->Connect();
    FrameRecorder flooding([&](CanMessage&) {
        Send(*receiver, 4);
        SendInVain(*receiver, 2);
    });
    receiver->Start(&flooding);
    Send(*sender, 1);
    EXPECT_EQ(LedgerText(receiver->GetCounters()),
              "received 1, delivered 1, sent 4, sendFailures 2");
    EXPECT_EQ(LedgerText(sender->GetCounters()), "received 4, unheard 4, sent 1");
}

// A log.

constexpr const char* LOG = "# remark\n"
                            "123#\n"
                            "rubbish\n"
                            "123##1AA\n"
                            "20000004#00\n"
                            "456#R\n";

std::tr1::shared_ptr<LogReplayDispatcher> Open(const std::string& name)
{
    return std::tr1::dynamic_pointer_cast<LogReplayDispatcher>(CanBus::Open(name));
}

TEST(LogLedger, CountsTheLinesOfTheLog)
{
    const TemporaryFolder folder;
    const auto log = Open("log:" + folder.File("a.log", LOG) + "?speed=max");
    FrameRecorder throwing([](CanMessage& frame) {
        if (frame.HasError())
            throw std::runtime_error("broken pump");
    });
    FrameRecorder other;
    EXPECT_EQ(LedgerText(log->GetCounters()), "");
    log->Start(&throwing);
    log->Start(&other);
    ASSERT_TRUE(log->WaitUntilFinished(PATIENCE_MS));
    EXPECT_EQ(LedgerText(log->GetCounters()),
              "received 5, delivered 3, filtered 2, errorFrames 1, handlerExceptions 1");
}

TEST(LogLedger, AFrameThatWaitsForAHandlerHasNotComeIn)
{
    const TemporaryFolder folder;
    const auto log = Open("log:" + folder.File("a.log", LOG) + "?speed=max");
    FrameRecorder leaving([&](CanMessage&) { log->Stop(&leaving); });
    log->Start(&leaving);
    ASSERT_TRUE(leaving.AwaitCount(1));
    EXPECT_FALSE(log->WaitUntilFinished(20));
    EXPECT_EQ(LedgerText(log->GetCounters()), "received 3, delivered 1, filtered 2");
}

TEST(LogLedger, CountsWhatItRecordedAndWhatItCouldNot)
{
    const TemporaryFolder folder;
    const std::string log = folder.File("a.log", LOG);
    const auto recorded = Open("log:" + log + "?record=" + folder.PathOf("sent.log"));
    Send(*recorded, 2);
    EXPECT_EQ(LedgerText(recorded->GetCounters()), "sent 2");
    const auto unrecorded = Open("log:" + log);
    SendInVain(*unrecorded, 3);
    EXPECT_EQ(LedgerText(unrecorded->GetCounters()), "sendFailures 3");
    const auto full = Open("log:" + log + "?record=/dev/full");
    SendInVain(*full, 1);
    EXPECT_EQ(LedgerText(full->GetCounters()), "sendFailures 1");
}

} // namespace
