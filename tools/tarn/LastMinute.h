#ifndef TARN_TOOLS_LAST_MINUTE_H
#define TARN_TOOLS_LAST_MINUTE_H

#include "Duration.h"

#include <array>
#include <cstddef>
#include <cstdint>

namespace tarn::tool
{

/// What happened in the second that is running and in each of the 60 before. Seconds are numbered
/// from a beginning; time runs forwards only.
template <typename Second>
class LastMinute
{
public:
    static constexpr std::int64_t SECONDS = 61;

    static std::int64_t NumberOf(Duration sinceBeginning)
    {
        return std::chrono::duration_cast<std::chrono::seconds>(sinceBeginning).count();
    }

    /// The second to add to; one that is past counts as the newest.
    Second& Open(std::int64_t second)
    {
        if (second - mNewest > SECONDS)
            mNewest = second - SECONDS;
        while (mNewest < second)
            mSeconds[PlaceOf(++mNewest)] = Second();
        return mSeconds[PlaceOf(mNewest)];
    }

    /// Nothing happened in a second that is too long ago, or not there yet.
    Second At(std::int64_t second) const
    {
        const bool isKept = second >= 0 && second <= mNewest && second > mNewest - SECONDS;
        return isKept ? mSeconds[PlaceOf(second)] : Second();
    }

private:
    static std::size_t PlaceOf(std::int64_t second)
    {
        return static_cast<std::size_t>(second % SECONDS);
    }

    std::array<Second, SECONDS> mSeconds = {};
    std::int64_t mNewest = 0;
};

} // namespace tarn::tool

#endif
