#ifndef PLEXA_CAN_SRC_FRAME_HANDLERS_H
#define PLEXA_CAN_SRC_FRAME_HANDLERS_H

#include "SteadyLock.h"

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
    /// What became of one frame.
    struct Outcome {
        unsigned int calls = 0;      ///< handlers that got it
        unsigned int exceptions = 0; ///< of these: left by an exception
    };

    /// @param loggerName where exceptions of handlers are logged; a literal
    explicit FrameHandlers(const char* loggerName);

    void Add(iCanMessageHandler* handler);

    /// When it has returned, no call to the handler is running or will start; called from inside
    /// that handler, it takes effect when the running call returns.
    void Remove(const iCanMessageHandler* handler);

    void RemoveAll();

    bool IsEmpty() const;

    /// What was received so far is for no handler that is added from now on.
    void BeginGeneration();
    unsigned int Generation() const;

    /// Calls every handler; each gets a copy of its own, which it may change. Calls nobody when a
    /// generation has begun since the one in which the frame was received.
    Outcome Deliver(const CanMessage& frame, unsigned int generation = 0);

private:
    /// A call in progress; it stands on the stack of the thread that makes it.
    struct Call {
        const iCanMessageHandler* handler = nullptr;
        std::thread::id thread;
        Call* outer = nullptr;
    };
    class RunningCall;
    class Walk;

    /// False when the handler was left by an exception.
    bool Invoke(iCanMessageHandler& handler, const CanMessage& frame);
    void ReportPresentException();
    bool WasJustLogged(const std::string& text);
    void SweepUp();
    void AwaitEndOfCalls(SteadyLock& lock, const iCanMessageHandler* handler);
    /// Whether a call to the handler, or to any for null, is running.
    bool IsRunning(const iCanMessageHandler* handler, bool onThisThread) const;

    const char* const mLoggerName;
    mutable std::mutex mMutex;
    std::condition_variable mCallEnded;
    std::vector<iCanMessageHandler*> mHandlers; ///< null: removed while a walk was under way
    unsigned int mWalks = 0;
    unsigned int mGeneration = 0;
    Call* mCalls = nullptr;
    unsigned int mWaiting = 0; ///< threads that wait for the end of a call
    std::mutex mLogMutex;
    std::string mLoggedText;
    std::chrono::steady_clock::time_point mLoggedAt;
};

} // namespace tarn

#endif
