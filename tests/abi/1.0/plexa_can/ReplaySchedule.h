#ifndef PLEXA_CAN_REPLAY_SCHEDULE_H
#define PLEXA_CAN_REPLAY_SCHEDULE_H

#include <plexa_can/CandumpLine.h>
#include <plexa_can/Export.h>

#include <chrono>

namespace tarn
{

/// Turns the time stamps of a log into times at which its frames are due. All count from one
/// beginning, so that no delay adds up. For one thread at a time; never blocks and never throws.
class PLEXA_CAN_API ReplaySchedule
{
public:
    /// A time of the steady clock, which nobody sets.
    using Time = std::chrono::steady_clock::time_point;

    /// @param speed above 0: 2 plays twice as fast; infinity makes every frame due at once
    explicit ReplaySchedule(double speed) : mSpeed(speed) {}

    /// When the frame is due. The first one is due now, and so is one without a time stamp. Where
    /// the log jumps back by more than a second, or its time stamps change their form, time begins
    /// anew.
    Time DueTime(const CandumpLine& entry, Time now);

    /// The frame was played.
    void Played(const CandumpLine& entry) { mLogLast = entry.frame.GetTimeStamp(); }

    /// After a pause: the next frame keeps its distance to the last one, as if that were played
    /// now.
    void Resume(Time now);

    /// Time begins anew with the next frame.
    void Restart() { mRunning = false; }

private:
    bool Continues(const CandumpLine& entry) const;

    const double mSpeed;
    bool mRunning = false;
    CandumpLine::tTimeForm mForm = CandumpLine::TIME_NONE;
    unsigned long long mLogBegin = 0;
    unsigned long long mLogLast = 0;
    Time mBegin;
};

} // namespace tarn

#endif
