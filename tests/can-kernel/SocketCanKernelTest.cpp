#include "BareCan.h"
#include "support/CanFakes.h"

#include <plexa_can/CanBus.h>
#include <plexa_can/CanException.h>
#include <plexa_can/SocketCanDispatcher.h>
#include <tarn/TarnAsyncDispatcher.h>
#include <tarn/TarnMessage.h>
#include <tarn/TarnSyncRequest.h>
#include <tarn/iTarnMessageHandler.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <linux/can.h>
#include <linux/can/error.h>
#include <linux/can/raw.h>
#include <string>
#include <thread>
#include <vector>

// SocketCanDispatcher on a kernel that has CAN, with a bare socket, cansend and ip as partners.

namespace
{

using namespace tarn;
using namespace tarn::test;
using testing::ElementsAre;
using testing::HasSubstr;

using testing::ElementsAreArray;
using Bytes = std::vector<unsigned char>;

class MessageCount : public iTarnMessageHandler
{
public:
    ~MessageCount() noexcept override {}

    bool DispatchResponse(TarnMessage&) override
    {
        const std::lock_guard<std::mutex> lock(mMutex);
        ++mCount;
        mChanged.notify_all();
        return false;
    }

    bool Await(std::size_t count)
    {
        std::unique_lock<std::mutex> lock(mMutex);
        return mChanged.wait_for(lock, PATIENCE, [&] { return mCount >= count; });
    }

