#include "LogReplayCore.h"

#include "LogSafely.h"

#include <plexa_can/CanException.h>

#include <Poco/Error.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <filesystem>
#include <poll.h>
#include <sys/eventfd.h>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace tarn
{

namespace
{

constexpr const char* LOGGER = "LogReplayDispatcher";
constexpr const char* NO_MEMORY = "out of memory";

unsigned long long TimeOfDay()
{
    using std::chrono::nanoseconds;
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    return static_cast<unsigned long long>(std::chrono::duration_cast<nanoseconds>(now).count());
}

int MakeEvent()
{
    const int descriptor = ::eventfd(0, EFD_CLOEXEC);
    if (descriptor < 0)
        throw CanException(std::string("cannot make an event for the play of a log: ") +
                               Poco::Error::getMessage(errno) + "; raise the limit of open files",
                           errno);
    return descriptor;
}

} // namespace

LogReplayDispatcher::Core::Core(std::string path, const Options& options)
    : mPath(std::move(path)),
      mOptions(options),
      mCloseEvent(MakeEvent()),
      mSchedule(options.speed),
      mHandlers(LOGGER)
{
    try {
        CheckOptions();
        OpenLog();
        OpenRecord();
    } catch (...) {
        ::close(mCloseEvent);
        throw;
    }
}

LogReplayDispatcher::Core::~Core()
{
    mReader.reset();
    ::close(mCloseEvent);
}

void LogReplayDispatcher::Core::CheckOptions() const
{
    if (!(mOptions.speed > 0))
        throw CanException(mPath + ": cannot be played at a speed of " +
                           std::to_string(mOptions.speed) + "; give a factor above 0");
    std::error_code ignored;
    if (mOptions.loop && !std::filesystem::is_regular_file(mPath, ignored))
        throw CanException(mPath + ": cannot be played in a loop: it is no regular file; copy it "
                                   "to one, or play it once");
}

void LogReplayDispatcher::Core::OpenLog()
{
    mReader = std::make_unique<CanLogReader>(
        mPath, [this](int descriptor, std::uint64_t) { return AwaitInput(descriptor); });
}

void LogReplayDispatcher::Core::OpenRecord()
{
    if (mOptions.recordPath.empty())
        return;
    std::error_code ignored;
    if (std::filesystem::equivalent(mPath, mOptions.recordPath, ignored))
        throw CanException(mOptions.recordPath + ": cannot be played and recorded to at the same "
                                                 "time; give the record another name");
    CanLogWriter::Options options;
    options.flush = CanLogWriter::FLUSH_EVERY_FRAME;
    mRecord = std::make_unique<CanLogWriter>(mOptions.recordPath, options);
}

bool LogReplayDispatcher::Core::AwaitInput(int descriptor) const
{
    std::array<pollfd, 2> events = {{{descriptor, POLLIN, 0}, {mCloseEvent, POLLIN, 0}}};
    while (::poll(events.data(), events.size(), -1) < 0 && errno == EINTR) {
    }
    return events[1].revents == 0;
}

// What the owner does.

void LogReplayDispatcher::Core::Start(iCanMessageHandler* handler)
{
    const Lock lock(mMutex);
    if (!mThread.joinable())
        StartThread();
    mHandlers.Add(handler);
    mListening = true;
    mChanged.notify_all();
}

void LogReplayDispatcher::Core::StartThread()
{
    try {
        mThread = std::thread([self = shared_from_this()] { self->Run(); });
    } catch (const std::system_error& error) {
        throw CanException(mPath + ": cannot start a thread that plays it: " + error.what(),
                           error.code().value());
    }
}

void LogReplayDispatcher::Core::Stop(const iCanMessageHandler* handler)
{
    mHandlers.Remove(handler);
    const Lock lock(mMutex);
    mListening = !mHandlers.IsEmpty();
    mChanged.notify_all();
}

void LogReplayDispatcher::Core::Send(const CanMessage& frame)
{
    const Lock lock(mRecordMutex);
    try {
        Record(frame);
    } catch (...) {
        ++mSendFailures;
        throw;
    }
    ++mSent;
}

void LogReplayDispatcher::Core::Record(const CanMessage& frame)
{
    if (mRecord == nullptr)
        throw CanException("a frame was not sent: " + mPath +
                           " is a log, which takes none; have them recorded (record=FILE)");
    CandumpLine entry;
    entry.kind = CandumpLine::KIND_FRAME;
    entry.direction = CandumpLine::DIRECTION_SENT;
    entry.frame = frame;
    entry.frame.SetTimeStamp(TimeOfDay());
    mRecord->Write(entry);
}

void LogReplayDispatcher::Core::Close()
{
    mHandlers.RemoveAll();
    {
        const Lock lock(mMutex);
        mClosed = true;
        mListening = false;
    }
    mChanged.notify_all();
    ::eventfd_write(mCloseEvent, 1);
    if (!mThread.joinable())
        return;
    if (mThread.get_id() == std::this_thread::get_id())
        mThread.detach(); // it ends when the running handler returns
    else
        mThread.join();
}

bool LogReplayDispatcher::Core::IsFinished()
{
    const Lock lock(mMutex);
    return mFinished;
}

bool LogReplayDispatcher::Core::WaitUntilFinished(std::chrono::milliseconds timeout)
{
    Lock lock(mMutex);
    return mChanged.wait_for(lock, timeout, [this] { return mFinished; });
}

std::string LogReplayDispatcher::Core::GetFailure()
{
    const Lock lock(mMutex);
    return mFailure;
}

LogReplayDispatcher::Progress LogReplayDispatcher::Core::GetProgress()
{
    const Lock lock(mMutex);
    return mProgress;
}

CanBusCounters LogReplayDispatcher::Core::GetCounters()
{
    CanBusCounters counters;
    {
        const Lock lock(mMutex);
        counters.received = mProgress.read - mProgress.waiting;
        counters.delivered = mProgress.played;
        counters.filtered = mProgress.notClassical + mProgress.malformed;
        counters.errorFrames = mErrorFrames;
        counters.handlerExceptions = mHandlerExceptions;
    }
    const Lock lock(mRecordMutex);
    counters.sent = mSent;
    counters.sendFailures = mSendFailures;
    return counters;
}

// What the thread does.

void LogReplayDispatcher::Core::Run()
{
    try {
        Finish(PlayToEnd());
    } catch (const std::bad_alloc&) {
        Finish(NO_MEMORY); // short enough to need none
    }
}

/// Why it did not come to the end; empty when it did.
std::string LogReplayDispatcher::Core::PlayToEnd()
{
    try {
        Play();
    } catch (const CanException& failure) {
        return failure.message();
    } catch (const std::exception& failure) {
        return mPath + ": cannot be played on: " + failure.what();
    }
    return {};
}

void LogReplayDispatcher::Core::Play()
{
    {
        Lock lock(mMutex);
        AwaitListener(lock);
    }
    CandumpLine entry;
    while (ReadFrame(entry)) {
        if (!PlayFrame(entry))
            return;
    }
}

bool LogReplayDispatcher::Core::ReadFrame(CandumpLine& entry)
{
    for (;;) {
        if (mReader->Next(entry)) {
            if (Account(entry))
                return true;
        } else if (!Rewind()) {
            return false;
        }
    }
}

/// True for a frame to play.
bool LogReplayDispatcher::Core::Account(const CandumpLine& entry)
{
    const Lock lock(mMutex);
    if (entry.kind != CandumpLine::KIND_COMMENT)
        ++mProgress.read;
    if (entry.kind == CandumpLine::KIND_FD_FRAME)
        ++mProgress.notClassical;
    if (entry.kind == CandumpLine::KIND_MALFORMED)
        ++mProgress.malformed;
    if (entry.kind != CandumpLine::KIND_FRAME)
        return false;
    ++mProgress.waiting;
    ++mRoundFrames;
    return true;
}

bool LogReplayDispatcher::Core::Rewind()
{
    {
        const Lock lock(mMutex);
        if (!mOptions.loop || mClosed || mRoundFrames == 0)
            return false;
    }
    mRoundFrames = 0;
    mSchedule.Restart();
    OpenLog();
    return true;
}

/// False when the dispatcher goes.
bool LogReplayDispatcher::Core::PlayFrame(const CandumpLine& entry)
{
    Lock lock(mMutex);
    while (AwaitListener(lock)) {
        if (!AwaitDue(lock, entry))
            continue;
        lock.unlock();
        const FrameHandlers::Outcome outcome = mHandlers.Deliver(entry.frame);
        lock.lock();
        if (outcome.calls == 0)
            continue;
        mSchedule.Played(entry);
        NotePlayed(entry, outcome.exceptions);
        return true;
    }
    return false;
}

void LogReplayDispatcher::Core::NotePlayed(const CandumpLine& entry, unsigned int exceptions)
{
    ++mProgress.played;
    --mProgress.waiting;
    mHandlerExceptions += exceptions;
    if (entry.frame.HasError())
        ++mErrorFrames;
}

/// False when the dispatcher goes.
bool LogReplayDispatcher::Core::AwaitListener(Lock& lock)
{
    if (!mListening && !mClosed) {
        mChanged.wait(lock, [this] { return mListening || mClosed; });
        mSchedule.Resume(Clock::now());
    }
    return !mClosed;
}

/// False when the handlers went meanwhile.
bool LogReplayDispatcher::Core::AwaitDue(Lock& lock, const CandumpLine& entry)
{
    const Clock::time_point now = Clock::now();
    const Clock::time_point due = mSchedule.DueTime(entry, now);
    const auto interrupted = [this] { return !mListening || mClosed; };
    if (due > now)
        mChanged.wait_until(lock, due, interrupted);
    return !interrupted();
}

void LogReplayDispatcher::Core::Finish(std::string failure)
{
    if (failure == NO_MEMORY)
        LogSafely(LOGGER, Poco::Message::PRIO_ERROR, failure);
    else if (!failure.empty())
        LogSafely(LOGGER, Poco::Message::PRIO_ERROR, "The play of a log ended: " + failure);
    const Lock lock(mMutex);
    mFailure.swap(failure);
    mFinished = !mClosed;
    mChanged.notify_all();
}

} // namespace tarn
