#include "stress/Scene.h"

#include "stress/Random.h"
#include "support/DispatchFakes.h"

#include <plexa_can/CanException.h>
#include <tarn/TarnAsyncDispatcher.h>
#include <tarn/TarnAsyncDispatcherMock.h>
#include <tarn/TarnSyncRequest.h>

#include <stdexcept>
#include <thread>
#include <utility>

namespace tarn::stress
{

namespace
{

constexpr unsigned int ADDRESSES = 3;
constexpr unsigned int ACTORS_OF_A_FAMILY = 6;
constexpr int DEEPEST = 3;

/// What handlers throw.
struct Thrown : std::runtime_error {
    using std::runtime_error::runtime_error;
};

unsigned char AnyAddress()
{
    return static_cast<unsigned char>(1 + Chance(ADDRESSES));
}

/// How many frames are being dispatched by this thread, one inside the other.
thread_local int tDepth = 0;

} // namespace

bool Actor::DispatchResponse(TarnMessage& message)
{
    const TarnMessage copy(message);
    bool leaves = false;
    if (mScene.ActAsHandler(mFamily, leaves) && leaves)
        mSubscribed = false;
    return leaves;
}

void Actor::Subscribe()
{
    if (!mSubscribed.exchange(true))
        mScene.SubscribeTo(mFamily, mAddress, this);
}

void Actor::Unsubscribe()
{
    mScene.UnsubscribeFrom(mFamily, mAddress, this);
    mSubscribed = false;
}

/// Counts the frames that are given to the bus.
class Scene::CountingBus : public iCanAsyncDispatcher
{
public:
    explicit CountingBus(std::tr1::shared_ptr<iCanBus> bus) : mBus(std::move(bus)) {}

    void Start(iCanMessageHandler* handler) override { mBus->Start(handler); }
    void Stop(iCanMessageHandler* handler) override { mBus->Stop(handler); }
    void Send(CanMessage& frame) override
    {
        ++mSends;
        mBus->Send(frame);
    }

