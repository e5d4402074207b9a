#include "FakeCanSystem.h"
#include "LinkAnswer.h"
#include "SocketCanCore.h"
#include "support/CanFakes.h"
#include "support/LedgerText.h"
#include "support/LogCapture.h"
#include "support/ThrowingChannel.h"

#include <plexa_can/CanException.h>
#include <plexa_can/SocketCanDispatcher.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <linux/can/error.h>
#include <linux/can/raw.h>
#include <stdexcept>
#include <thread>

namespace
{

using namespace tarn;
using namespace tarn::test;
using testing::ElementsAre;
using testing::HasSubstr;

using Core = SocketCanDispatcher::Core;
using Incoming = FakeCanSystem::Incoming;

Incoming FrameOf(unsigned int word, const std::vector<unsigned char>& data = {})
{
    Incoming incoming;
    incoming.frame.can_id = word;
    incoming.frame.can_dlc = static_cast<unsigned char>(data.size());
    std::copy(data.begin(), data.end(), incoming.frame.data);
    return incoming;
}

Incoming Error(int error)
{
    Incoming incoming;
    incoming.error = error;
    return incoming;
}

class StateRecorder : public iCanBusStateListener
{
public:
    ~StateRecorder() noexcept override {}

    void OnBusState(tCanBusState state) override
    {
        const std::lock_guard<std::mutex> lock(mMutex);
        mStates.push_back(state);
        mChanged.notify_all();
        if (mThrows)
            throw std::runtime_error("listener");
    }

    bool Await(const std::vector<tCanBusState>& states)
    {
        std::unique_lock<std::mutex> lock(mMutex);
        return mChanged.wait_for(lock, PATIENCE, [&] { return mStates == states; });
    }

    bool mThrows = false;

private:
    std::mutex mMutex;
    std::condition_variable mChanged;
    std::vector<tCanBusState> mStates;
};

class SocketCan : public testing::Test
{
protected:
    ~SocketCan() override
    {
        if (mCore)
            mCore->Close();
    }

    void Open(const SocketCanDispatcher::Options& options = {})
    {
        mCore = std::make_shared<Core>(mSystem, "can0", options);
    }

    /// An open dispatcher whose frames reach mFrames.
    void OpenAndStart(const SocketCanDispatcher::Options& options = {})
    {
        Open(options);
        mCore->Start(&mFrames);
    }

    std::string OpenFailure(const std::string& interface = "can0")
    {
        try {
            mCore = std::make_shared<Core>(mSystem, interface, SocketCanDispatcher::Options());
        } catch (const CanException& exception) {
            return exception.message();
        }
        return "opened";
    }

    std::string SendFailure(int* code = nullptr)
    {
        try {
            mCore->Send(ExtendedFrame(1));
        } catch (const CanException& exception) {
            if (code != nullptr)
                *code = exception.code();
            return exception.message();
        }
        return "sent";
    }

