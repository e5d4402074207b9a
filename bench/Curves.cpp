#include "Clocks.h"
#include "Fakes.h"
#include "Path.h"

#include <tarn/TarnAsyncDispatcher.h>

#include <atomic>
#include <memory>
#include <string>
#include <thread>
#include <vector>

// How cost grows: with subscriptions, with the payload, with threads. For the plots.

namespace
{

using bench::FakeBus;
using tarn::CanMessage;
using tarn::TarnAsyncDispatcher;
using tarn::TarnMessage;

struct Connection {
    std::tr1::shared_ptr<FakeBus> bus{new FakeBus};
    std::tr1::shared_ptr<TarnAsyncDispatcher> dispatcher = TarnAsyncDispatcher::Create(bus);

    Connection() { dispatcher->Start(); }
};

/// One pass is a frame to a single handler, beside so many entries of another address.
void EntriesElsewhere(benchmark::State& state)
{
    Connection connection;
    bench::ReadsNothing handler;
    connection.dispatcher->SubscribeSource(bench::SOURCE, &handler);
    for (int entry = 0; entry < state.range(0); ++entry)
        connection.dispatcher->SubscribeSource(bench::SOURCE + 1, &handler);
    CanMessage frame = bench::DataFrame();
    for (auto _ : state)
        connection.bus->Receive(frame);
}

/// One pass is a frame to as many handlers.
void EntriesHere(benchmark::State& state)
{
    Connection connection;
    std::vector<bench::ReadsNothing> handlers(static_cast<std::size_t>(state.range(0)));
    for (bench::ReadsNothing& handler : handlers)
        connection.dispatcher->SubscribeSource(bench::SOURCE, &handler);
    CanMessage frame = bench::DataFrame();
    for (auto _ : state)
        connection.bus->Receive(frame);
}

void ReceivePayload(benchmark::State& state)
{
    Connection connection;
    bench::ReadsNothing handler;
    connection.dispatcher->SubscribeSource(bench::SOURCE, &handler);
    CanMessage frame = bench::DataFrame(static_cast<std::size_t>(state.range(0)));
    for (auto _ : state)
        connection.bus->Receive(frame);
}

void SendPayload(benchmark::State& state)
{
    Connection connection;
    TarnMessage message;
    std::vector<unsigned char> values(static_cast<std::size_t>(state.range(0)), 7);
    for (auto _ : state) {
        message.SetData(values);
        connection.dispatcher->Send(message);
    }
}

/// Every thread does its operations at once; one pass is one operation of all threads together.
template <typename Operation>
void ByThreads(benchmark::State& state, const Operation& operation)
{
    constexpr unsigned int BATCH = 20000;
    const auto count = static_cast<unsigned int>(state.range(0));
    while (state.KeepRunningBatch(BATCH)) {
        std::atomic<unsigned int> ready{0};
        std::atomic<bool> go{false};
        std::vector<std::thread> threads;
        for (unsigned int thread = 0; thread < count; ++thread)
            threads.emplace_back([&] {
                ++ready;
                while (!go)
                    std::this_thread::yield();
                operation(BATCH / count);
            });
        while (ready < count)
            std::this_thread::yield();
        const bench::WallTime start;
        go = true;
        for (std::thread& thread : threads)
            thread.join();
        state.SetIterationTime(start.Seconds());
    }
}

/// All threads hand frames to one dispatcher.
void DispatchByThreads(benchmark::State& state)
{
    Connection connection;
    bench::ReadsFourFields handler;
    connection.dispatcher->SubscribeSource(bench::SOURCE, &handler);
    ByThreads(state, [&](unsigned int times) {
        CanMessage frame = bench::DataFrame();
        for (unsigned int i = 0; i < times; ++i)
            connection.bus->Receive(frame);
    });
}

/// All threads send over one dispatcher, each its own message.
void SendByThreads(benchmark::State& state)
{
    Connection connection;
    ByThreads(state, [&](unsigned int times) {
        TarnMessage message;
        std::vector<unsigned short> values = {1, 2, 3};
        for (unsigned int i = 0; i < times; ++i) {
            message.SetData(values);
            connection.dispatcher->Send(message);
        }
    });
}

/// All threads send one and the same message.
void SendSameByThreads(benchmark::State& state)
{
    Connection connection;
    TarnMessage message;
    ByThreads(state, [&](unsigned int times) {
        for (unsigned int i = 0; i < times; ++i)
            connection.dispatcher->Send(message);
    });
}

} // namespace

namespace bench
{

void AddCurves()
{
    for (const int entries : {1, 3, 10, 30, 100, 300, 1000, 3000, 10000}) {
        benchmark::RegisterBenchmark("curve/entries_elsewhere", EntriesElsewhere)->Arg(entries);
        benchmark::RegisterBenchmark("curve/entries_here", EntriesHere)->Arg(entries);
    }
    for (int bytes = 0; bytes <= 6; ++bytes)
        benchmark::RegisterBenchmark("curve/receive_payload", ReceivePayload)->Arg(bytes);
    for (int bytes = 1; bytes <= 6; ++bytes)
        benchmark::RegisterBenchmark("curve/send_payload", SendPayload)->Arg(bytes);
    for (const int threads : {1, 2, 4}) {
        for (const auto& [name, function] :
             {std::pair{"curve/dispatch_threads", DispatchByThreads},
              std::pair{"curve/send_threads", SendByThreads},
              std::pair{"curve/send_same_threads", SendSameByThreads}})
            benchmark::RegisterBenchmark(name, function)->Arg(threads)->UseManualTime();
    }
}

} // namespace bench