    std::atomic<unsigned long long> mSends{0};

private:
    const std::tr1::shared_ptr<iCanBus> mBus;
};

/// Subscribed for a moment by one thread, then destroyed: a call that came later would be seen.
class Scene::Visitor : public iTarnMessageHandler
{
public:
    ~Visitor() noexcept override { mCalls = 0; }
    bool DispatchResponse(TarnMessage&) override
    {
        ++mCalls; // guarded by the mutex of its family
        return false;
    }

private:
    unsigned long mCalls = 0;
};

Scene::Scene(std::string name, std::tr1::shared_ptr<iCanBus> bus, const Usage& usage)
    : mName(std::move(name)),
      mBus(std::move(bus)),
      mUsage(usage)
{
    if (mBus) {
        mCounting.reset(new CountingBus(mBus));
        const auto dispatcher = TarnAsyncDispatcher::Create(mCounting);
        mDispatcher = dispatcher;
        mDispatch = [dispatcher](CanMessage& frame) { dispatcher->DispatchResponse(frame); };
    } else {
        const auto mock = TarnAsyncDispatcherMock::Create();
        mDispatcher = mock;
        mDispatch = [mock](CanMessage& frame) { mock->DispatchResponse(frame); };
    }
    for (unsigned int i = 0; i < FAMILIES * ACTORS_OF_A_FAMILY; ++i) {
        const auto address = static_cast<unsigned char>(1 + i % ADDRESSES);
        mActors.push_back(
            std::make_unique<Actor>(*this, static_cast<tFamily>(i % FAMILIES), address));
    }
    mDispatcher->Start();
}

Scene::~Scene()
{
    mDispatcher->Stop();
}

void Scene::SubscribeTo(tFamily family, unsigned char address, iTarnMessageHandler* handler)
{
    switch (family) {
    case SOURCE:
        return mDispatcher->SubscribeSource(address, handler);
    case TARGET:
        return mDispatcher->SubscribeTarget(address, handler);
    case CHCP:
        return mUsage.chcp ? mDispatcher->SubscribeChcp(handler) : void();
    case ALL:
        return mDispatcher->SubscribeAll(handler);
    }
}

void Scene::UnsubscribeFrom(tFamily family, unsigned char address, iTarnMessageHandler* handler)
{
    switch (family) {
    case SOURCE:
        return mDispatcher->UnsubscribeSource(address, handler);
    case TARGET:
        return mDispatcher->UnsubscribeTarget(address, handler);
    case CHCP:
        return mUsage.chcp ? mDispatcher->UnsubscribeChcp(handler) : void();
    case ALL:
        return mDispatcher->UnsubscribeAll(handler);
    }
}

CanMessage Scene::AnyFrame() const
{
    if (mUsage.chcp && Chance(3) == 0)
        return test::ChcpFrame(Chance(5));
    return test::DataFrame(AnyAddress(), AnyAddress());
}

/// One of the families from the first on.
Actor& Scene::AnyActor(tFamily first)
{
    const unsigned int family = first + Chance(FAMILIES - first);
    return *mActors[family + FAMILIES * Chance(ACTORS_OF_A_FAMILY)];
}

void Scene::SendSomething()
{
    CanMessage frame = AnyFrame();
    TarnMessage message(frame);
    try {
        mDispatcher->Send(message);
    } catch (const CanException&) {
        // a full queue; the bus counts it
    }
}

void Scene::DispatchAsReceiver()
{
    CanMessage frame = AnyFrame();
    try {
        mDispatch(frame);
    } catch (const Thrown&) {
        ++mCaught;
    }
}

void Scene::DispatchNested()
{
    CanMessage frame = AnyFrame();
    mDispatch(frame);
}

/// Asks a device that nobody plays, so that the answer is mostly missing, and sometimes somebody
/// else's frame.
void Scene::Ask()
{
    const auto request = TarnSyncRequest::Create(mDispatcher);
    TarnMessage question;
    question.SetTargetAddr(AnyAddress());
    TarnMessage answer;
    try {
        request->Send(question, answer, Chance(3));
    } catch (const CanException&) {
        // a full queue; the bus counts it
    }
}

void Scene::Visit()
{
    const auto family = static_cast<tFamily>(Chance(FAMILIES));
    const unsigned char address = AnyAddress();
    const auto visitor = std::make_unique<Visitor>();
    SubscribeTo(family, address, visitor.get());
    for (unsigned int i = Chance(4); i > 0; --i)
        std::this_thread::yield();
    UnsubscribeFrom(family, address, visitor.get());
}

void Scene::Restart()
{
    mDispatcher->Stop();
    mDispatcher->Start();
}

void Scene::ActAsApplication()
{
    switch (Chance(16)) {
    case 0:
    case 1:
        return AnyActor(SOURCE).Unsubscribe();
    case 2:
    case 3:
        return Visit();
    case 4:
        return Ask();
    case 5:
        return Chance(8) == 0 ? Restart() : Visit();
    case 6:
    case 7:
    case 8:
    case 9:
        if (mUsage.manyReceiveThreads || !mBus)
            return DispatchAsReceiver();
        return SendSomething();
    case 10:
    case 11:
    case 12:
        return SendSomething();
    default:
        return AnyActor(SOURCE).Subscribe();
    }
}

/// @return false when it did nothing
bool Scene::ActAsHandler(tFamily family, bool& leaves)
{
    ++mCalls;
    if (mCalm)
        return false;
    const bool free = mUsage.anyOrder && !mUsage.manyReceiveThreads;
    const tFamily first = free ? SOURCE : family;
    switch (Chance(32)) {
    case 0:
    case 1:
        AnyActor(first).Subscribe();
        break;
    case 2:
    case 3:
        AnyActor(first).Unsubscribe();
        break;
    case 4:
    case 5:
        leaves = true;
        break;
    case 6:
        ++mThrown;
        throw Thrown("as a handler may");
    case 7:
        SendSomething();
        break;
    case 8:
        if (free && tDepth < DEEPEST) {
            struct Deeper {
                Deeper() { ++tDepth; }
                ~Deeper() { --tDepth; }
            } deeper;
            DispatchNested();
        }
        break;
    case 9:
        std::this_thread::yield();
        break;
    default:
        return false;
    }
    return true;
}

std::string Scene::Complaint()
{
    // Whoever gets this has got through the locks of all families.
    Visitor last;
    for (unsigned int family = SOURCE; family <= ALL; ++family) {
        SubscribeTo(static_cast<tFamily>(family), 1, &last);
        UnsubscribeFrom(static_cast<tFamily>(family), 1, &last);
    }
    CanBusCounters bus;
    if (mBus)
        bus = mBus->GetCounters();
    std::string text;
    const auto expect = [&](const char* what, unsigned long long left, unsigned long long right) {
        if (left != right)
            text += mName + ": " + what + ": " + std::to_string(left) + " and " +
                    std::to_string(right) + "\n";
    };
    expect("exceptions thrown, and caught or counted", mThrown, mCaught + bus.handlerExceptions);
    expect("frames received, and accounted for", bus.received,
           bus.delivered + bus.unheard + bus.filtered);
    if (mCounting)
        expect("calls of Send, and accounted for", mCounting->mSends, bus.sent + bus.sendFailures);
    return text;
}

} // namespace tarn::stress
