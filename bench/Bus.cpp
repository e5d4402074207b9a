#include "Clocks.h"
#include "Fakes.h"
#include "Path.h"

#include <plexa_can/VirtualCanBus.h>

#include <atomic>
#include <thread>

// Frames through a threaded virtual bus, from one sender to one consumer.

namespace
{

class Counter : public tarn::iCanMessageHandler
{
public:
    ~Counter() noexcept override {}

    void DispatchResponse(tarn::CanMessage& frame) override
    {
        benchmark::DoNotOptimize(frame);
        mCount.store(mCount.load(std::memory_order_relaxed) + 1, std::memory_order_release);
    }

    void Await(unsigned long count) const
    {
        while (mCount.load(std::memory_order_acquire) < count)
            std::this_thread::yield();
    }

private:
    std::atomic<unsigned long> mCount{0};
};

/// One pass is one frame.
void Throughput(benchmark::State& state)
{
    constexpr unsigned int BATCH = 20000;
    const auto bus = tarn::VirtualCanBus::Create();
    const auto sender = bus->Connect();
    const auto receiver = bus->Connect();
    Counter counter;
    receiver->Start(&counter);
    tarn::CanMessage frame = bench::DataFrame();
    unsigned long sent = 0;
    while (state.KeepRunningBatch(BATCH)) {
        const bench::WallTime start;
        for (unsigned int i = 0; i < BATCH; ++i)
            sender->Send(frame);
        sent += BATCH;
        counter.Await(sent);
        state.SetIterationTime(start.Seconds());
    }
    receiver->Stop(&counter);
}

const bool added = bench::AddTimed("bus/threaded_frame", Throughput, true);

} // namespace
