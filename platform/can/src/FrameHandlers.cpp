#include "FrameHandlers.h"

#include "LogSafely.h"

#include <plexa_can/CanMessage.h>
#include <plexa_can/iCanMessageHandler.h>

#include <algorithm>
#include <cxxabi.h>
#include <new>
#include <utility>

namespace tarn
{

/// Releases the lock while a handler runs, and keeps the call in the list of running ones. An
/// object, because a handler can also be left by the cancellation of its thread.
class FrameHandlers::RunningCall
{
public:
    RunningCall(FrameHandlers& owner, SteadyLock& lock, const iCanMessageHandler* handler)
        : mOwner(owner),
          mLock(lock),
          mCall{handler, std::this_thread::get_id(), owner.mCalls}
    {
        mOwner.mCalls = &mCall;
        mLock.unlock();
    }

    ~RunningCall()
    {
        mLock.lock();
        Call** link = &mOwner.mCalls;
        while (*link != &mCall)
            link = &(*link)->outer;
        *link = mCall.outer;
        if (mOwner.mWaiting != 0)
            mOwner.mCallEnded.notify_all();
    }

    RunningCall(const RunningCall&) = delete;
    RunningCall& operator=(const RunningCall&) = delete;

private:
    FrameHandlers& mOwner;
    SteadyLock& mLock;
    Call mCall;
};

/// Sweeps up removed handlers when the last walk ends.
class FrameHandlers::Walk
{
public:
    explicit Walk(FrameHandlers& owner) : mOwner(owner) { ++mOwner.mWalks; }

    ~Walk()
    {
        if (--mOwner.mWalks == 0)
            mOwner.SweepUp();
    }

    Walk(const Walk&) = delete;
    Walk& operator=(const Walk&) = delete;

private:
    FrameHandlers& mOwner;
};

FrameHandlers::FrameHandlers(const char* loggerName) : mLoggerName(loggerName) {}

void FrameHandlers::Add(iCanMessageHandler* handler)
{
    const SteadyLock lock(mMutex);
    if (std::find(mHandlers.begin(), mHandlers.end(), handler) == mHandlers.end())
        mHandlers.push_back(handler);
}

void FrameHandlers::Remove(const iCanMessageHandler* handler)
{
    SteadyLock lock(mMutex);
    const auto entry = std::find(mHandlers.begin(), mHandlers.end(), handler);
    if (entry != mHandlers.end())
        *entry = nullptr;
    if (mWalks == 0)
        SweepUp();
    AwaitEndOfCalls(lock, handler);
}

void FrameHandlers::RemoveAll()
{
    SteadyLock lock(mMutex);
    std::fill(mHandlers.begin(), mHandlers.end(), nullptr);
    AwaitEndOfCalls(lock, nullptr);
    // Calls that have ended meanwhile may have added handlers.
    std::fill(mHandlers.begin(), mHandlers.end(), nullptr);
    if (mWalks == 0)
        SweepUp();
}

/// Also of a handler that is in the list no longer: it may have removed itself in the call.
void FrameHandlers::AwaitEndOfCalls(SteadyLock& lock, const iCanMessageHandler* handler)
{
    if (IsRunning(handler, true))
        return;
    ++mWaiting;
    mCallEnded.wait(lock, [&] { return !IsRunning(handler, false); });
    --mWaiting;
}

void FrameHandlers::SweepUp()
{
    mHandlers.erase(std::remove(mHandlers.begin(), mHandlers.end(), nullptr), mHandlers.end());
}

bool FrameHandlers::IsEmpty() const
{
    const SteadyLock lock(mMutex);
    return std::all_of(mHandlers.begin(), mHandlers.end(),
                       [](const iCanMessageHandler* handler) { return handler == nullptr; });
}

void FrameHandlers::BeginGeneration()
{
    const SteadyLock lock(mMutex);
    ++mGeneration;
}

unsigned int FrameHandlers::Generation() const
{
    const SteadyLock lock(mMutex);
    return mGeneration;
}

FrameHandlers::Outcome FrameHandlers::Deliver(const CanMessage& frame, unsigned int generation)
{
    Outcome outcome;
    SteadyLock lock(mMutex);
    if (generation != mGeneration)
        return outcome;
    const Walk walk(*this);
    const std::size_t count = mHandlers.size();
    for (std::size_t i = 0; i < count; ++i) {
        iCanMessageHandler* const handler = mHandlers[i];
        if (handler == nullptr)
            continue;
        const RunningCall call(*this, lock, handler);
        ++outcome.calls;
        if (!Invoke(*handler, frame))
            ++outcome.exceptions;
    }
    return outcome;
}

bool FrameHandlers::Invoke(iCanMessageHandler& handler, const CanMessage& frame)
{
    try {
        CanMessage copy(frame);
        handler.DispatchResponse(copy);
        return true;
    } catch (const abi::__forced_unwind&) {
        throw; // the thread is being cancelled
    } catch (...) {
        ReportPresentException();
    }
    return false;
}

void FrameHandlers::ReportPresentException()
{
    try {
        const std::string text = TextOfPresentException();
        if (!WasJustLogged(text))
            LogSafely(mLoggerName, Poco::Message::PRIO_ERROR, "A frame handler threw: " + text);
    } catch (const std::bad_alloc&) { // no memory to say it; it is counted all the same
    }
}

/// A handler that throws at every frame must not fill the log: the same text counts once a second.
bool FrameHandlers::WasJustLogged(const std::string& text)
{
    const SteadyLock lock(mLogMutex);
    const auto now = std::chrono::steady_clock::now();
    if (text == mLoggedText && now - mLoggedAt < std::chrono::seconds(1))
        return true;
    mLoggedText = text;
    mLoggedAt = now;
    return false;
}

bool FrameHandlers::IsRunning(const iCanMessageHandler* handler, bool onThisThread) const
{
    for (const Call* call = mCalls; call != nullptr; call = call->outer) {
        if ((handler == nullptr || call->handler == handler) &&
            (!onThisThread || call->thread == std::this_thread::get_id()))
            return true;
    }
    return false;
}

} // namespace tarn
