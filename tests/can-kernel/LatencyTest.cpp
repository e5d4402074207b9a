#include "BusyThreads.h"
#include "PacedSender.h"

#include <plexa_can/CanMessage.h>
#include <plexa_can/SocketCanDispatcher.h>
#include <plexa_can/iCanMessageHandler.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <ctime>
#include <iomanip>
#include <iostream>
#include <thread>
#include <vector>

// How long a frame takes from the time stamp of the kernel to its handler, 1,000 a second:
// prints a table of docs/performance-socketcan.md.

namespace
{

using namespace tarn;
using namespace tarn::test;

/// An emulated machine of several CPUs keeps no faster pace.
constexpr unsigned int RATE = 1000;
constexpr unsigned int COUNT = 3000;

class Delays : public iCanMessageHandler
{
public:
    Delays() { mDelays.reserve(COUNT); }
    ~Delays() noexcept override {}

    void DispatchResponse(CanMessage& frame) override
    {
        timespec now = {};
        ::clock_gettime(CLOCK_REALTIME, &now);
        const auto sent = static_cast<long long>(frame.GetTimeStamp());
        const long long delay = now.tv_sec * 1'000'000'000ll + now.tv_nsec - sent;
        if (sent != 0) // the kernel begins to take time stamps soon after it was asked to
            mDelays.push_back(static_cast<double>(delay) / 1e3);
        if (++mCount == COUNT)
            mAll.Open();
    }

    /// In microseconds, in ascending order.
    std::vector<double> Sorted()
    {
        EXPECT_TRUE(mAll.Pass());
        std::sort(mDelays.begin(), mDelays.end());
        return mDelays;
    }

private:
    std::vector<double> mDelays;
    unsigned int mCount = 0;
    Gate mAll;
};

/// Prints a row.
void Measure(const char* load, unsigned int threads, unsigned int priority)
{
    const BusyThreads others(threads);
    SocketCanDispatcher::Options options;
    options.realTimePriority = priority;
    options.receiveBuffer = 4'000'000; // a late frame counts as late, not as lost
    Delays handler;
    const auto dispatcher = SocketCanDispatcher::Create("vcan0", options);
    dispatcher->Start(&handler);
    PacedSender("vcan0", RATE, COUNT);
    const std::vector<double> delays = handler.Sorted();
    dispatcher->Stop(&handler);
    std::cout << "| " << load << " | " << priority << std::fixed << std::setprecision(0);
    for (const double part : {0.5, 0.99, 0.999, 1.0})
        std::cout
            << " | "
            << delays[static_cast<std::size_t>(static_cast<double>(delays.size() - 1) * part)];
    std::cout << " |" << std::endl;
    EXPECT_GT(delays.front(), 0);
    EXPECT_GT(delays.size(), COUNT / 2);
}

TEST(Latency, FromTheKernelToTheHandler)
{
    const unsigned int cpus = std::thread::hardware_concurrency();
    std::cout << "us on " << cpus << " CPUs | priority | 50 % | 99 % | 99.9 % | maximum |\n";
    Measure("idle", 0, 0);
    Measure("idle", 0, 50);
    Measure("one busy thread", 1, 0);
    Measure("one busy thread", 1, 50);
    Measure("four busy threads for each CPU", 4 * cpus, 0);
    Measure("four busy threads for each CPU", 4 * cpus, 50);
}

} // namespace
