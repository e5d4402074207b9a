#include <plexa_can/ReplaySchedule.h>

#include <algorithm>
#include <cmath>
#include <cstdint>

namespace tarn
{

namespace
{

/// By so much the frames of several interfaces may be out of order.
constexpr unsigned long long DISORDER = 1000000000u;

/// 30 years in nanoseconds, so that no time stamp leads beyond the range of the clock.
constexpr double LONGEST = 1e18;

} // namespace

ReplaySchedule::Time ReplaySchedule::DueTime(const CandumpLine& entry, Time now)
{
    if (std::isinf(mSpeed) || entry.timeForm == CandumpLine::TIME_NONE)
        return now;
    const unsigned long long time = entry.frame.GetTimeStamp();
    if (!Continues(entry)) {
        mRunning = true;
        mForm = entry.timeForm;
        mLogBegin = mLogLast = time;
        mBegin = now;
    }
    if (time <= mLogBegin)
        return mBegin;
    const double distance = std::min(static_cast<double>(time - mLogBegin) / mSpeed, LONGEST);
    return mBegin + std::chrono::nanoseconds(static_cast<std::int64_t>(distance));
}

void ReplaySchedule::Resume(Time now)
{
    mLogBegin = mLogLast;
    mBegin = now;
}

bool ReplaySchedule::Continues(const CandumpLine& entry) const
{
    return mRunning && entry.timeForm == mForm &&
           (entry.frame.GetTimeStamp() >= mLogLast ||
            mLogLast - entry.frame.GetTimeStamp() <= DISORDER);
}

} // namespace tarn
