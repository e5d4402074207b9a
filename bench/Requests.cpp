#include "Clocks.h"
#include "Fakes.h"
#include "Path.h"
#include "Pinned.h"

#include <plexa_can/VirtualCanBus.h>
#include <tarn/TarnAsyncDispatcher.h>
#include <tarn/TarnSyncRequest.h>

#include <Poco/Event.h>

#include <atomic>
#include <condition_variable>
#include <cstdlib>
#include <memory>
#include <mutex>
#include <thread>
#include <type_traits>

// A request and its answer, beside two threads that only wake each other.

namespace
{

using bench::FIRST_PROCESSOR;
using bench::Ordinary;
using bench::Pinned;
using bench::RealTime;
using bench::SECOND_PROCESSOR;
using tarn::TarnAsyncDispatcher;
using tarn::TarnMessage;
using tarn::VirtualCanBus;

constexpr unsigned int BATCH = 64;

template <typename Clock, typename Operation>
void TimeRounds(benchmark::State& state, Operation&& operation)
{
    for (unsigned int round = 0; round < BATCH; ++round)
        operation();
    while (state.KeepRunningBatch(BATCH)) {
        const Clock start;
        for (unsigned int round = 0; round < BATCH; ++round)
            operation();
        state.SetIterationTime(start.Seconds());
    }
}

/// On one processor a round takes the time that its threads take together, since one of them always
/// runs; on two processors they also wait for each other.
template <unsigned int Processor>
using RoundTime =
    std::conditional_t<Processor == FIRST_PROCESSOR, bench::ProcessTime, bench::WallTime>;

/// A thread that sets one event whenever the other is set.
class Partner
{
public:
    explicit Partner(unsigned int processor)
    {
        const Pinned pinned(processor);
        mThread = std::thread([this] { Answer(); });
    }

    ~Partner()
    {
        mEnd = true;
        mPing.set();
        mThread.join();
    }

    Partner(const Partner&) = delete;
    Partner& operator=(const Partner&) = delete;

    void Round()
    {
        mPing.set();
        mPong.wait();
    }

private:
    void Answer()
    {
        for (mPing.wait(); !mEnd; mPing.wait())
            mPong.set();
    }

    Poco::Event mPing;
    Poco::Event mPong;
    std::atomic<bool> mEnd{false};
    std::thread mThread;
};

template <unsigned int Processor, typename Scheduling>
void PingPong(benchmark::State& state)
{
    const Scheduling scheduling;
    const Pinned pinned(FIRST_PROCESSOR);
    Partner partner(Processor);
    TimeRounds<RoundTime<Processor>>(state, [&] { partner.Round(); });
}

/// Answers every request with a U16 value.
class Device : public tarn::iTarnMessageHandler
{
public:
    explicit Device(std::tr1::shared_ptr<TarnAsyncDispatcher> dispatcher)
        : mDispatcher(std::move(dispatcher))
    {
    }
    ~Device() noexcept override {}

    bool DispatchResponse(TarnMessage& request) override
    {
        mAnswer.SetDirection(TarnMessage::DIRECTION_RESPONSE);
        mAnswer.SetRegister(request.GetRegister());
        mAnswer.SetSourceAddr(request.GetTargetAddr());
        mAnswer.SetTargetAddr(request.GetSourceAddr());
        mAnswer.SetData(mValues);
        mDispatcher->Send(mAnswer);
        return false;
    }

private:
    std::tr1::shared_ptr<TarnAsyncDispatcher> mDispatcher;
    TarnMessage mAnswer;
    std::vector<unsigned short> mValues = {0x1234};
};

/// A controller and a device on a virtual bus, whose threads run on one processor.
class Exchange
{
public:
    Exchange(VirtualCanBus::tDelivery delivery, unsigned int processor)
    {
        const Pinned pinned(processor);
        VirtualCanBus::Options options;
        options.delivery = delivery;
        const auto bus = VirtualCanBus::Create(options);
        mController = TarnAsyncDispatcher::Create(bus->Connect());
        mDeviceDispatcher = TarnAsyncDispatcher::Create(bus->Connect());
        mDevice = std::make_unique<Device>(mDeviceDispatcher);
        mDeviceDispatcher->SubscribeTarget(bench::TARGET, mDevice.get());
        mController->Start();
        mDeviceDispatcher->Start();
        mSync = tarn::TarnSyncRequest::Create(mController);
        mRequest.SetTargetAddr(bench::TARGET);
        mRequest.SetRegister(3);
    }

    ~Exchange()
    {
        mController->Stop();
        mDeviceDispatcher->Stop();
    }

    Exchange(const Exchange&) = delete;
    Exchange& operator=(const Exchange&) = delete;