    FakeCanSystem mSystem;
    FrameRecorder mFrames;
    StateRecorder mStates;
    std::shared_ptr<Core> mCore;
};

// Opening.

TEST_F(SocketCan, ATypingErrorIsAnsweredWithTheInterfacesThereAre)
{
    EXPECT_EQ(OpenFailure("can7"),
              "cannot open the CAN interface \"can7\": no such interface; this "
              "machine has: can0, vcan0");
    mSystem.mInterfaces.clear();
    EXPECT_THAT(OpenFailure("can7"), HasSubstr("this machine has no CAN interface; \"ip link add "
                                               "dev vcan0 type vcan\" makes a virtual one"));
    EXPECT_THAT(OpenFailure(""), HasSubstr("an interface name has 1 to 15 characters"));
    EXPECT_THAT(OpenFailure("abcdefghijklmnop"), HasSubstr("1 to 15 characters"));
}

TEST_F(SocketCan, AKernelWithoutCanIsNamed)
{
    mSystem.FailNext("socket", {EAFNOSUPPORT});
    EXPECT_EQ(OpenFailure(),
              "cannot open the CAN interface \"can0\": this kernel has no CAN support (AF_CAN): "
              "Address family not supported by protocol; load it with \"modprobe can_raw\", or run "
              "a kernel that has it");
}

TEST_F(SocketCan, EveryStepOfOpeningSaysWhatFailed)
{
    mSystem.FailNext("socket", {EPERM});
    EXPECT_THAT(OpenFailure(), HasSubstr("not permitted: Operation not permitted"));
    mSystem.FailNext("socket", {EMFILE});
    EXPECT_THAT(OpenFailure(), HasSubstr("socket: Too many open files"));
    mSystem.FailNext("bind", {ENODEV});
    EXPECT_THAT(OpenFailure(), HasSubstr("it is no CAN interface: bind: No such device; this "
                                         "machine has: can0, vcan0"));
    mSystem.FailNext("flags", {ENODEV});
    EXPECT_THAT(OpenFailure(), HasSubstr("reading its flags: No such device"));
    mSystem.FailNext("option " + std::to_string(CAN_RAW_FILTER), {EINVAL});
    EXPECT_THAT(OpenFailure(), HasSubstr("setting the filters (CAN_RAW_FILTER): Invalid argument"));
    mSystem.FailNext("option " + std::to_string(SO_RXQ_OVFL), {ENOPROTOOPT});
    EXPECT_THAT(OpenFailure(), HasSubstr("SO_RXQ_OVFL"));
    mSystem.FailNext("socket", {0, EACCES});
    EXPECT_THAT(OpenFailure(), HasSubstr("cannot watch network interfaces (netlink): Permission"));
    mSystem.FailNext("event", {EMFILE});
    EXPECT_THAT(OpenFailure(),
                HasSubstr("\"can0\": eventfd: Too many open files; raise the limit"));
    mSystem.FailNext("wait set", {EMFILE});
    EXPECT_THAT(OpenFailure(), HasSubstr("\"can0\": epoll_create1: Too many open files"));
    mSystem.FailNext("watch", {0, ENOSPC});
    EXPECT_THAT(OpenFailure(), HasSubstr("\"can0\": epoll_ctl: No space left on device"));
    EXPECT_EQ(mSystem.OpenDescriptors(), 0) << "a failure leaves nothing open";
    EXPECT_EQ(OpenFailure(), "opened");
}

TEST_F(SocketCan, ClosesAllItHasOpenedEvenWhereClosingFails)
{
    OpenAndStart();
    mSystem.Receive(FrameOf(CAN_EFF_FLAG | 1));
    ASSERT_TRUE(mFrames.AwaitCount(1)); // the thread has looked at the link, on a socket of its own
    EXPECT_EQ(mSystem.OpenDescriptors(), 4);
    mSystem.FailNext("close", {EINTR, EIO, EBADF});
    mCore->Close();
    mCore.reset();
    EXPECT_EQ(mSystem.OpenDescriptors(), 0);
}

TEST_F(SocketCan, NamesItsThreadAfterTheInterface)
{
    OpenAndStart();
    mSystem.Receive(FrameOf(CAN_EFF_FLAG | 1));
    ASSERT_TRUE(mFrames.AwaitCount(1));
    EXPECT_EQ(mSystem.ThreadName(), "can0");
}

TEST_F(SocketCan, DoesWithoutTheNameOfItsThread)
{
    mSystem.FailNext("name", {EPERM});
    OpenAndStart();
    mSystem.Receive(FrameOf(CAN_EFF_FLAG | 1));
    EXPECT_TRUE(mFrames.AwaitCount(1));
    EXPECT_EQ(mSystem.ThreadName(), "");
}

TEST_F(SocketCan, EndsEvenWhereTheWakeUpFailsAtFirst)
{
    OpenAndStart();
    mSystem.FailNext("signal", {EINTR, EIO});
    mCore->Close(); // would never return
    EXPECT_TRUE(mSystem.AwaitNoFailures("signal"));
}

TEST_F(SocketCan, AnInterfaceThatIsDownIsToldHowToSetUp)
{
    Open();
    mSystem.SetLink(7, false);
    try {
        const Core second(mSystem, "can0", {});
        FAIL();
    } catch (const CanException& exception) {
        EXPECT_THAT(exception.message(),
                    HasSubstr("\"can0\": it is down: Network is down; \"ip link set can0 up type "
                              "can bitrate 250000\""));
        EXPECT_EQ(exception.code(), ENETDOWN);
    }
}

// Receiving.

TEST_F(SocketCan, DeliversFramesWithTheirFlagsAndTheKernelsTime)
{
    OpenAndStart();
    Incoming stamped = FrameOf(CAN_EFF_FLAG | 0x0F800001, {0x20});
    stamped.stamp = {1609779922, 655421000};
    mSystem.Receive(stamped);
    stamped.hardwareStamp = {5, 7};
    mSystem.Receive(stamped);
    mSystem.Receive(FrameOf(0x123, {1, 2}));
    mSystem.Receive(FrameOf(CAN_EFF_FLAG | CAN_RTR_FLAG | 0x5));
    ASSERT_TRUE(mFrames.AwaitCount(4));
    const auto frames = mFrames.Frames();
    EXPECT_EQ(frames[0].ToString(), "0F800001#20");
    EXPECT_EQ(frames[0].GetTimeStamp(), 1609779922655421000ull);
    EXPECT_EQ(frames[1].GetTimeStamp(), 5000000007ull);
    EXPECT_EQ(frames[2].ToString(), "123#0102");
    EXPECT_EQ(frames[2].GetTimeStamp(), 0u);
    EXPECT_EQ(frames[3].ToString(), "00000005#R");
}

TEST_F(SocketCan, AsksForTheTimeOfTheHardwareAndOfTheKernel)
{
    Open();
    // SOF_TIMESTAMPING_RX_HARDWARE 4, _RX_SOFTWARE 8, _SOFTWARE 0x10, _RAW_HARDWARE 0x40
    const int all = 0x5C;
    EXPECT_EQ(mSystem.OptionValue(SOL_SOCKET, SO_TIMESTAMPING),
              std::string(reinterpret_cast<const char*>(&all), sizeof all));
    EXPECT_EQ(mSystem.OptionValue(SOL_SOCKET, SO_TIMESTAMPNS), "unset");
}

TEST_F(SocketCan, TakesTheKernelsTimeWhereThatOfTheHardwareIsRefused)
{
    mSystem.FailNext("option " + std::to_string(SO_TIMESTAMPING), {EINVAL});
    OpenAndStart();
    EXPECT_NE(mSystem.OptionValue(SOL_SOCKET, SO_TIMESTAMPNS), "unset");
    Incoming stamped = FrameOf(CAN_EFF_FLAG | 1);
    stamped.plainStamp = {1609779922, 655421001};
    mSystem.Receive(stamped);
    ASSERT_TRUE(mFrames.AwaitCount(1));
    EXPECT_EQ(mFrames.Frames()[0].GetTimeStamp(), 1609779922655421001ull);
}

TEST_F(SocketCan, DoesWithoutTimeWhereTheKernelTellsNone)
{
    mSystem.FailNext("option " + std::to_string(SO_TIMESTAMPING), {EINVAL});
    mSystem.FailNext("option " + std::to_string(SO_TIMESTAMPNS), {ENOPROTOOPT});
    OpenAndStart();
    mSystem.Receive(FrameOf(CAN_EFF_FLAG | 1));
    ASSERT_TRUE(mFrames.AwaitCount(1));
    EXPECT_EQ(mFrames.Frames()[0].GetTimeStamp(), 0u);
}

TEST_F(SocketCan, AsksForExtendedFramesAndErrorsOnlyWhileSomebodyListens)
{
    Open();
    EXPECT_EQ(mSystem.OptionValue(SOL_CAN_RAW, CAN_RAW_FILTER), "");
    mCore->Start(&mFrames);
    const can_filter extended = {CAN_EFF_FLAG, CAN_EFF_FLAG};
    EXPECT_EQ(mSystem.OptionValue(SOL_CAN_RAW, CAN_RAW_FILTER),
              std::string(reinterpret_cast<const char*>(&extended), sizeof extended));
    const can_err_mask_t all = 0x1FFFFFFF;
    EXPECT_EQ(mSystem.OptionValue(SOL_CAN_RAW, CAN_RAW_ERR_FILTER),
              std::string(reinterpret_cast<const char*>(&all), sizeof all));
    mCore->Stop(&mFrames);
    EXPECT_EQ(mSystem.OptionValue(SOL_CAN_RAW, CAN_RAW_FILTER), "");
}

TEST_F(SocketCan, CountsWhatIsNoClassicalFrameAsFiltered)
{
    OpenAndStart();
    Incoming odd = FrameOf(CAN_EFF_FLAG | 1);
    odd.size = CANFD_MTU;
    mSystem.Receive(odd);
    odd.size = 3;
    mSystem.Receive(odd);
    mSystem.Receive(FrameOf(CAN_EFF_FLAG | 2));
    ASSERT_TRUE(mFrames.AwaitCount(1));
    mCore->Close(); // the receive thread has done its accounts then
    const CanBusCounters counters = mCore->GetCounters();
    EXPECT_EQ(counters.received, 3u);
    EXPECT_EQ(counters.filtered, 2u);
    EXPECT_EQ(counters.delivered, 1u);
    EXPECT_THAT(mFrames.Headers(), ElementsAre(2u));
}

TEST_F(SocketCan, AFrameThatClaimsMoreThanEightBytesIsCutToEight)
{
    OpenAndStart();
    Incoming hostile = FrameOf(CAN_EFF_FLAG | 1);
    hostile.frame.can_dlc = 200;
    mSystem.Receive(hostile);
    ASSERT_TRUE(mFrames.AwaitCount(1));
    EXPECT_EQ(mFrames.Frames()[0].GetDataSize(), 8u);
}

TEST_F(SocketCan, GoesOnAfterInterruptionsAndErrors)
{
    mSystem.FailNext("wait", {EINTR, EINTR});
    OpenAndStart();
    for (const int error : {EINTR, EAGAIN, ENOBUFS, ENETDOWN, ENODEV, EIO})
        mSystem.Receive(Error(error));
    mSystem.Receive(FrameOf(CAN_EFF_FLAG | 9));
    ASSERT_TRUE(mFrames.AwaitCount(1));
    EXPECT_EQ(mCore->GetBusState(), CAN_BUS_ERROR_ACTIVE);
}

TEST_F(SocketCan, ReceivesOnWhereTheSystemFailsToWaitAndNeitherSpinsNorFillsTheLog)
{
    Poco::AutoPtr<LogCapture> capture(new LogCapture);
    Poco::Logger::get("SocketCanDispatcher").setChannel(capture);
    mSystem.FailAlways("wait", ENOMEM);
    OpenAndStart();
    mCore->AddStateListener(&mStates);
    for (unsigned int count = 1; count <= 3; ++count) {
        mSystem.Receive(FrameOf(CAN_EFF_FLAG | 9));
        ASSERT_TRUE(mFrames.AwaitCount(count));
    }
    mSystem.SetLink(7, false);
    EXPECT_TRUE(mStates.Await({CAN_BUS_DOWN}));
    mCore->Close();
    EXPECT_EQ(mSystem.Sleeps(), mSystem.Failures("wait"));
    EXPECT_EQ(capture->Take(), "3 SocketCanDispatcher The receive thread of can0 tries again every "
                               "10 ms: epoll_wait: Cannot allocate memory\n");
    Poco::Logger::get("SocketCanDispatcher").setChannel(nullptr);
}

TEST_F(SocketCan, AFailureToReadThatStaysIsToldOnceAndSleptOver)
{
    Poco::AutoPtr<LogCapture> capture(new LogCapture);
    Poco::Logger::get("SocketCanDispatcher").setChannel(capture);
    OpenAndStart();
    for (int i = 0; i < 50; ++i)
        mSystem.Receive(Error(EIO));
    mSystem.Receive(FrameOf(CAN_EFF_FLAG | 9));
    ASSERT_TRUE(mFrames.AwaitCount(1));
    mCore->Close();
    EXPECT_EQ(mSystem.Sleeps(), 50);
    EXPECT_EQ(capture->Take(), "3 SocketCanDispatcher The receive thread of can0 tries again every "
                               "10 ms: recvmmsg: Input/output error\n");
    Poco::Logger::get("SocketCanDispatcher").setChannel(nullptr);
}

TEST_F(SocketCan, ALogThatFailsStopsNothing)
{
    SocketCanDispatcher::Options options;
    options.realTimePriority = 50;
    mSystem.FailNext("priority", {EPERM});
    mSystem.FailNext("wait", {ENOMEM});
    const BrokenLog log("SocketCanDispatcher");
    FrameRecorder throwing([](CanMessage&) { throw std::runtime_error("handler"); });
    mStates.mThrows = true;
    Open(options);
    mCore->AddStateListener(&mStates);
    mCore->Start(&throwing);
    mCore->Start(&mFrames);
    mSystem.Receive(FrameOf(CAN_EFF_FLAG | 1));
    EXPECT_TRUE(mFrames.AwaitCount(1));
    mSystem.SetLink(7, false);
    EXPECT_TRUE(mStates.Await({CAN_BUS_DOWN}));
    mSystem.SetLink(7, true);
    EXPECT_TRUE(mStates.Await({CAN_BUS_DOWN, CAN_BUS_ERROR_ACTIVE}));
    mCore->Close(); // the receive thread has done its accounts then
    EXPECT_EQ(log.Calls(), 5) << "priority, poll, handler, and the listener twice";
}

TEST_F(SocketCan, AddsUpTheKernelsDropsAcrossTheWrapOfItsCounter)
{
    OpenAndStart();
    Incoming frame = FrameOf(CAN_EFF_FLAG | 1);
    frame.drops = 0x7FFFFFFF;
    mSystem.Receive(frame);
    ASSERT_TRUE(mFrames.AwaitCount(1));
    frame.drops = 0xFFFFFFF0;
    mSystem.Receive(frame);
    ASSERT_TRUE(mFrames.AwaitCount(2));
    frame.drops = 0x10;
    mSystem.Receive(frame);
    ASSERT_TRUE(mFrames.AwaitCount(3));
    mCore->Close(); // the receive thread has done its accounts then
    EXPECT_EQ(mCore->GetCounters().droppedByKernel, 0x100000010ull);
}

TEST_F(SocketCan, AnOlderCountOfDropsTakesNothingBack)
{
    mSystem.mTellsDrops = true;
    mSystem.mMemoryInfoDrops = 100;
    OpenAndStart();
    EXPECT_EQ(mCore->GetCounters().droppedByKernel, 100u);
    Incoming frame = FrameOf(CAN_EFF_FLAG | 1);
    frame.drops = 40;
    mSystem.Receive(frame);
    ASSERT_TRUE(mFrames.AwaitCount(1));
    mSystem.mMemoryInfoDrops = 120;
    mCore->Close(); // the receive thread has done its accounts then
    EXPECT_EQ(mCore->GetCounters().droppedByKernel, 120u);
}

TEST_F(SocketCan, AnExceptionOfAHandlerStopsNothing)
{
    FrameRecorder throwing([](CanMessage&) { throw std::runtime_error("handler"); });
    OpenAndStart();
    mCore->Start(&throwing);
    mSystem.Receive(FrameOf(CAN_EFF_FLAG | 1));
    mSystem.Receive(FrameOf(CAN_EFF_FLAG | 2));
    ASSERT_TRUE(throwing.AwaitCount(2));
    ASSERT_TRUE(mFrames.AwaitCount(2));
    mCore->Close(); // the receive thread has done its accounts then
    EXPECT_EQ(mCore->GetCounters().handlerExceptions, 2u);
}

TEST_F(SocketCan, WhatAHandlerHasGotIsCounted)
{
    std::string ledger;
    FrameRecorder reader([&](CanMessage&) { ledger = LedgerText(mCore->GetCounters()); });
    OpenAndStart();
    mCore->Stop(&mFrames);
    mCore->Start(&reader);
    mSystem.Receive(FrameOf(CAN_EFF_FLAG | 1));
    ASSERT_TRUE(reader.AwaitCount(1));
    mCore->Stop(&reader);
    EXPECT_EQ(ledger, "received 1, delivered 1");
    EXPECT_EQ(LedgerText(mCore->GetCounters()), "received 1, delivered 1");
}

TEST_F(SocketCan, WhatCameBeforeAHandlerIsForNobody)
{
    Incoming flexible = FrameOf(CAN_EFF_FLAG | 2);
    flexible.size = CANFD_MTU;
    Gate entered;
    Gate leave;
    Open();
    FrameRecorder slow([&](CanMessage&) {
        entered.Open();
        leave.Pass();
        mCore->Stop(&slow);
        mCore->Start(&mFrames);
        mSystem.Receive(FrameOf(CAN_EFF_FLAG | 100));
    });
    mCore->Start(&slow);
    for (unsigned int header = 1; header <= 40; ++header) // more than a batch
        mSystem.Receive(FrameOf(CAN_EFF_FLAG | header));
    mSystem.Receive(FrameOf(CAN_ERR_FLAG | CAN_ERR_ACK));
    mSystem.Receive(flexible);
    ASSERT_TRUE(entered.Pass());
    leave.Open();
    ASSERT_TRUE(mFrames.AwaitCount(1));
    mCore->Close(); // the receive thread has done its accounts then
    EXPECT_THAT(mFrames.Headers(), ElementsAre(100u));
    EXPECT_EQ(LedgerText(mCore->GetCounters()),
              "received 43, delivered 2, unheard 40, filtered 1, errorFrames 1");
}

TEST_F(SocketCan, AccountsForEveryFrame)
{
    SocketCanDispatcher::Options options;
    options.sendTimeout = 1;
    OpenAndStart(options);
    FrameRecorder throwing([](CanMessage&) { throw std::runtime_error("handler"); });
    mCore->Start(&throwing);
    Incoming flexible = FrameOf(CAN_EFF_FLAG | 1);
    flexible.size = CANFD_MTU;
    Incoming last = FrameOf(CAN_EFF_FLAG | 2);
    last.drops = 7;
    mSystem.Receive(flexible);
    mSystem.Receive(FrameOf(CAN_ERR_FLAG | CAN_ERR_ACK));
    mSystem.Receive(last);
    ASSERT_TRUE(throwing.AwaitCount(2));
    mSystem.FailNext("send", {ENOBUFS, 0, ENETDOWN});
    EXPECT_EQ(SendFailure(), "sent");
    EXPECT_NE(SendFailure(), "sent");
    mCore->Close(); // the receive thread has done its accounts then
    EXPECT_EQ(LedgerText(mCore->GetCounters()),
              "received 3, delivered 2, filtered 1, errorFrames 1, droppedByKernel 7, "
              "handlerExceptions 2, sent 1, sendRetries 1, sendFailures 1");
}

TEST(SocketCanLife, MayEndFromInsideItsOwnHandler)
{
    // Never destroyed, as the receive thread may outlive the test and even main().
    static auto* const systems = new std::deque<FakeCanSystem>;
    FakeCanSystem* const system = &systems->emplace_back();
    auto core = std::make_shared<Core>(*system, "can0", SocketCanDispatcher::Options());
    Gate gone;
    FrameRecorder closing([&](CanMessage&) {
        core->Close();
        core.reset();
        gone.Open();
    });
    core->Start(&closing);
    system->Receive(FrameOf(CAN_EFF_FLAG | 1));
    EXPECT_TRUE(gone.Pass());
}

// Sending.

TEST_F(SocketCan, SendsWithoutHandlersAndKeepsTheKernelsMarksToItself)
{
    Open();
    CanMessage frame = ExtendedFrame(0xFFFFFFFF, {0xAB, 0xCD});
    mCore->Send(frame);
    CanMessage remote = ExtendedFrame(5);
    remote.GetFlags() |= CanMessage::FLAG_REMOTE;
    mCore->Send(remote);
    CanMessage standard;
    standard.SetHeader(0xFFF);
    mCore->Send(standard);
    const auto sent = mSystem.Sent();
    ASSERT_EQ(sent.size(), 3u);
    EXPECT_EQ(sent[0].can_id, 0x9FFFFFFFu);
    EXPECT_EQ(sent[0].can_dlc, 2);
    EXPECT_EQ(sent[0].data[1], 0xCD);
    EXPECT_EQ(sent[1].can_id, 0xC0000005u);
    EXPECT_EQ(sent[2].can_id, 0x7FFu);
    EXPECT_EQ(mCore->GetCounters().sent, 3u);
}

TEST_F(SocketCan, WaitsOutAFullQueueAndSendsTheFrameOnce)
{
    Open();
    mSystem.FailNext("send", {ENOBUFS, EINTR, EAGAIN, ENOBUFS});
    EXPECT_EQ(SendFailure(), "sent");
    EXPECT_EQ(mSystem.Sent().size(), 1u);
    EXPECT_EQ(mCore->GetCounters().sendRetries, 3u);
    EXPECT_EQ(mCore->GetCounters().sendFailures, 0u);
}

TEST_F(SocketCan, GivesUpOnAFullQueueAfterTheSendTimeOut)
{
    SocketCanDispatcher::Options options;
    options.sendTimeout = 20;
    Open(options);
    mSystem.FailNext("send", std::deque<int>(100, ENOBUFS));
    int code = 0;
    EXPECT_EQ(SendFailure(&code), "a frame was not sent on the CAN interface \"can0\": No buffer "
                                  "space available, after 20 ms");
    EXPECT_EQ(code, ENOBUFS);
    EXPECT_TRUE(mSystem.Sent().empty());
    EXPECT_EQ(mCore->GetCounters().sendFailures, 1u);
}

TEST_F(SocketCan, AnInterfaceThatIsDownOrGoneRefusesAtOnce)
{
    Open();
    for (const int error : {ENETDOWN, ENXIO, ENODEV}) {
        mSystem.FailNext("send", {error});
        int code = 0;
        EXPECT_THAT(SendFailure(&code), HasSubstr("after 0 ms"));
        EXPECT_EQ(code, error);
    }
    EXPECT_TRUE(mSystem.Sent().empty());
}

// The state of the bus.

TEST_F(SocketCan, AnnouncesWhatErrorFramesTellOfTheController)
{
    OpenAndStart();
    mCore->AddStateListener(&mStates);
    mSystem.Receive(FrameOf(CAN_ERR_FLAG | CAN_ERR_CRTL, {0, CAN_ERR_CRTL_RX_WARNING}));
    mSystem.Receive(FrameOf(CAN_ERR_FLAG | CAN_ERR_CRTL, {0, CAN_ERR_CRTL_TX_PASSIVE}));
    mSystem.Receive(FrameOf(CAN_ERR_FLAG | CAN_ERR_CRTL, {0, CAN_ERR_CRTL_TX_PASSIVE}));
    mSystem.Receive(FrameOf(CAN_ERR_FLAG | CAN_ERR_BUSOFF));
    mSystem.Receive(FrameOf(CAN_ERR_FLAG | CAN_ERR_ACK));
    mSystem.Receive(FrameOf(CAN_ERR_FLAG | CAN_ERR_CRTL));
    mSystem.Receive(FrameOf(CAN_ERR_FLAG | CAN_ERR_RESTARTED));
    EXPECT_TRUE(mStates.Await(
        {CAN_BUS_ERROR_WARNING, CAN_BUS_ERROR_PASSIVE, CAN_BUS_OFF, CAN_BUS_ERROR_ACTIVE}));
    ASSERT_TRUE(mFrames.AwaitCount(7));
    EXPECT_TRUE(mFrames.Frames()[3].HasError());
    mCore->Close(); // the receive thread has done its accounts then
    EXPECT_EQ(mCore->GetCounters().errorFrames, 7u);
    mCore->RemoveStateListener(&mStates);
}

TEST_F(SocketCan, AnnouncesDownUpRemovedAndTakesUpANewInterfaceOfTheSameName)
{
    OpenAndStart();
    mCore->AddStateListener(&mStates);
    mSystem.SetLink(7, false);
    EXPECT_TRUE(mStates.Await({CAN_BUS_DOWN}));
    mSystem.SetLink(7, true);
    EXPECT_TRUE(mStates.Await({CAN_BUS_DOWN, CAN_BUS_ERROR_ACTIVE}));
    mSystem.SetLink(0, false);
    EXPECT_TRUE(mStates.Await({CAN_BUS_DOWN, CAN_BUS_ERROR_ACTIVE, CAN_BUS_REMOVED}));
    EXPECT_EQ(mCore->GetBusState(), CAN_BUS_REMOVED);
    const int bindings = mSystem.Bindings();
    const std::string filter = mSystem.OptionValue(SOL_CAN_RAW, CAN_RAW_FILTER);
    mSystem.ForgetOptions();
    mSystem.SetLink(8, true);
    EXPECT_TRUE(
        mStates.Await({CAN_BUS_DOWN, CAN_BUS_ERROR_ACTIVE, CAN_BUS_REMOVED, CAN_BUS_ERROR_ACTIVE}));
    EXPECT_EQ(mSystem.Bindings(), bindings + 1);
    EXPECT_EQ(mSystem.OptionValue(SOL_CAN_RAW, CAN_RAW_FILTER), filter);
    mCore->RemoveStateListener(&mStates);
}

TEST_F(SocketCan, AnInterfaceThatGoesAgainWhileItIsTakenUpStopsNothing)
{
    const std::string setFilter = "option " + std::to_string(CAN_RAW_FILTER);
    OpenAndStart();
    mCore->AddStateListener(&mStates);
    mSystem.SetLink(0, false);
    ASSERT_TRUE(mStates.Await({CAN_BUS_REMOVED}));
    mSystem.FailNext(setFilter, {ENODEV});
    mSystem.SetLink(8, true);
    ASSERT_TRUE(mSystem.AwaitNoFailures(setFilter));
    mSystem.SetLink(8, true);
    EXPECT_TRUE(mStates.Await({CAN_BUS_REMOVED, CAN_BUS_ERROR_ACTIVE}));
    mSystem.FailNext(setFilter, {ENODEV});
    EXPECT_NO_THROW(mCore->Stop(&mFrames));
    mCore->RemoveStateListener(&mStates);
}

TEST_F(SocketCan, LostNetlinkMessagesDoNoHarm)
{
    OpenAndStart();
    mCore->AddStateListener(&mStates);
    mSystem.FailNext("recv", {ENOBUFS, EINTR});
    mSystem.SetLink(7, false);
    EXPECT_TRUE(mStates.Await({CAN_BUS_DOWN}));
    mCore->RemoveStateListener(&mStates);
}

TEST_F(SocketCan, AListenerThatThrowsStopsNothing)
{
    mStates.mThrows = true;
    OpenAndStart();
    mCore->AddStateListener(&mStates);
    mSystem.SetLink(7, false);
    EXPECT_TRUE(mStates.Await({CAN_BUS_DOWN}));
    mSystem.SetLink(7, true);
    EXPECT_TRUE(mStates.Await({CAN_BUS_DOWN, CAN_BUS_ERROR_ACTIVE}));
    mCore->RemoveStateListener(&mStates);
}

TEST_F(SocketCan, KnowsTheStateOfAControllerThatIsInTroubleAlready)
{
    mSystem.SetLinkAnswer(InOwnByteOrder(LinkAnswer('\2')));
    OpenAndStart();
    EXPECT_EQ(mCore->GetBusState(), CAN_BUS_ERROR_PASSIVE);
    mCore->AddStateListener(&mStates);
    mSystem.SetLinkAnswer(InOwnByteOrder(LinkAnswer('\3')));
    mSystem.SetLink(7, true);
    EXPECT_TRUE(mStates.Await({CAN_BUS_OFF})) << "told by netlink alone";
    mSystem.Receive(FrameOf(CAN_ERR_FLAG | CAN_ERR_RESTARTED));
    EXPECT_TRUE(mStates.Await({CAN_BUS_OFF, CAN_BUS_ERROR_ACTIVE}));
    mSystem.SetLink(7, false);
    EXPECT_TRUE(mStates.Await({CAN_BUS_OFF, CAN_BUS_ERROR_ACTIVE, CAN_BUS_DOWN}));
    mCore->RemoveStateListener(&mStates);
}

TEST_F(SocketCan, LooksAtTheControllerAgainWhenAHandlerComesBack)
{
    mSystem.SetLinkAnswer(InOwnByteOrder(LinkAnswer('\0')));
    OpenAndStart();
    mSystem.Receive(FrameOf(CAN_EFF_FLAG | 1));
    ASSERT_TRUE(mFrames.AwaitCount(1));
    mCore->AddStateListener(&mStates);
    mCore->Stop(&mFrames);
    mSystem.SetLinkAnswer(InOwnByteOrder(LinkAnswer('\1')));
    mCore->Start(&mFrames);
    EXPECT_TRUE(mStates.Await({CAN_BUS_ERROR_WARNING}));
    mCore->RemoveStateListener(&mStates);
}

TEST_F(SocketCan, TakesTheControllerForActiveWhereItCannotAsk)
{
    mSystem.SetLinkAnswer(InOwnByteOrder(LinkAnswer('\3')));
    mSystem.FailNext("socket", {0, 0, EMFILE});
    Open();
    mSystem.FailNext("socket", {EMFILE});
    EXPECT_EQ(mCore->GetBusState(), CAN_BUS_ERROR_ACTIVE);
    EXPECT_EQ(mCore->GetBusState(), CAN_BUS_OFF);
}

TEST_F(SocketCan, TellsTheStateWithoutAReceiveThreadToo)
{
    Open();
    EXPECT_EQ(mCore->GetBusState(), CAN_BUS_ERROR_ACTIVE);
    mSystem.SetLink(7, false);
    EXPECT_EQ(mCore->GetBusState(), CAN_BUS_DOWN);
}

TEST_F(SocketCan, ARefusedPriorityIsNoFailure)
{
    SocketCanDispatcher::Options options;
    options.realTimePriority = 50;
    mSystem.FailNext("priority", {EPERM});
    OpenAndStart(options);
    mSystem.Receive(FrameOf(CAN_EFF_FLAG | 1));
    ASSERT_TRUE(mFrames.AwaitCount(1));
    EXPECT_FALSE(mCore->IsRealTime());
}

TEST_F(SocketCan, AGrantedPriorityShows)
{
    SocketCanDispatcher::Options options;
    options.realTimePriority = 50;
    OpenAndStart(options);
    mSystem.Receive(FrameOf(CAN_EFF_FLAG | 1));
    ASSERT_TRUE(mFrames.AwaitCount(1));
    EXPECT_TRUE(mCore->IsRealTime());
}

} // namespace
