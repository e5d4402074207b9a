#include "support/Await.h"
#include "support/DispatchFakes.h"

#include <tarn/TarnAsyncDispatcher.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <random>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

// To be run under ThreadSanitizer too: plain variables here are guarded by what the dispatcher
// promises, and by nothing else.

namespace
{

using namespace tarn;
using namespace tarn::test;

class LockedCanDispatcher : public iCanAsyncDispatcher
{
public:
    void Start(iCanMessageHandler*) override {}
    void Stop(iCanMessageHandler*) override {}
    void Send(CanMessage& frame) override
    {
        const std::lock_guard<std::mutex> lock(mMutex);
        mSent.push_back(frame.ToString());
    }

    std::mutex mMutex;
    std::vector<std::string> mSent;
};

class Concurrency : public testing::Test
{
protected:
    Concurrency()
        : mLower(new LockedCanDispatcher),
          mDispatcher(TarnAsyncDispatcher::Create(mLower))
    {
    }
    ~Concurrency() override { mDispatcher.reset(); }

    void Dispatch(CanMessage frame) { mDispatcher->DispatchResponse(frame); }

    static void OnThreads(int count, const std::function<void(int)>& body)
    {
        std::vector<std::thread> threads;
        for (int i = 0; i < count; ++i)
            threads.emplace_back([&body, i] { body(i); });
        for (auto& thread : threads)
            thread.join();
    }

    std::tr1::shared_ptr<LockedCanDispatcher> mLower;
    std::tr1::shared_ptr<TarnAsyncDispatcher> mDispatcher;
    std::string mUnused;
};

TEST_F(Concurrency, ASubscribeWaitsForTheWalkInProgress)
{
    for (int round = 0; round < 200; ++round) {
        Gate entered;
        Gate subscribing;
        std::string order; // guarded by the mutex of the source family
        RecordingHandler late("L", mUnused, [&](TarnMessage&) {
            order += "late";
            return false;
        });
        RecordingHandler slow("S", mUnused, [&](TarnMessage&) {
            entered.Open();
            subscribing.Pass();
            std::this_thread::yield();
            order += "walk ";
            return true;
        });
        mDispatcher->SubscribeSource(5, &slow);
        std::thread subscriber([&] {
            entered.Pass();
            subscribing.Open();
            mDispatcher->SubscribeSource(5, &late);
            order += "subscribed ";
            mDispatcher->UnsubscribeSource(5, &late);
        });
        Dispatch(DataFrame(5, 9));
        subscriber.join();
        EXPECT_EQ(order, "walk subscribed ");
    }
}

TEST_F(Concurrency, WalksOfOneFamilyRunOneAfterAnotherOnAllReceiveThreads)
{
    int source = 0; // each guarded by the mutex of its family
    int target = 0;
    int chcp = 0;
    int all = 0;
    const auto counting = [](int& count) {
        return [&count](TarnMessage&) {
            ++count;
            return false;
        };
    };
    RecordingHandler onSource("", mUnused, counting(source));
    RecordingHandler onTarget("", mUnused, counting(target));
    RecordingHandler onChcp("", mUnused, counting(chcp));
    RecordingHandler onAll("", mUnused, counting(all));
    mDispatcher->SubscribeSource(5, &onSource);
    mDispatcher->SubscribeSource(6, &onSource);
    mDispatcher->SubscribeTarget(9, &onTarget);
    mDispatcher->SubscribeChcp(&onChcp);
    mDispatcher->SubscribeAll(&onAll);
    OnThreads(4, [&](int thread) {
        for (int i = 0; i < 1000; ++i) {
            Dispatch(DataFrame(thread % 2 == 0 ? 5 : 6, 9));
            Dispatch(ChcpFrame(1));
        }
    });
    EXPECT_EQ(source, 4000);
    EXPECT_EQ(target, 4000);
    EXPECT_EQ(chcp, 4000);
    EXPECT_EQ(all, 8000);
}

TEST_F(Concurrency, ManyThreadsSendWhileFramesAreRouted)
{
    OnThreads(4, [&](int thread) {
        TarnMessage message;
        message.SetRegister(static_cast<unsigned char>(thread));
        for (int i = 0; i < 500; ++i) {
            mDispatcher->Send(message);
            Dispatch(DataFrame(5, 9));
        }
    });
    ASSERT_EQ(mLower->mSent.size(), 2000u);
    EXPECT_EQ(std::count(mLower->mSent.begin(), mLower->mSent.end(), "0F80C001#20"), 500)
        << "register 3 is 0xC000 in the identifier";
}

TEST_F(Concurrency, AHandlerMayBeDestroyedOnceItIsUnsubscribed)
{
    std::atomic<bool> done{false};
    std::thread receiver([&] {
        while (!done) {
            Dispatch(DataFrame(5, 9));
            Dispatch(ChcpFrame(1));
        }
    });
    OnThreads(2, [&](int) {
        for (int i = 0; i < 500; ++i) {
            bool alive = true; // on this stack: gone with the handler
            RecordingHandler shortLived("", mUnused, [&alive](TarnMessage&) { return !alive; });
            mDispatcher->SubscribeSource(5, &shortLived);
            mDispatcher->SubscribeTarget(9, &shortLived);
            mDispatcher->SubscribeChcp(&shortLived);
            mDispatcher->SubscribeAll(&shortLived);
            mDispatcher->UnsubscribeSource(5, &shortLived);
            mDispatcher->UnsubscribeTarget(9, &shortLived);
            mDispatcher->UnsubscribeChcp(&shortLived);
            mDispatcher->UnsubscribeAll(&shortLived);
            alive = false;
        }
    });
    done = true;
    receiver.join();
}

/// Changes its own family and the one behind it, dispatches and throws at random.
class RestlessHandler : public iTarnMessageHandler
{
public:
    RestlessHandler(TarnAsyncDispatcher& dispatcher, unsigned int seed)
        : mDispatcher(dispatcher),
          mRandom(seed)
    {
    }
    ~RestlessHandler() noexcept override {}

