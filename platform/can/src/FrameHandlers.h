#ifndef PLEXA_CAN_SRC_FRAME_HANDLERS_H
#define PLEXA_CAN_SRC_FRAME_HANDLERS_H

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace tarn
{

class CanMessage;
class iCanMessageHandler;

/// The handlers of one connection to a bus. Keeps the promise of iCanAsyncDispatcher::Stop(), and
/// keeps exceptions of handlers away from the thread that delivers.
class FrameHandlers
{
public:
    /// @param loggerName where exceptions of handlers are logged
    /// @param exceptions counts them; outlives the object
    FrameHandlers(std::string loggerName, std::atomic<unsigned long long>& exceptions);

    void Add(iCanMessageHandler* handler);

    /// When it has returned, no call to the handler is running or will start; called from inside
    /// that handler, it takes effect when the running call returns.
    void Remove(const iCanMessageHandler* handler);

    void RemoveAll();

    bool IsEmpty() const;

    /// Calls every handler; each gets a copy of its own, which it may change.
    /// @return false when there was none
    bool Deliver(const CanMessage& frame);

private:
    /// A call in progress; it stands on the stack of the thread that makes it.
    struct Call {
        const iCanMessageHandler* handler = nullptr;
        std::thread::id thread;
        Call* outer = nullptr;
    };
    class RunningCall;
    class Walk;

    void Invoke(iCanMessageHandler& handler, const CanMessage& frame);
    void Report(const std::string& text);
    bool WasJustLogged(const std::string& text);
    void Remove(std::unique_lock<std::mutex>& lock,
                std::vector<iCanMessageHandler*>::iterator entry);
    bool IsRunning(const iCanMessageHandler* handler, bool onThisThread) const;

    const std::string mLoggerName;
    mutable std::mutex mMutex;
    std::condition_variable mCallEnded;
    std::vector<iCanMessageHandler*> mHandlers; ///< null: removed while a walk was under way
    unsigned int mWalks = 0;
    Call* mCalls = nullptr;
    std::atomic<unsigned long long>& mExceptions;
    std::mutex mLogMutex;
    std::string mLoggedText;
    std::chrono::steady_clock::time_point mLoggedAt;
};

} // namespace tarn

#endif