    void Round()
    {
        constexpr unsigned int PATIENCE = 10000;
        if (!mSync->Send(mRequest, mResponse, PATIENCE))
            std::abort();
    }

private:
    std::tr1::shared_ptr<TarnAsyncDispatcher> mController;
    std::tr1::shared_ptr<TarnAsyncDispatcher> mDeviceDispatcher;
    std::unique_ptr<Device> mDevice;
    std::tr1::shared_ptr<tarn::TarnSyncRequest> mSync;
    TarnMessage mRequest;
    TarnMessage mResponse;
};

template <VirtualCanBus::tDelivery Delivery, unsigned int Processor, typename Scheduling>
void Request(benchmark::State& state)
{
    const Scheduling scheduling;
    const Pinned pinned(FIRST_PROCESSOR);
    Exchange exchange(Delivery, Processor);
    TimeRounds<RoundTime<Processor>>(state, [&] { exchange.Round(); });
}

/// A thread that waits until it is woken and then does its work, as the receive thread of a node.
template <typename Work>
class Hop
{
public:
    explicit Hop(Work work) : mWork(std::move(work)), mThread([this] { Run(); }) {}

    ~Hop()
    {
        mEnd = true;
        Wake();
        mThread.join();
    }

    Hop(const Hop&) = delete;
    Hop& operator=(const Hop&) = delete;

    void Wake()
    {
        {
            const std::lock_guard<std::mutex> lock(mMutex);
            mWoken = true;
        }
        mChanged.notify_one();
    }

private:
    void Run()
    {
        while (!mEnd) {
            {
                std::unique_lock<std::mutex> lock(mMutex);
                mChanged.wait(lock, [this] { return mWoken; });
                mWoken = false;
            }
            mWork();
        }
    }

    Work mWork;
    std::mutex mMutex;
    std::condition_variable mChanged;
    bool mWoken = false;
    std::atomic<bool> mEnd{false};
    std::thread mThread;
};

/// What the contract demands of a request on a bus with receive threads, and nothing else: to the
/// thread of the device, to that of the requester's node, and back by an event that is set under
/// the mutexes of the source handlers and of the response, both of which the requester takes too.
template <unsigned int Processor, typename Scheduling>
void BareRequest(benchmark::State& state)
{
    const Scheduling scheduling;
    const Pinned pinned(FIRST_PROCESSOR);
    Poco::Mutex source;
    Poco::Mutex response;
    Poco::Event answered;
    const auto onAnswer = [&] {
        const Poco::Mutex::ScopedLock sourceLock(source);
        const Poco::Mutex::ScopedLock responseLock(response);
        answered.set();
    };
    const auto start = [](auto work) {
        const Pinned there(Processor);
        return std::make_unique<Hop<decltype(work)>>(work);
    };
    const auto requesterNode = start(onAnswer);
    const auto deviceNode = start([&] { requesterNode->Wake(); });
    TimeRounds<RoundTime<Processor>>(state, [&] {
        {
            const Poco::Mutex::ScopedLock subscribe(source);
        }
        deviceNode->Wake();
        if (!answered.tryWait(10000))
            std::abort();
        const Poco::Mutex::ScopedLock copy(response);
    });
}

constexpr auto INLINE = VirtualCanBus::DELIVERY_INLINE;
constexpr auto THREADED = VirtualCanBus::DELIVERY_THREADED;

const bool added =
    bench::AddTimed("reference/ping_pong_one_core", PingPong<FIRST_PROCESSOR, RealTime>, true) &&
    bench::AddTimed("reference/ping_pong_one_core_ordinary", PingPong<FIRST_PROCESSOR, Ordinary>,
                    true) &&
    bench::AddTimed("reference/ping_pong_two_cores", PingPong<SECOND_PROCESSOR, Ordinary>, true) &&
    bench::AddTimed("bare/request_one_core", BareRequest<FIRST_PROCESSOR, RealTime>, true) &&
    bench::AddTimed("bare/request_one_core_ordinary", BareRequest<FIRST_PROCESSOR, Ordinary>,
                    true) &&
    bench::AddTimed("bare/request_two_cores", BareRequest<SECOND_PROCESSOR, Ordinary>, true) &&
    bench::AddTimed("request/inline", Request<INLINE, FIRST_PROCESSOR, RealTime>, true) &&
    bench::AddTimed("request/threaded_one_core", Request<THREADED, FIRST_PROCESSOR, RealTime>,
                    true) &&
    bench::AddTimed("request/threaded_one_core_ordinary",
                    Request<THREADED, FIRST_PROCESSOR, Ordinary>, true) &&
    bench::AddTimed("request/threaded_two_cores", Request<THREADED, SECOND_PROCESSOR, Ordinary>,
                    true);

} // namespace
