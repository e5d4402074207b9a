#ifndef PLEXA_CAN_LOG_REPLAY_DISPATCHER_H
#define PLEXA_CAN_LOG_REPLAY_DISPATCHER_H

#include <plexa_can/Export.h>
#include <plexa_can/iCanBus.h>

#include <memory>
#include <string>
#include <tr1/memory>

namespace tarn
{

/// Plays a log as if its frames came from a bus: every frame goes to all handlers, in the order of
/// the log and at its distance to the others, on one thread.
///
/// Play begins with the first Start(). While there is no handler the log stands still, so that no
/// frame is missed; it goes on with the next Start(). Frames keep the time stamps of the log. Time
/// stamps relative to another frame are taken to count from the first one (candump -t z).
///
/// An exception that leaves a handler is caught, counted and logged to the logger
/// "LogReplayDispatcher"; other handlers and later frames still arrive. All operations may be
/// called from any thread.
class PLEXA_CAN_API LogReplayDispatcher : public iCanBus
{
public:
    /// How a log is played.
    struct Options {
        /// 1: as fast as it was; 2: twice as fast; infinity: without waiting.
        double speed = 1;

        /// From the end of the log back to its beginning, for as long as a round has a frame. Needs
        /// a regular file.
        bool loop = false;

        /// Where Send() writes its frames, see CanLogWriter; empty for nowhere. Not the log itself.
        std::string recordPath;
    };

    /// How far the log was read, all rounds of a loop together. At any moment
    ///
    ///     read = played + waiting + notClassical + malformed
    struct Progress {
        unsigned long long read;         ///< lines or packets of the log, without comments
        unsigned long long played;       ///< of these: frames that handlers have got
        unsigned long long waiting;      ///< of these: the frame that is next, 0 or 1
        unsigned long long notClassical; ///< of these: CAN FD frames
        unsigned long long malformed;    ///< of these: damaged lines and packets
    };

    /// Opens the log. That of a FIFO waits until somebody writes to it.
    /// @throws CanException when the log cannot be opened or the record not made, or for options
    ///     that cannot be
    static std::tr1::shared_ptr<LogReplayDispatcher> Create(const std::string& path,
                                                            const Options& options);
    /// The same in the log's own time, once, without a record.
    static std::tr1::shared_ptr<LogReplayDispatcher> Create(const std::string& path);

    /// Stops all handlers as Stop() does, and the play at once.
    ~LogReplayDispatcher() noexcept override;
    LogReplayDispatcher(const LogReplayDispatcher&) = delete;
    LogReplayDispatcher& operator=(const LogReplayDispatcher&) = delete;

    /// Adds a handler; adding one that is there already changes nothing.
    void Start(iCanMessageHandler* handler) override;

    /// Removes a handler; it is no error when it is not there. Blocks while a call to this handler
    /// is running on another thread.
    void Stop(iCanMessageHandler* handler) override;

    /// Appends the frame to the record, stamped with the time of day; it is in the file when the
    /// call returns. Nobody receives it.
    /// @throws CanException when there is no record, or it cannot be written
    void Send(CanMessage& frame) override;

    /// True when the whole log was played, or could not be read on.
    bool IsFinished() const;

    /// Waits for that, at most timeout milliseconds. Not to be called from inside a handler.
    /// @return IsFinished()
    bool WaitUntilFinished(unsigned int timeout) const;

    /// Why the log could not be read to its end; empty when it could or still may.
    std::string GetFailure() const;

    /// From any thread.
    Progress GetProgress() const;

    CanBusCounters GetCounters() const override;

private:
    class Core;

    explicit LogReplayDispatcher(std::shared_ptr<Core> core);

    std::shared_ptr<Core> mCore;
};

} // namespace tarn

#endif
