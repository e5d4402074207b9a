#include "LatencyStatistics.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace tarn::tool
{

namespace
{

constexpr std::size_t BAR_WIDTH = 40;

/// 1, 2, 5, 10, 20, ... : the one that follows.
std::uint64_t NextStep(std::uint64_t step)
{
    std::uint64_t decade = 1;
    while (step >= 10 * decade)
        decade *= 10;
    return step == 2 * decade ? 5 * decade : 2 * step;
}

std::string DrawRow(std::uint64_t step, std::uint64_t count, std::uint64_t largest)
{
    const std::string label = "<= " + DescribeDuration(Duration(step));
    std::array<char, 48> text = {};
    std::snprintf(text.data(), text.size(), "%11s %9llu ", label.c_str(),
                  static_cast<unsigned long long>(count));
    const auto bar = static_cast<std::size_t>((count * BAR_WIDTH + largest - 1) / largest);
    return text.data() + std::string(bar, '#') + '\n';
}

} // namespace

std::size_t LatencyStatistics::BucketOf(std::uint64_t nanoseconds)
{
    std::size_t doubling = 0;
    while (nanoseconds >= 2 * SUB_BUCKETS) {
        nanoseconds /= 2;
        ++doubling;
    }
    return doubling * SUB_BUCKETS + static_cast<std::size_t>(nanoseconds);
}

std::uint64_t LatencyStatistics::EndOf(std::size_t bucket)
{
    if (bucket < 2 * SUB_BUCKETS)
        return bucket;
    const std::size_t doubling = bucket / SUB_BUCKETS - 1;
    const std::uint64_t first = bucket - doubling * SUB_BUCKETS;
    return ((first + 1) << doubling) - 1;
}

void LatencyStatistics::Add(Duration latency)
{
    const auto nanoseconds =
        static_cast<std::uint64_t>(std::max<Duration::rep>(latency.count(), 0));
    mMinimum = mCount == 0 ? nanoseconds : std::min(mMinimum, nanoseconds);
    mMaximum = std::max(mMaximum, nanoseconds);
    ++mBuckets[BucketOf(nanoseconds)];
    ++mCount;
}

Duration LatencyStatistics::GetPercentile(double percent) const
{
    const double rank = std::ceil(percent / 100 * static_cast<double>(mCount));
    std::uint64_t passed = 0;
    for (std::size_t bucket = 0; bucket < mBuckets.size(); ++bucket) {
        passed += mBuckets[bucket];
        if (passed > 0 && static_cast<double>(passed) >= rank)
            return Duration(std::clamp(EndOf(bucket), mMinimum, mMaximum));
    }
    return Duration::zero();
}

std::string LatencyStatistics::DrawHistogram() const
{
    if (mCount == 0)
        return {};
    std::array<std::uint64_t, 64> rows = {};
    std::array<std::uint64_t, 64> steps = {1};
    std::size_t row = 0;
    for (std::size_t bucket = 0; bucket <= BucketOf(mMaximum); ++bucket) {
        while (EndOf(bucket) > steps[row]) {
            steps[row + 1] = NextStep(steps[row]);
            ++row;
        }
        rows[row] += mBuckets[bucket];
    }
    const std::uint64_t largest = *std::max_element(rows.begin(), rows.end());
    const auto first = static_cast<std::size_t>(
        std::find_if(rows.begin(), rows.end(), [](auto count) { return count > 0; }) -
        rows.begin());
    std::string text;
    for (std::size_t at = first; at <= row; ++at)
        text += DrawRow(steps[at], rows[at], largest);
    return text;
}

} // namespace tarn::tool
