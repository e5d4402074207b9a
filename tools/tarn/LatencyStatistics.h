#ifndef TARN_TOOLS_LATENCY_STATISTICS_H
#define TARN_TOOLS_LATENCY_STATISTICS_H

#include "Duration.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>

namespace tarn::tool
{

/// How long things took, in memory that does not grow. Minimum and maximum are exact, percentiles
/// at most 1 % too large.
class LatencyStatistics
{
public:
    void Add(Duration latency);

    std::uint64_t GetCount() const { return mCount; }
    Duration GetMinimum() const { return Duration(mMinimum); }
    Duration GetMaximum() const { return Duration(mMaximum); }

    /// What so many of a hundred did not exceed (nearest rank).
    Duration GetPercentile(double percent) const;

    /// A line for every step of 1, 2, 5, 10, ... that lies between minimum and maximum, with the
    /// number of latencies up to it and beyond the step before, and a bar.
    std::string DrawHistogram() const;

private:
    /// Up to 2 * SUB_BUCKETS every nanosecond has a bucket of its own; beyond, each doubling is
    /// divided into SUB_BUCKETS.
    static constexpr std::size_t SUB_BUCKETS = 128;
    static constexpr std::size_t DOUBLINGS = 58;

    static std::size_t BucketOf(std::uint64_t nanoseconds);
    /// The largest number that falls into a bucket.
    static std::uint64_t EndOf(std::size_t bucket);

    std::array<std::uint64_t, SUB_BUCKETS* DOUBLINGS> mBuckets = {};
    std::uint64_t mCount = 0;
    std::uint64_t mMinimum = 0;
    std::uint64_t mMaximum = 0;
};

} // namespace tarn::tool

#endif
