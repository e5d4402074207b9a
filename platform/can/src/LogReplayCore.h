#ifndef PLEXA_CAN_SRC_LOG_REPLAY_CORE_H
#define PLEXA_CAN_SRC_LOG_REPLAY_CORE_H

#include "FrameHandlers.h"
#include "SteadyLock.h"

#include <plexa_can/CanLogReader.h>
#include <plexa_can/CanLogWriter.h>
#include <plexa_can/LogReplayDispatcher.h>
#include <plexa_can/ReplaySchedule.h>

#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

namespace tarn
{

/// The play. Its thread holds the object, so that a dispatcher may be destroyed from inside its own
/// handler.
class PLEXA_CAN_HIDDEN LogReplayDispatcher::Core
    : public std::enable_shared_from_this<LogReplayDispatcher::Core>
{
public:
    Core(std::string path, const Options& options);
    ~Core();
    Core(const Core&) = delete;
    Core& operator=(const Core&) = delete;

    void Start(iCanMessageHandler* handler);
    void Stop(const iCanMessageHandler* handler);
    void Send(const CanMessage& frame);
    void Close();
    bool IsFinished();
    bool WaitUntilFinished(std::chrono::milliseconds timeout);
    std::string GetFailure();
    Progress GetProgress();
    CanBusCounters GetCounters();

private:
    using Clock = std::chrono::steady_clock;
    using Lock = SteadyLock;

    void CheckOptions() const;
    void OpenLog();
    void OpenRecord();
    bool AwaitInput(int descriptor) const;
    void StartThread();
    void Run();
    void Play();
    bool ReadFrame(CandumpLine& entry);
    bool Account(const CandumpLine& entry);
    void NotePlayed(const CandumpLine& entry, unsigned int exceptions);
    void Record(const CanMessage& frame);
    bool Rewind();
    bool PlayFrame(const CandumpLine& entry);
    bool AwaitListener(Lock& lock);
    bool AwaitDue(Lock& lock, const CandumpLine& entry);
    std::string PlayToEnd();
    void Finish(std::string failure);

    const std::string mPath;
    const Options mOptions;
    const int mCloseEvent; ///< readable once the dispatcher goes, to end the wait for input

    std::unique_ptr<CanLogReader> mReader; ///< this and the schedule: of the thread alone
    ReplaySchedule mSchedule;
    unsigned long long mRoundFrames = 0;

    std::mutex mRecordMutex; ///< guards the three that follow
    std::unique_ptr<CanLogWriter> mRecord;
    unsigned long long mSent = 0;
    unsigned long long mSendFailures = 0;

    std::mutex mMutex; ///< guards what follows
    std::condition_variable mChanged;
    std::thread mThread;
    Progress mProgress = {};
    unsigned long long mErrorFrames = 0; ///< among the played
    unsigned long long mHandlerExceptions = 0;
    std::string mFailure;
    bool mListening = false;
    bool mClosed = false;
    bool mFinished = false;

    FrameHandlers mHandlers;
};

} // namespace tarn

#endif