    std::size_t Count()
    {
        const std::lock_guard<std::mutex> lock(mMutex);
        return mCount;
    }

private:
    std::mutex mMutex;
    std::condition_variable mChanged;
    std::size_t mCount = 0;
};

using Dispatcher = std::tr1::shared_ptr<SocketCanDispatcher>;

TEST(SocketCanKernel, ReceivesEveryLengthByteForByteWithTheKernelsTime)
{
    const Dispatcher dispatcher = SocketCanDispatcher::Create("vcan0");
    FrameRecorder frames;
    dispatcher->Start(&frames);
    const BareSocket partner("vcan0");
    const std::vector<unsigned char> bytes = {0x11, 0x22, 0x33, 0x44, 0x55, 0x66, 0x77, 0x88};
    const std::vector<std::string> literals = {"1F800000#",
                                               "1F800001#11",
                                               "1F800002#1122",
                                               "1F800003#112233",
                                               "1F800004#11223344",
                                               "1F800005#1122334455",
                                               "1F800006#112233445566",
                                               "1F800007#11223344556677",
                                               "1F800008#1122334455667788"};
    for (unsigned int size = 0; size <= 8; ++size)
        partner.Send(CAN_EFF_FLAG | (0x1F800000 + size),
                     {bytes.begin(), std::next(bytes.begin(), static_cast<int>(size))});
    ASSERT_TRUE(frames.AwaitCount(9));
    dispatcher->Stop(&frames);
    std::vector<std::string> received;
    for (const CanMessage& frame : frames.Frames()) {
        received.push_back(frame.ToString());
        EXPECT_GT(frame.GetTimeStamp(), 1700000000000000000ull);
    }
    EXPECT_EQ(received, literals);
}

TEST(SocketCanKernel, SendsByteForByteAndDoesNotHearItself)
{
    const Dispatcher dispatcher = SocketCanDispatcher::Create("vcan0");
    FrameRecorder own;
    dispatcher->Start(&own);
    const BareSocket partner("vcan0");
    CanMessage frame = ExtendedFrame(0x0F800001, {0x20});
    dispatcher->Send(frame);
    can_frame received = {};
    ASSERT_TRUE(partner.Receive(received));
    EXPECT_EQ(received.can_id, 0x8F800001u);
    EXPECT_EQ(received.can_dlc, 1);
    EXPECT_EQ(received.data[0], 0x20);
    partner.Send(CAN_EFF_FLAG | 7);
    ASSERT_TRUE(own.AwaitCount(1));
    dispatcher->Stop(&own);
    EXPECT_THAT(own.Headers(), ElementsAre(7u));
}

TEST(SocketCanKernel, HearsCansendAndLeavesElevenBitFramesOut)
{
    const Dispatcher dispatcher = SocketCanDispatcher::Create("vcan0");
    FrameRecorder frames;
    dispatcher->Start(&frames);
    Shell("cansend vcan0 123#0102");
    Shell("cansend vcan0 0F800001#20");
    ASSERT_TRUE(frames.AwaitCount(1));
    dispatcher->Stop(&frames);
    ASSERT_EQ(frames.Frames().size(), 1u);
    EXPECT_EQ(frames.Frames()[0].ToString(), "0F800001#20");
}

TEST(SocketCanKernel, WhatCameBeforeTheFirstHandlerIsNotDelivered)
{
    const Dispatcher dispatcher = SocketCanDispatcher::Create("vcan0");
    const BareSocket partner("vcan0");
    partner.Send(CAN_EFF_FLAG | 1);
    FrameRecorder frames;
    dispatcher->Start(&frames);
    partner.Send(CAN_EFF_FLAG | 2);
    ASSERT_TRUE(frames.AwaitCount(1));
    dispatcher->Stop(&frames);
    EXPECT_THAT(frames.Headers(), ElementsAre(2u));
}

TEST(SocketCanKernel, AFloodIsAccountedForToTheLastFrame)
{
    const Dispatcher dispatcher = SocketCanDispatcher::Create("vcan0");
    Gate flooded;
    FrameRecorder slow([&](CanMessage&) { flooded.Pass(); });
    dispatcher->Start(&slow);
    constexpr unsigned int COUNT = 20000;
    const BareSocket partner("vcan0");
    for (unsigned int i = 0; i < COUNT; ++i)
        partner.Send(CAN_EFF_FLAG | i, {1, 2, 3, 4, 5, 6, 7, 8});
    flooded.Open();
    partner.Send(CAN_EFF_FLAG | COUNT);
    CanBusCounters counters = dispatcher->GetCounters();
    ASSERT_GT(counters.droppedByKernel, 0u) << "the flood was no flood";
    ASSERT_TRUE(slow.AwaitCount(static_cast<std::size_t>(COUNT + 1 - counters.droppedByKernel)));
    dispatcher->Stop(&slow);
    counters = dispatcher->GetCounters();
    EXPECT_EQ(counters.received + counters.droppedByKernel, COUNT + 1);
    EXPECT_EQ(slow.Frames().size(), counters.received);
}

TEST(SocketCanKernel, AFloodOfCangenIsAccountedForToTheLastFrame)
{
    const Dispatcher dispatcher = SocketCanDispatcher::Create("vcan0");
    Gate flooded;
    FrameRecorder slow([&](CanMessage&) {
        flooded.Pass();
        std::this_thread::sleep_for(std::chrono::microseconds(50));
    });
    dispatcher->Start(&slow);
    Shell("cangen vcan0 -g 0 -e -I i -L 8 -n 20000");
    flooded.Open();
    Shell("cangen vcan0 -g 0 -e -I i -L 8 -n 5000"); // now it reads, but too slowly
    CanBusCounters counters = dispatcher->GetCounters();
    ASSERT_GT(counters.droppedByKernel, 0u) << "the flood was no flood";
    ASSERT_TRUE(slow.AwaitCount(static_cast<std::size_t>(25000 - counters.droppedByKernel)));
    dispatcher->Stop(&slow);
    counters = dispatcher->GetCounters();
    EXPECT_EQ(counters.received + counters.droppedByKernel, 25000u);
    EXPECT_EQ(slow.Frames().size(), counters.received);
}

// Frames of other kinds beside ours: 11-bit, remote requests, CAN FD, error frames.

void SendEveryKindOfFrame(const BareSocket& partner)
{
    partner.SetOption(SOL_CAN_RAW, CAN_RAW_FD_FRAMES, 1);
    for (unsigned int round = 0; round < 10; ++round) {
        partner.Send(CAN_EFF_FLAG | 0x0F848481, {0x11, 0x28});
        partner.Send(0x123, {1});
        partner.Send(CAN_EFF_FLAG | CAN_RTR_FLAG | 0x0F848481);
        partner.Send(CAN_RTR_FLAG | 0x123);
        canfd_frame fd = {};
        fd.can_id = CAN_EFF_FLAG | 0x0F848481;
        fd.len = 12;
        partner.Write(fd);
        fd.len = 8; // short enough for a classical frame, and none all the same
        partner.Write(fd);
        partner.Send(CAN_ERR_FLAG | CAN_ERR_BUSERROR, Bytes(8));
    }
}

struct HeardFrames {
    std::vector<std::string> texts;
    CanBusCounters counters;
};

HeardFrames HearEveryKindOfFrame(const SocketCanDispatcher::Options& options)
{
    const Dispatcher dispatcher = SocketCanDispatcher::Create("vcan1", options);
    FrameRecorder frames;
    dispatcher->Start(&frames);
    const BareSocket partner("vcan1");
    SendEveryKindOfFrame(partner);
    partner.Send(CAN_EFF_FLAG | 0x1FFFFFFF);
    std::size_t count = 0;
    while (frames.AwaitCount(count + 1) && frames.Headers()[count] != 0x1FFFFFFF)
        ++count;
    dispatcher->Stop(&frames);
    HeardFrames heard{{}, dispatcher->GetCounters()};
    for (const CanMessage& frame : frames.Frames())
        heard.texts.push_back(frame.ToString());
    return heard;
}

/// Ten times the frames, then the last of all.
std::vector<std::string> TenTimes(const std::vector<std::string>& frames)
{
    std::vector<std::string> all;
    for (unsigned int round = 0; round < 10; ++round)
        all.insert(all.end(), frames.begin(), frames.end());
    all.emplace_back("1FFFFFFF#");
    return all;
}

void ExpectAddsUp(const CanBusCounters& counters)
{
    EXPECT_EQ(counters.received, counters.delivered + counters.unheard + counters.filtered);
    EXPECT_EQ(counters.droppedByKernel, 0u);
}

TEST(SocketCanKernel, OfEveryKindOfFrameThoseOf29BitsAndErrorsArrive)
{
    const HeardFrames heard = HearEveryKindOfFrame({});
    EXPECT_THAT(heard.texts, ElementsAreArray(TenTimes(
                                 {"0F848481#1128", "0F848481#R", "20000080#0000000000000000"})));
    EXPECT_EQ(heard.counters.received, 31u);
    EXPECT_EQ(heard.counters.errorFrames, 10u);
    ExpectAddsUp(heard.counters);
}

TEST(SocketCanKernel, AFilterForEverythingLetsElevenBitFramesInToo)
{
    SocketCanDispatcher::Options options;
    options.filters = {{0, 0}};
    const HeardFrames heard = HearEveryKindOfFrame(options);
    EXPECT_THAT(heard.texts, ElementsAreArray(TenTimes({"0F848481#1128", "123#01", "0F848481#R",
                                                        "123#R", "20000080#0000000000000000"})));
    EXPECT_EQ(heard.counters.received, 51u);
    ExpectAddsUp(heard.counters);
}

TEST(SocketCanKernel, WithoutErrorFramesDataFramesStay)
{
    SocketCanDispatcher::Options options;
    options.errorFrames = false;
    const HeardFrames heard = HearEveryKindOfFrame(options);
    EXPECT_THAT(heard.texts, ElementsAreArray(TenTimes({"0F848481#1128", "0F848481#R"})));
    EXPECT_EQ(heard.counters.received, 21u);
    EXPECT_EQ(heard.counters.errorFrames, 0u);
    ExpectAddsUp(heard.counters);
}

TEST(SocketCanKernel, OtherFramesDoNotReachTarnHandlers)
{
    const Dispatcher bus = SocketCanDispatcher::Create("vcan1");
    const auto dispatcher = TarnAsyncDispatcher::Create(bus);
    MessageCount messages;
    dispatcher->SubscribeAll(&messages);
    dispatcher->Start();
    const BareSocket partner("vcan1");
    SendEveryKindOfFrame(partner);
    ASSERT_TRUE(messages.Await(10));
    partner.Send(CAN_EFF_FLAG | 0x0F848481, {0x11, 0x28});
    ASSERT_TRUE(messages.Await(11));
    dispatcher->Stop();
    EXPECT_EQ(messages.Count(), 11u);
    const CanBusCounters counters = bus->GetCounters();
    EXPECT_EQ(counters.received, 31u); // remote requests and error frames too
    ExpectAddsUp(counters);
}

std::string SendFailure(SocketCanDispatcher& dispatcher)
{
    CanMessage frame = ExtendedFrame(1);
    try {
        dispatcher.Send(frame);
    } catch (const CanException& exception) {
        return exception.message();
    }
    return "sent";
}

TEST(SocketCanKernel, FollowsAnInterfaceDownUpAwayAndBack)
{
    Shell("ip link add dev vcan7 type vcan && ip link set vcan7 up");
    const Dispatcher dispatcher = SocketCanDispatcher::Create("vcan7");
    FrameRecorder frames;
    StateRecorder states;
    dispatcher->Start(&frames);
    dispatcher->AddStateListener(&states);
    Shell("ip link set vcan7 down");
    EXPECT_TRUE(states.AwaitLast(CAN_BUS_DOWN));
    EXPECT_THAT(SendFailure(*dispatcher), HasSubstr("\"vcan7\": Network is down, after 0 ms"));
    Shell("ip link set vcan7 up");
    EXPECT_TRUE(states.AwaitLast(CAN_BUS_ERROR_ACTIVE));
    Shell("cansend vcan7 00000001#");
    EXPECT_TRUE(frames.AwaitCount(1));
    Shell("ip link del vcan7");
    EXPECT_TRUE(states.AwaitLast(CAN_BUS_REMOVED));
    EXPECT_NE(SendFailure(*dispatcher), "sent");
    Shell("ip link add dev vcan7 type vcan && ip link set vcan7 up");
    EXPECT_TRUE(states.AwaitLast(CAN_BUS_ERROR_ACTIVE));
    Shell("cansend vcan7 00000002#");
    EXPECT_TRUE(frames.AwaitCount(2));
    EXPECT_EQ(SendFailure(*dispatcher), "sent");
    dispatcher->RemoveStateListener(&states);
    dispatcher->Stop(&frames);
    EXPECT_THAT(frames.Headers(), ElementsAre(1u, 2u));
    Shell("ip link del vcan7");
}

TEST(SocketCanKernel, ErrorFramesMakeTheState)
{
    const Dispatcher dispatcher = SocketCanDispatcher::Create("vcan1");
    FrameRecorder frames;
    StateRecorder states;
    dispatcher->Start(&frames);
    dispatcher->AddStateListener(&states);
    const BareSocket partner("vcan1");
    partner.Send(CAN_ERR_FLAG | 0x40, std::vector<unsigned char>(8)); // CAN_ERR_BUSOFF
    EXPECT_TRUE(states.AwaitLast(CAN_BUS_OFF));
    ASSERT_TRUE(frames.AwaitCount(1));
    EXPECT_EQ(frames.Frames()[0].ToString(), "20000040#0000000000000000");
    dispatcher->RemoveStateListener(&states);
    dispatcher->Stop(&frames);
}

TEST(SocketCanKernel, RefusesToOpenWhatIsNotThereOrDown)
{
    try {
        CanBus::Open("socketcan:can77");
        FAIL();
    } catch (const CanException& exception) {
        EXPECT_EQ(exception.message(),
                  "cannot open the CAN interface \"can77\": no such interface; "
                  "this machine has: vcan0, vcan1");
    }
    try {
        SocketCanDispatcher::Create("lo");
        FAIL();
    } catch (const CanException& exception) {
        EXPECT_THAT(exception.message(), HasSubstr("\"lo\": it is no CAN interface"));
    }
}

/// Answers requests to address 9 with the number of the register.
class Device : public iTarnMessageHandler
{
public:
    explicit Device(iTarnAsyncDispatcher& dispatcher) : mDispatcher(dispatcher) {}
    ~Device() noexcept override {}

