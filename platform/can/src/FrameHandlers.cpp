#include "FrameHandlers.h"

#include <plexa_can/CanMessage.h>
#include <plexa_can/iCanMessageHandler.h>

#include <Poco/Exception.h>
#include <Poco/Logger.h>

#include <algorithm>
#include <cxxabi.h>
#include <utility>

namespace tarn
{

/// Releases the lock while a handler runs, and keeps the call in the list of running ones. An
/// object, because a handler can also be left by the cancellation of its thread.
class FrameHandlers::RunningCall
{
public:
    RunningCall(FrameHandlers& owner, std::unique_lock<std::mutex>& lock,
                const iCanMessageHandler* handler)
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
        mOwner.mCallEnded.notify_all();
    }

    RunningCall(const RunningCall&) = delete;
    RunningCall& operator=(const RunningCall&) = delete;

private:
    FrameHandlers& mOwner;
    std::unique_lock<std::mutex>& mLock;
    Call mCall;
};

/// Sweeps up removed handlers when the last walk ends.
class FrameHandlers::Walk
{
public:
    explicit Walk(FrameHandlers& owner) : mOwner(owner) { ++mOwner.mWalks; }

    ~Walk()
    {
        auto& handlers = mOwner.mHandlers;
        if (--mOwner.mWalks == 0)
            handlers.erase(std::remove(handlers.begin(), handlers.end(), nullptr), handlers.end());
    }

    Walk(const Walk&) = delete;
    Walk& operator=(const Walk&) = delete;

private:
    FrameHandlers& mOwner;
};

FrameHandlers::FrameHandlers(std::string loggerName, std::atomic<unsigned long long>& exceptions)
    : mLoggerName(std::move(loggerName)),
      mExceptions(exceptions)
{
}

void FrameHandlers::Add(iCanMessageHandler* handler)
{
    const std::lock_guard<std::mutex> lock(mMutex);
    if (std::find(mHandlers.begin(), mHandlers.end(), handler) == mHandlers.end())
        mHandlers.push_back(handler);
}

void FrameHandlers::Remove(const iCanMessageHandler* handler)
{
    std::unique_lock<std::mutex> lock(mMutex);
    const auto entry = std::find(mHandlers.begin(), mHandlers.end(), handler);
    if (entry != mHandlers.end())
        Remove(lock, entry);
}

void FrameHandlers::RemoveAll()
{
    std::unique_lock<std::mutex> lock(mMutex);
    const auto isThere = [](const iCanMessageHandler* handler) { return handler != nullptr; };
    // From the front each time, since the list may change while Remove() waits.
    for (auto entry = std::find_if(mHandlers.begin(), mHandlers.end(), isThere);
         entry != mHandlers.end();
         entry = std::find_if(mHandlers.begin(), mHandlers.end(), isThere))
        Remove(lock, entry);
}

void FrameHandlers::Remove(std::unique_lock<std::mutex>& lock,
                           std::vector<iCanMessageHandler*>::iterator entry)
{
    const iCanMessageHandler* const handler = *entry;
    *entry = nullptr;
    if (mWalks == 0)
        mHandlers.erase(entry);
    if (!IsRunning(handler, true))
        mCallEnded.wait(lock, [&] { return !IsRunning(handler, false); });
}

bool FrameHandlers::IsEmpty() const
{
    const std::lock_guard<std::mutex> lock(mMutex);
    return std::all_of(mHandlers.begin(), mHandlers.end(),
                       [](const iCanMessageHandler* handler) { return handler == nullptr; });
}

bool FrameHandlers::Deliver(const CanMessage& frame)
{
    std::unique_lock<std::mutex> lock(mMutex);
    const Walk walk(*this);
    const std::size_t count = mHandlers.size();
    bool heard = false;
    for (std::size_t i = 0; i < count; ++i) {
        iCanMessageHandler* const handler = mHandlers[i];
        if (handler == nullptr)
            continue;
        const RunningCall call(*this, lock, handler);
        Invoke(*handler, frame);
        heard = true;
    }
    return heard;
}

void FrameHandlers::Invoke(iCanMessageHandler& handler, const CanMessage& frame)
{
    try {
        CanMessage copy(frame);
        handler.DispatchResponse(copy);
    } catch (const Poco::Exception& exception) {
        Report(exception.displayText());
    } catch (const std::exception& exception) {
        Report(exception.what());
    } catch (const std::string& text) {
        Report(text);
    } catch (const abi::__forced_unwind&) {
        throw; // the thread is being cancelled
    } catch (...) {
        Report("an exception of an unknown type");
    }
}

void FrameHandlers::Report(const std::string& text)
{
    ++mExceptions;
    try {
        if (!WasJustLogged(text))
            Poco::Logger::get(mLoggerName).error("A frame handler threw: " + text);
    } catch (...) { // a log that fails must not end the receive thread
    }
}

/// A handler that throws at every frame must not fill the log: the same text counts once a second.
bool FrameHandlers::WasJustLogged(const std::string& text)
{
    const std::lock_guard<std::mutex> lock(mLogMutex);
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
        if (call->handler == handler &&
            (!onThisThread || call->thread == std::this_thread::get_id()))
            return true;
    }
    return false;
}

} // namespace tarn
