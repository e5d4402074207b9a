#ifndef TESTS_STRESS_SCENE_H
#define TESTS_STRESS_SCENE_H

#include <plexa_can/iCanBus.h>
#include <tarn/iTarnAsyncDispatcher.h>
#include <tarn/iTarnMessageHandler.h>

#include <atomic>
#include <functional>
#include <memory>
#include <string>
#include <tr1/memory>
#include <vector>

namespace tarn::stress
{

/// The families of subscriptions, in the order in which handlers of several receive threads may
/// change them.
enum tFamily : unsigned int { SOURCE, TARGET, CHCP, ALL };
constexpr unsigned int FAMILIES = 4;

/// How a dispatcher is used.
struct Usage {
    /// Application threads dispatch frames too, beside the receive thread of the bus.
    bool manyReceiveThreads = false;
    /// With one receive thread: handlers change any family and dispatch frames of their own. Takes
    /// locks in every order, which is no fault with one receive thread.
    bool anyOrder = false;
    /// CHCP frames and handlers too. Not of the mock: its CHCP list is not for several threads.
    bool chcp = true;
};

class Scene;

/// A handler that does at random what a handler may do.
class Actor : public iTarnMessageHandler
{
public:
    Actor(Scene& scene, tFamily family, unsigned char address)
        : mScene(scene),
          mFamily(family),
          mAddress(address)
    {
    }
    ~Actor() noexcept override {}

    bool DispatchResponse(TarnMessage& message) override;

    /// Unless it is subscribed.
    void Subscribe();
    void Unsubscribe();
    tFamily Family() const { return mFamily; }

private:
    Scene& mScene;
    const tFamily mFamily;
    const unsigned char mAddress;
    std::atomic<bool> mSubscribed{false};
};

/// A dispatcher with its bus, its handlers, and what is known of them.
class Scene
{
public:
    using Dispatch = std::function<void(CanMessage&)>;

    /// @param bus the connection under the dispatcher; empty for the mock
    Scene(std::string name, std::tr1::shared_ptr<iCanBus> bus, const Usage& usage);
    ~Scene();
    Scene(const Scene&) = delete;
    Scene& operator=(const Scene&) = delete;

    /// One thing that an application may do, on the calling thread.
    void ActAsApplication();

    /// From now on handlers only count.
    void CalmDown() { mCalm = true; }

    /// What is wrong with the figures now that nothing is under way; empty when all is right.
    std::string Complaint();

    /// For the handlers.
    bool ActAsHandler(tFamily family, bool& leaves);
    void SubscribeTo(tFamily family, unsigned char address, iTarnMessageHandler* handler);
    void UnsubscribeFrom(tFamily family, unsigned char address, iTarnMessageHandler* handler);

    unsigned long long Calls() const { return mCalls; }

private:
    class CountingBus;
    class Visitor;

    CanMessage AnyFrame() const;
    void SendSomething();
    void DispatchAsReceiver();
    void DispatchNested();
    void Ask();
    void Visit();
    void Restart();
    Actor& AnyActor(tFamily first);

    const std::string mName;
    const std::tr1::shared_ptr<iCanBus> mBus;
    const Usage mUsage;
    std::tr1::shared_ptr<CountingBus> mCounting;
    std::tr1::shared_ptr<iTarnAsyncDispatcher> mDispatcher;
    Dispatch mDispatch;
    std::vector<std::unique_ptr<Actor>> mActors;
    std::atomic<bool> mCalm{false};
    std::atomic<unsigned long long> mCalls{0};
    std::atomic<unsigned long long> mThrown{0};
    std::atomic<unsigned long long> mCaught{0};
};

} // namespace tarn::stress

#endif