    bool DispatchResponse(TarnMessage& request) override
    {
        TarnMessage response;
        response.SetDirection(TarnMessage::DIRECTION_RESPONSE);
        response.SetSourceAddr(9);
        response.SetTargetAddr(request.GetSourceAddr());
        response.SetRegister(request.GetRegister());
        std::vector<unsigned char> values{request.GetRegister()};
        response.SetData(values);
        mDispatcher.Send(response);
        return false;
    }

private:
    iTarnAsyncDispatcher& mDispatcher;
};

TEST(SocketCanKernel, CarriesSynchronousRequests)
{
    const auto controller = TarnAsyncDispatcher::Create(CanBus::Open("socketcan:vcan0"));
    const auto deviceSide = TarnAsyncDispatcher::Create(CanBus::Open("socketcan:vcan0"));
    Device device(*deviceSide);
    deviceSide->SubscribeTarget(9, &device);
    deviceSide->Start();
    controller->Start();
    const auto sync = TarnSyncRequest::Create(controller);
    TarnMessage request;
    TarnMessage response;
    request.SetTargetAddr(9);
    for (unsigned int i = 0; i < 1000; ++i) {
        const auto reg = static_cast<unsigned char>(i);
        request.SetRegister(reg);
        ASSERT_TRUE(sync->Send(request, response, 20000)) << "request " << i;
        std::vector<unsigned char> values;
        ASSERT_TRUE(response.GetData(values));
        ASSERT_THAT(values, ElementsAre(reg));
    }
    controller->Stop();
    deviceSide->Stop();
}

} // namespace
