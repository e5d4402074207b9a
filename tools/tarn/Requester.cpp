#include "Requester.h"

#include "FrameQueue.h"
#include "StopSignal.h"

#include <tarn/TarnAsyncDispatcher.h>
#include <tarn/TarnSyncRequest.h>

#include <atomic>
#include <condition_variable>
#include <exception>
#include <mutex>
#include <sys/eventfd.h>
#include <unistd.h>

namespace tarn::tool
{

namespace
{

using Clock = std::chrono::steady_clock;

/// How long the end waits for a running request.
constexpr std::chrono::milliseconds MOMENT(200);

std::atomic<bool> gLeftAny{false};

} // namespace

/// Shared with the thread, which may outlive the Requester.
struct Requester::State {
    State(std::tr1::shared_ptr<iCanAsyncDispatcher> bus, Plan plan)
        : mPlan(std::move(plan)),
          mDispatcher(TarnAsyncDispatcher::Create(std::move(bus))),
          mRequest(TarnSyncRequest::Create(mDispatcher))
    {
        mDispatcher->Start();
    }
    ~State()
    {
        mDispatcher->Stop();
        ::close(mWakeUp);
    }
    State(const State&) = delete;
    State& operator=(const State&) = delete;

    void Run()
    {
        std::exception_ptr failure;
        try {
            RunRounds();
        } catch (...) {
            failure = std::current_exception();
        }
        const std::lock_guard<std::mutex> lock(mMutex);
        mFailure = failure;
        mDone = true;
        mChanged.notify_all();
        ::eventfd_write(mWakeUp, 1);
    }

    void RunRounds()
    {
        Clock::time_point begin = Clock::now();
        for (std::uint64_t round = 0; mPlan.rounds == 0 || round < mPlan.rounds; ++round) {
            for (TarnMessage& request : mPlan.requests) {
                if (IsStopped())
                    return;
                Publish(Ask(request));
            }
            begin = std::max(begin + mPlan.interval, Clock::now());
            std::unique_lock<std::mutex> lock(mMutex);
            if (round + 1 != mPlan.rounds)
                mChanged.wait_until(lock, begin, [this] { return mStopped; });
        }
    }

    RequestResult Ask(TarnMessage& request)
    {
        RequestResult result;
        result.request = request;
        for (unsigned int attempt = 0; attempt <= mPlan.retries && !result.answered; ++attempt) {
            const Clock::time_point sent = Clock::now();
            result.answered = mRequest->Send(request, result.response, mPlan.timeout);
            result.latency = Clock::now() - sent;
        }
        result.time = TimeOfDay();
        return result;
    }

    void Publish(RequestResult result)
    {
        const std::lock_guard<std::mutex> lock(mMutex);
        mResults.push_back(std::move(result));
        ::eventfd_write(mWakeUp, 1);
    }

    /// @return false when a request is still running
    bool StopWithin(std::chrono::milliseconds patience)
    {
        std::unique_lock<std::mutex> lock(mMutex);
        mStopped = true;
        mChanged.notify_all();
        return mChanged.wait_for(lock, patience, [this] { return mDone; });
    }

    bool IsStopped()
    {
        const std::lock_guard<std::mutex> lock(mMutex);
        return mStopped;
    }

    Plan mPlan;
    std::tr1::shared_ptr<iTarnAsyncDispatcher> mDispatcher;
    std::tr1::shared_ptr<TarnSyncRequest> mRequest;
    const int mWakeUp = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    std::mutex mMutex;
    std::condition_variable mChanged;
    std::vector<RequestResult> mResults;
    std::exception_ptr mFailure;
    bool mStopped = false;
    bool mDone = false;
};

Requester::Requester(std::tr1::shared_ptr<iCanAsyncDispatcher> bus, Plan plan)
    : mState(std::make_shared<State>(std::move(bus), std::move(plan))),
      mThread([state = mState] { state->Run(); })
{
}

Requester::~Requester()
{
    End();
}

void Requester::End()
{
    if (!mThread.joinable())
        return;
    if (mState->StopWithin(MOMENT)) {
        mThread.join();
    } else {
        gLeftAny = true;
        mThread.detach();
    }
}

bool Requester::HasLeftAny()
{
    return gLeftAny;
}

bool Requester::TakeResults(const std::function<void(const RequestResult&)>& take)
{
    bool goOn = WaitForInput(mState->mWakeUp);
    std::vector<RequestResult> results;
    {
        const std::lock_guard<std::mutex> lock(mState->mMutex);
        eventfd_t wakeUps = 0;
        ::eventfd_read(mState->mWakeUp, &wakeUps);
        results.swap(mState->mResults);
        goOn = goOn && !mState->mDone;
        if (mState->mDone && mState->mFailure)
            std::rethrow_exception(mState->mFailure);
    }
    for (const RequestResult& result : results)
        take(result);
    return goOn;
}

} // namespace tarn::tool
