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

#include <algorithm>
#include <cstdlib>
#include <linux/can.h>
#include <linux/can/raw.h>
#include <net/if.h>
#include <string>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>
#include <vector>

// SocketCanDispatcher on a kernel that has CAN, with a bare socket, cansend and ip as partners.

namespace
{

using namespace tarn;
using namespace tarn::test;
using testing::ElementsAre;
using testing::HasSubstr;

void Shell(const std::string& command)
{
    ASSERT_EQ(std::system(command.c_str()), 0) << command;
}

/// The bare kernel interface, for what a dispatcher does not do.
class BareSocket
{
public:
    explicit BareSocket(const std::string& interface)
        : mDescriptor(::socket(PF_CAN, SOCK_RAW, CAN_RAW))
    {
        sockaddr_can address = {};
        address.can_family = AF_CAN;
        address.can_ifindex = static_cast<int>(::if_nametoindex(interface.c_str()));
        EXPECT_EQ(::bind(mDescriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address),
                  0);
    }
    ~BareSocket() { ::close(mDescriptor); }
    BareSocket(const BareSocket&) = delete;
    BareSocket& operator=(const BareSocket&) = delete;

    void Send(unsigned int word, const std::vector<unsigned char>& data = {}) const
    {
        can_frame frame = {};
        frame.can_id = word;
        frame.can_dlc = static_cast<unsigned char>(data.size());
        std::copy(data.begin(), data.end(), frame.data);
        while (::write(mDescriptor, &frame, sizeof frame) != sizeof frame)
            std::this_thread::yield();
    }

    can_frame Receive() const
    {
        can_frame frame = {};
        EXPECT_EQ(::read(mDescriptor, &frame, sizeof frame), ssize_t{sizeof frame});
        return frame;
    }

private:
    const int mDescriptor;
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
        partner.Send(CAN_EFF_FLAG | (0x1F800000 + size), {bytes.begin(), bytes.begin() + size});
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
    const can_frame received = partner.Receive();
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
    ASSERT_TRUE(slow.AwaitCount(COUNT + 1 - counters.droppedByKernel));
    dispatcher->Stop(&slow);
    counters = dispatcher->GetCounters();
    EXPECT_EQ(counters.received + counters.droppedByKernel, COUNT + 1);
    EXPECT_EQ(slow.Frames().size(), counters.received);
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
    }

    bool AwaitLast(tCanBusState state)
    {
        std::unique_lock<std::mutex> lock(mMutex);
        return mChanged.wait_for(lock, PATIENCE,
                                 [&] { return !mStates.empty() && mStates.back() == state; });
    }

private:
    std::mutex mMutex;
    std::condition_variable mChanged;
    std::vector<tCanBusState> mStates;
};

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