    bool DispatchResponse(TarnMessage&) override
    {
        // The source family alone calls this, so its mutex guards the members.
        switch (mRandom() % 8) {
        case 0:
            mDispatcher.UnsubscribeSource(5, this);
            return true;
        case 1:
            mDispatcher.UnsubscribeAll(this);
            return false;
        case 2:
            if (++mDepth < 3) {
                CanMessage frame = DataFrame(5, 9);
                mDispatcher.DispatchResponse(frame);
            }
            --mDepth;
            return false;
        case 3:
            throw std::runtime_error("restless");
        case 4:
            return true;
        default:
            return false;
        }
    }

private:
    TarnAsyncDispatcher& mDispatcher;
    std::mt19937 mRandom;
    int mDepth = 0;
};

TEST_F(Concurrency, RestlessHandlersOnManyThreadsBreakNothing)
{
    std::vector<std::unique_ptr<RestlessHandler>> handlers;
    for (unsigned int i = 0; i < 6; ++i)
        handlers.emplace_back(new RestlessHandler(*mDispatcher, i + 1));
    OnThreads(4, [&](int thread) {
        std::mt19937 random(static_cast<unsigned int>(thread));
        for (int i = 0; i < 1000; ++i) {
            RestlessHandler* const handler = handlers[random() % handlers.size()].get();
            mDispatcher->SubscribeSource(5, handler);
            try {
                Dispatch(DataFrame(5, 9));
            } catch (const std::runtime_error&) { // as told
            }
            mDispatcher->UnsubscribeSource(5, handlers[random() % handlers.size()].get());
        }
    });
    for (const auto& handler : handlers)
        mDispatcher->UnsubscribeSource(5, handler.get());
    Dispatch(DataFrame(5, 9));
}

} // namespace
