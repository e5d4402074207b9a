#include "PacedSender.h"

#include <plexa_can/CanMessage.h>
#include <plexa_can/SocketCanDispatcher.h>
#include <plexa_can/iCanMessageHandler.h>

#include <gtest/gtest.h>

#include <atomic>
#include <iostream>

namespace
{

using namespace tarn;
using namespace tarn::test;

class OrderCheck : public iCanMessageHandler
{
public:
    ~OrderCheck() noexcept override {}

    void DispatchResponse(CanMessage& frame) override
    {
        mInOrder = mInOrder && frame.GetHeader() == mCount && frame.GetDataSize() == 8;
        ++mCount;
    }

    unsigned int Count() const { return mCount; }
    bool InOrder() const { return mInOrder; }

private:
    std::atomic<unsigned int> mCount{0};
    std::atomic<bool> mInOrder{true};
};

/// A frame with a 29-bit identifier and 8 bytes has 131 bits and more: 7,600 a second at 1 Mbit/s.
TEST(FullBus, TenTimesItsFramesAreReceivedWithoutALoss)
{
    constexpr unsigned int FULL_BUS = 7600;
    constexpr unsigned int COUNT = 5 * 10 * FULL_BUS;
    const auto dispatcher = SocketCanDispatcher::Create("vcan0");
    OrderCheck handler;
    dispatcher->Start(&handler);
    PacedSender sender("vcan0", 10 * FULL_BUS, COUNT);
    sender.End();
    const auto end = std::chrono::steady_clock::now() + PATIENCE;
    while (handler.Count() < COUNT && std::chrono::steady_clock::now() < end)
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    dispatcher->Stop(&handler);
    const CanBusCounters counters = dispatcher->GetCounters();
    std::cout << COUNT << " frames, " << sender.Rate() << " a second: received "
              << counters.received << ", dropped " << counters.droppedByKernel << "\n";
    EXPECT_GE(sender.Rate(), 10 * FULL_BUS) << "this machine cannot send so fast";
    EXPECT_EQ(counters.droppedByKernel, 0u);
    EXPECT_EQ(counters.received, COUNT);
    EXPECT_EQ(handler.Count(), COUNT);
    EXPECT_TRUE(handler.InOrder());
}

} // namespace
