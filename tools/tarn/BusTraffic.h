#ifndef TARN_TOOLS_BUS_TRAFFIC_H
#define TARN_TOOLS_BUS_TRAFFIC_H

#include "ErrorFrameWords.h"
#include "LastMinute.h"

#include <plexa_can/CanMessage.h>

#include <cstdint>
#include <deque>
#include <optional>

namespace tarn::tool
{

/// What goes over a bus as a whole. Times count from the beginning of the listening.
class BusTraffic
{
public:
    /// Error frames that are kept.
    static constexpr std::size_t MOST_ERRORS = 50;

    struct Second {
        std::uint32_t frames = 0;
        std::uint32_t bits = 0; ///< without stuff bits
    };

    /// Takes a frame of any kind. An error frame takes no bits: it tells of the bus.
    void Take(const CanMessage& frame, Duration now);

    std::uint64_t CountFrames() const { return mFrames; }
    std::uint64_t CountErrors() const { return mErrorFrames; }
    const LastMinute<Second>& GetMinute() const { return mMinute; }

    /// A second's mean over the last five whole seconds; of a shorter time while there is no more,
    /// nothing within the first second.
    struct Rates {
        double frames;
        double bits;
    };
    std::optional<Rates> GetRates(Duration now) const;

    /// The second of the last minute with the most bits.
    Second GetPeak(Duration now) const;

    /// The last ones, the newest first.
    const std::deque<CanMessage>& GetErrors() const { return mErrors; }
    /// Those of the last error frame that told them.
    const std::optional<ErrorCounters>& GetErrorCounters() const { return mErrorCounters; }

private:
    void TakeError(const CanMessage& frame);

    std::uint64_t mFrames = 0;
    std::uint64_t mErrorFrames = 0;
    LastMinute<Second> mMinute;
    std::deque<CanMessage> mErrors;
    std::optional<ErrorCounters> mErrorCounters;
};

} // namespace tarn::tool

#endif
