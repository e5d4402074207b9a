#include "BusyThreads.h"
#include "PacedSender.h"

#include <plexa_can/CanMessage.h>
#include <plexa_can/SocketCanDispatcher.h>
#include <plexa_can/iCanMessageHandler.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <ctime>
#include <iomanip>
#include <iostream>
#include <pthread.h>
#include <thread>
#include <utility>
#include <vector>

// What the options for a loaded controller bring, on a full bus of 1 Mbit/s: prints the table of
// docs/lower-layer.md.

namespace
{

using namespace tarn;
using namespace tarn::test;

constexpr unsigned int FULL_BUS = 7600;

double Microseconds(const timespec& time)
{
    return static_cast<double>(time.tv_sec) * 1e6 + static_cast<double>(time.tv_nsec) / 1e3;
}

/// Notes the delay and the CPU time of the thread that calls it.
class Meter : public iCanMessageHandler
{
public:
    /// @param work microseconds of CPU time that a frame takes
    /// @param pause once, at frame 500
    explicit Meter(double work = 0, std::chrono::milliseconds pause = {})
        : mWork(work),
          mPause(pause)
    {
    }
    ~Meter() noexcept override {}

    void DispatchResponse(CanMessage& frame) override
    {
        timespec now = {};
        ::clock_gettime(CLOCK_REALTIME, &now);
        const auto sent = static_cast<double>(frame.GetTimeStamp()) / 1e3;
        mWorstDelay = std::max(mWorstDelay, Microseconds(now) - sent);
        if (++mCount == 500)
            std::this_thread::sleep_for(mPause);
        const double end = CpuTime() + mWork;
        do
            mCpu = CpuTime();
        while (mCpu < end);
    }

    /// In microseconds; when no call is running any more.
    double WorstDelay() const { return mWorstDelay; }
    double Cpu() const { return mCpu; }

private:
    static double CpuTime()
    {
        timespec time = {};
        ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
        return Microseconds(time);
    }

    const double mWork;
    const std::chrono::milliseconds mPause;
    unsigned int mCount = 0;
    double mWorstDelay = 0;
    double mCpu = 0;
};

struct Result {
    double dropped;
    double worstDelay;
    double cpu;
};

Result Measure(const SocketCanDispatcher::Options& options, Meter& meter, unsigned int frames)
{
    const auto dispatcher = SocketCanDispatcher::Create("vcan0", options);
    dispatcher->Start(&meter);
    PacedSender sender("vcan0", FULL_BUS, frames, 100);
    sender.End();
    unsigned long long received = 0;
    do { // until nothing more is read
        received = dispatcher->GetCounters().received;
        std::this_thread::sleep_for(std::chrono::milliseconds(200));
    } while (dispatcher->GetCounters().received != received);
    dispatcher->Stop(&meter);
    return {static_cast<double>(dispatcher->GetCounters().droppedByKernel), meter.WorstDelay(),
            meter.Cpu()};
}

double Median(std::vector<Result> results, double Result::*figure)
{
    std::sort(results.begin(), results.end(),
              [&](const Result& one, const Result& other) { return one.*figure < other.*figure; });
    return results[results.size() / 2].*figure;
}

constexpr int RUNS = 5;

void Print(const std::string& row, double value)
{
    std::cout << "| " << row << " | " << std::fixed << std::setprecision(0) << value << " |\n";
}

double DropsWithBuffer(std::size_t bytes)
{
    SocketCanDispatcher::Options options;
    options.receiveBuffer = bytes;
    std::vector<Result> results;
    for (int i = 0; i < RUNS; ++i) {
        Meter meter(0, std::chrono::milliseconds(100));
        results.push_back(Measure(options, meter, FULL_BUS / 4));
    }
    const double drops = Median(results, &Result::dropped);
    Print("frames dropped while a handler takes 100 ms, buffer=" + std::to_string(bytes), drops);
    return drops;
}

TEST(Tuning, ALargerBufferBridgesAPause)
{
    const double byDefault = DropsWithBuffer(0);
    EXPECT_GT(byDefault, 0);
    EXPECT_LT(DropsWithBuffer(200'000), byDefault);
    EXPECT_EQ(DropsWithBuffer(1'000'000), 0);
}

/// The handler needs two fifths of a CPU, and as one of five busy threads would get a fifth.
Result WithPriority(unsigned int priority)
{
    const BusyThreads others(4 * std::thread::hardware_concurrency());
    SocketCanDispatcher::Options options;
    options.realTimePriority = priority;
    Meter meter(50);
    return Measure(options, meter, FULL_BUS / 2);
}

TEST(Tuning, ARealTimePriorityKeepsABusyMachineFromLosingFrames)
{
    std::vector<Result> ordinary;
    std::vector<Result> ahead;
    for (int i = 0; i < RUNS; ++i) {
        ordinary.push_back(WithPriority(0));
        ahead.push_back(WithPriority(50));
    }
    const double dropped = Median(ordinary, &Result::dropped);
    const double delay = Median(ordinary, &Result::worstDelay);
    Print("frames dropped, CPUs busy, priority=0", dropped);
    Print("us of delay at worst, CPUs busy, priority=0", delay);
    Print("frames dropped, CPUs busy, priority=50", Median(ahead, &Result::dropped));
    Print("us of delay at worst, CPUs busy, priority=50", Median(ahead, &Result::worstDelay));
    EXPECT_GT(dropped, 0);
    EXPECT_EQ(Median(ahead, &Result::dropped), 0);
    EXPECT_LT(5 * Median(ahead, &Result::worstDelay), delay);
}

double CpuWithFilters(const std::string& row, std::vector<SocketCanDispatcher::Filter> filters)
{
    SocketCanDispatcher::Options options;
    options.filters = std::move(filters);
    std::vector<Result> results;
    for (int i = 0; i < RUNS; ++i) {
        Meter meter;
        results.push_back(Measure(options, meter, FULL_BUS / 4));
    }
    const double cpu = 4 * Median(results, &Result::cpu);
    Print("us of CPU time for a second of the bus, " + row, cpu);
    return cpu;
}

TEST(Tuning, AFilterSparesTheWorkForFramesThatNobodyWants)
{
    const double all = CpuWithFilters("all frames", {});
    const double one =
        CpuWithFilters("a filter for one identifier of 100", {{CAN_EFF_FLAG | 7, 0x9FFFFFFF}});
    EXPECT_LT(10 * one, all);
}

} // namespace
