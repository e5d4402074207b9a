#include "BusTraffic.h"

#include <plexa_can/CanTiming.h>

#include <algorithm>

namespace tarn::tool
{

namespace
{

constexpr std::int64_t RATE_SECONDS = 5;

} // namespace

void BusTraffic::Take(const CanMessage& frame, Duration now)
{
    ++mFrames;
    Second& second = mMinute.Open(LastMinute<Second>::NumberOf(now));
    ++second.frames;
    if (frame.HasError())
        TakeError(frame);
    else
        second.bits += FrameBits(frame);
}

void BusTraffic::TakeError(const CanMessage& frame)
{
    ++mErrorFrames;
    if (const auto counters = ErrorCountersOf(frame))
        mErrorCounters = counters;
    mErrors.push_front(frame);
    if (mErrors.size() > MOST_ERRORS)
        mErrors.pop_back();
}

std::optional<BusTraffic::Rates> BusTraffic::GetRates(Duration now) const
{
    const std::int64_t running = LastMinute<Second>::NumberOf(now);
    const std::int64_t whole = std::min(running, RATE_SECONDS);
    if (whole == 0)
        return std::nullopt;
    Rates rates = {0, 0};
    for (std::int64_t second = running - whole; second < running; ++second) {
        rates.frames += mMinute.At(second).frames;
        rates.bits += mMinute.At(second).bits;
    }
    const auto seconds = static_cast<double>(whole);
    return Rates{rates.frames / seconds, rates.bits / seconds};
}

BusTraffic::Second BusTraffic::GetPeak(Duration now) const
{
    const std::int64_t running = LastMinute<Second>::NumberOf(now);
    Second peak;
    for (std::int64_t second = running - LastMinute<Second>::SECONDS + 1; second < running;
         ++second) {
        if (mMinute.At(second).bits > peak.bits)
            peak = mMinute.At(second);
    }
    return peak;
}

} // namespace tarn::tool
