#include "Latency.h"

#include "Fakes.h"
#include "Pinned.h"

#include <plexa_can/VirtualCanBus.h>
#include <tarn/TarnAsyncDispatcher.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <thread>
#include <vector>

// How long a frame takes to its handler, over a threaded virtual bus that has nothing else to do.

namespace
{

using Clock = std::chrono::steady_clock;

constexpr unsigned int FRAMES = 10000;
constexpr std::chrono::microseconds PAUSE(200);

/// Takes the time at which its frame was sent, and keeps how long ago that was.
class Stopwatch : public tarn::iTarnMessageHandler
{
public:
    ~Stopwatch() noexcept override {}

    bool DispatchResponse(tarn::TarnMessage&) override
    {
        mMicroseconds.push_back(
            std::chrono::duration<double, std::micro>(Clock::now() - mSent.load()).count());
        mArrived.store(mMicroseconds.size(), std::memory_order_release);
        return false;
    }

    void Start() { mSent = Clock::now(); }

    void Await(std::size_t frames) const
    {
        while (mArrived.load(std::memory_order_acquire) < frames)
            std::this_thread::sleep_for(PAUSE);
    }

    std::vector<double> Sorted()
    {
        std::sort(mMicroseconds.begin(), mMicroseconds.end());
        return mMicroseconds;
    }

private:
    std::atomic<Clock::time_point> mSent{Clock::time_point()};
    std::atomic<std::size_t> mArrived{0};
    std::vector<double> mMicroseconds;
};

/// Keeps the second processor busy, with ordinary priority.
class Burner
{
public:
    Burner()
    {
        const bench::Pinned there(bench::SECOND_PROCESSOR);
        mThread = std::thread([this] {
            while (!mEnd.load(std::memory_order_relaxed))
                benchmark::ClobberMemory();
        });
    }

    ~Burner()
    {
        mEnd = true;
        mThread.join();
    }

    Burner(const Burner&) = delete;
    Burner& operator=(const Burner&) = delete;

private:
    std::atomic<bool> mEnd{false};
    std::thread mThread;
};

struct Nothing {
    Nothing() {}
};

std::vector<double> Measure()
{
    const auto bus = tarn::VirtualCanBus::Create();
    const auto sender = bus->Connect();
    const auto dispatcher = tarn::TarnAsyncDispatcher::Create(bus->Connect());
    Stopwatch stopwatch;
    dispatcher->SubscribeSource(bench::SOURCE, &stopwatch);
    dispatcher->Start();
    tarn::CanMessage frame = bench::DataFrame();
    for (unsigned int sent = 1; sent <= FRAMES; ++sent) {
        std::this_thread::sleep_for(PAUSE);
        stopwatch.Start();
        sender->Send(frame);
        stopwatch.Await(sent);
    }
    dispatcher->Stop();
    return stopwatch.Sorted();
}

template <typename Load, typename Scheduling>
void Report(const char* load, const char* scheduling)
{
    const Load others;
    const Scheduling mine;
    const std::vector<double> sorted = Measure();
    const auto at = [&](double share) {
        return sorted[static_cast<std::size_t>(share * static_cast<double>(sorted.size() - 1))];
    };
    std::printf("| %s | %s | %.0f | %.0f | %.0f | %.0f |\n", load, scheduling, at(0.5), at(0.99),
                at(0.999), sorted.back());
    std::fflush(stdout);
}

} // namespace

namespace bench
{

void ReportLatencies()
{
    std::printf("| other processor | priority | 50 %% | 99 %% | 99.9 %% | longest |\n");
    std::printf("|---|---|---|---|---|---|\n");
    Report<Nothing, Ordinary>("idle", "ordinary");
    Report<Nothing, RealTime>("idle", "real-time");
    Report<Burner, Ordinary>("busy", "ordinary");
    Report<Burner, RealTime>("busy", "real-time");
}

} // namespace bench
