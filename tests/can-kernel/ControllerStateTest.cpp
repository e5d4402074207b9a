#include "support/CanFakes.h"

#include <plexa_can/SocketCanDispatcher.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <fcntl.h>
#include <string>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

// The state of a controller that the kernel knows: one on a serial line (slcan), with a terminal in
// place of the line, whose other side tells of the state.

namespace
{

using namespace tarn;
using namespace tarn::test;

class SerialController
{
public:
    SerialController() : mFarEnd(::posix_openpt(O_RDWR | O_NOCTTY))
    {
        ::grantpt(mFarEnd);
        ::unlockpt(mFarEnd);
        mLine = ::open(::ptsname(mFarEnd), O_RDWR | O_NOCTTY);
        termios raw = {};
        ::cfmakeraw(&raw);
        EXPECT_EQ(::tcsetattr(mLine, TCSANOW, &raw), 0);
        const int slcan = 17; // N_SLCAN
        EXPECT_EQ(::ioctl(mLine, TIOCSETD, &slcan), 0);
        EXPECT_EQ(std::system("ip link set can0 up"), 0);
    }
    ~SerialController()
    {
        ::close(mLine);
        ::close(mFarEnd);
    }
    SerialController(const SerialController&) = delete;
    SerialController& operator=(const SerialController&) = delete;

    /// a, w, p or b, with the counts of receive and transmit errors.
    void Tell(const std::string& state) const
    {
        const std::string line = "s" + state + "\r";
        EXPECT_EQ(::write(mFarEnd, line.data(), line.size()), static_cast<ssize_t>(line.size()));
    }

private:
    const int mFarEnd;
    int mLine = -1;
};

class StateAwaiter : public iCanBusStateListener
{
public:
    ~StateAwaiter() noexcept override {}

    void OnBusState(tCanBusState state) override
    {
        const std::lock_guard<std::mutex> lock(mMutex);
        mState = state;
        mChanged.notify_all();
    }

    bool Await(tCanBusState state)
    {
        std::unique_lock<std::mutex> lock(mMutex);
        return mChanged.wait_for(lock, PATIENCE, [&] { return mState == state; });
    }

private:
    std::mutex mMutex;
    std::condition_variable mChanged;
    tCanBusState mState = CAN_BUS_ERROR_ACTIVE;
};

TEST(ControllerStateKernel, IsKnownFromTheStartAndFollowed)
{
    const SerialController controller;
    StateAwaiter states;
    FrameRecorder frames;
    const auto first = SocketCanDispatcher::Create("can0");
    EXPECT_EQ(first->GetBusState(), CAN_BUS_ERROR_ACTIVE);
    first->AddStateListener(&states);
    first->Start(&frames);
    controller.Tell("p130140");
    EXPECT_TRUE(states.Await(CAN_BUS_ERROR_PASSIVE)) << "by an error frame";
    const auto second = SocketCanDispatcher::Create("can0");
    EXPECT_EQ(second->GetBusState(), CAN_BUS_ERROR_PASSIVE) << "from the kernel, as it was opened";
    controller.Tell("a001002");
    EXPECT_TRUE(states.Await(CAN_BUS_ERROR_ACTIVE));
    EXPECT_EQ(second->GetBusState(), CAN_BUS_ERROR_ACTIVE);
    first->RemoveStateListener(&states);
    first->Stop(&frames);
}

} // namespace
