#ifndef TESTS_FAULTS_WORLD_H
#define TESTS_FAULTS_WORLD_H

#include "dispatch/HandlerFamilies.h"
#include "support/DispatchFakes.h"

#include <plexa_common/LoggerMutex.h>
#include <tarn/TarnAsyncDispatcher.h>
#include <tarn/TarnAsyncDispatcherMock.h>
#include <tarn/TarnSyncRequest.h>

#include <functional>
#include <future>
#include <string>
#include <thread>
#include <type_traits>
#include <utility>

namespace tarn::test
{

// The objects that faults are tried on. The fakes among them lock nothing, and allocate nothing
// once they are built, so that every fault hits the library.

/// A connection that delivers what it was told to, on Send.
class PlainBus : public iCanAsyncDispatcher
{
public:
    void Start(iCanMessageHandler* handler) override { mHandler = handler; }
    void Stop(iCanMessageHandler*) override { mHandler = nullptr; }

    void Send(CanMessage&) override
    {
        ++mSent;
        if (mHandler != nullptr && mAnswer != nullptr)
            mHandler->DispatchResponse(*mAnswer);
    }

    iCanMessageHandler* mHandler = nullptr;
    CanMessage* mAnswer = nullptr;
    int mSent = 0;
};

/// A dispatcher of another make under a synchronous request; delivers the answer on Send.
class PlainDispatcher : public iTarnAsyncDispatcher
{
public:
    void Start() override {}
    void Stop() override {}
    void Send(TarnMessage&) override
    {
        if (mAnswer != nullptr && mHandler->DispatchResponse(*mAnswer))
            mHandler = nullptr;
    }
    void SubscribeSource(unsigned char, iTarnMessageHandler* handler) override
    {
        mHandler = handler;
    }
    void UnsubscribeSource(unsigned char, iTarnMessageHandler*) override { mHandler = nullptr; }
    void SubscribeTarget(unsigned char, iTarnMessageHandler*) override {}
    void UnsubscribeTarget(unsigned char, iTarnMessageHandler*) override {}
    void SubscribeChcp(iTarnMessageHandler*) override {}
    void UnsubscribeChcp(iTarnMessageHandler*) override {}
    void SubscribeAll(iTarnMessageHandler*) override {}
    void UnsubscribeAll(iTarnMessageHandler*) override {}

    iTarnMessageHandler* mHandler = nullptr;
    TarnMessage* mAnswer = nullptr;
};

/// READ of register 0x11 at address 9, from address 1.
inline TarnMessage Request()
{
    TarnMessage request;
    request.SetTargetAddr(9);
    request.SetRegister(0x11);
    return request;
}

inline TarnMessage Answer()
{
    TarnMessage answer = Request();
    answer.SetDirection(TarnMessage::DIRECTION_RESPONSE);
    answer.SetSourceAddr(9);
    answer.SetTargetAddr(1);
    answer.SetRStatus(TarnMessage::STATUS_OPERATING);
    return answer;
}

struct World {
    ~World() noexcept(false)
    {
        Delete(request);
        Delete(mock);
        Delete(dispatcher);
    }

    template <typename Object>
    static void Delete(Object*& object)
    {
        delete std::exchange(object, nullptr);
    }

    /// The dispatcher or the mock.
    template <typename Dispatcher>
    Dispatcher*& The()
    {
        if constexpr (std::is_same_v<Dispatcher, TarnAsyncDispatcher>)
            return dispatcher;
        else
            return mock;
    }

    std::tr1::shared_ptr<PlainBus> bus{new PlainBus};
    std::tr1::shared_ptr<PlainDispatcher> plain{new PlainDispatcher};
    TarnAsyncDispatcher* dispatcher = nullptr;
    TarnAsyncDispatcherMock* mock = nullptr;
    TarnSyncRequest* request = nullptr;
    std::tr1::shared_ptr<iTarnAsyncDispatcher> kept;
    std::tr1::shared_ptr<TarnSyncRequest> keptRequest;

    std::string calls;
    RecordingHandler a{"A", calls};
    RecordingHandler b{"B", calls};
    RecordingHandler c{"C", calls};
    RecordingHandler d{"D", calls};
    CanMessage data = DataFrame(5, 9);
    CanMessage chcp = ChcpFrame(5);
    CanMessage noTarn;
    CanMessage answerFrame = Answer().RawMessage();
    TarnMessage asked = Request();
    TarnMessage answer = Answer();
    TarnMessage got;
};

template <typename Family, typename Dispatcher>
std::size_t Subscriptions(Dispatcher& dispatcher)
{
    if constexpr (std::is_same_v<Family, HandlerFamilies::Source>)
        return Family::Lists(dispatcher)[5].size();
    else if constexpr (std::is_same_v<Family, HandlerFamilies::Target>)
        return Family::Lists(dispatcher)[9].size();
    else
        return Family::Lists(dispatcher)->size();
}

/// Every operation of a dispatcher, leaving its subscriptions of c and d gone.
template <typename Dispatcher>
void UseAll(World& world, Dispatcher& dispatcher)
{
    dispatcher.Start();
    dispatcher.Send(world.asked);
    dispatcher.Stop();
    dispatcher.SubscribeSource(5, &world.c);
    dispatcher.SubscribeTarget(9, &world.c);
    dispatcher.SubscribeChcp(&world.c);
    dispatcher.SubscribeAll(&world.c);
    dispatcher.DispatchResponse(world.data);
    dispatcher.DispatchResponse(world.chcp);
    dispatcher.UnsubscribeSource(5, &world.c);
    dispatcher.UnsubscribeTarget(9, &world.c);
    dispatcher.UnsubscribeChcp(&world.c);
    dispatcher.UnsubscribeAll(&world.c);
}

inline void UseEverything(World& world)
{
    GetLoggerMutex().lock();
    GetLoggerMutex().unlock();
    if (world.dispatcher != nullptr && world.bus)
        UseAll(world, *world.dispatcher);
    if (world.mock != nullptr)
        UseAll(world, *world.mock);
    if (world.request != nullptr) {
        world.request->DispatchResponse(world.answer);
        world.request->Send(world.asked, world.got, 0);
        world.request->DispatchResponse(world.asked);
    }
}

/// True when another thread gets through every operation: no lock is held any more.
inline bool NoLockIsHeld(World& world)
{
    std::packaged_task<void()> task([&world] { UseEverything(world); });
    std::future<void> done = task.get_future();
    std::thread other(std::move(task));
    if (done.wait_for(std::chrono::seconds(20)) != std::future_status::ready) {
        other.detach();
        return false;
    }
    other.join();
    done.get();
    return true;
}

} // namespace tarn::test

#endif
