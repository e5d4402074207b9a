#include <plexa_can/ReplaySchedule.h>

#include <gtest/gtest.h>

#include <limits>
#include <string>

namespace
{

using namespace tarn;
using std::chrono::milliseconds;
using std::chrono::nanoseconds;

CandumpLine At(const std::string& time)
{
    const std::string line = (time.empty() ? "" : '(' + time + ") ") + "can0 123#";
    CandumpLine entry;
    EXPECT_TRUE(ParseCandumpLine(line.data(), line.size(), entry)) << line;
    return entry;
}

constexpr double AT_ONCE = std::numeric_limits<double>::infinity();
const ReplaySchedule::Time BEGIN(std::chrono::hours(5));

/// When a frame is due that comes behind one at 1000000000.0, played at BEGIN.
nanoseconds Due(double speed, const std::string& time)
{
    ReplaySchedule schedule(speed);
    const CandumpLine first = At("1000000000.000000");
    EXPECT_EQ(schedule.DueTime(first, BEGIN), BEGIN);
    schedule.Played(first);
    return schedule.DueTime(At(time), BEGIN + milliseconds(3)) - BEGIN;
}

TEST(ReplaySchedule, KeepsTheDistancesOfTheLogDividedByTheSpeed)
{
    EXPECT_EQ(Due(1, "1000000000.655421"), nanoseconds(655421000));
    EXPECT_EQ(Due(1, "1000000001.000000001"), nanoseconds(1000000001));
    EXPECT_EQ(Due(2, "1000000001.000000"), milliseconds(500));
    EXPECT_EQ(Due(0.25, "1000000001.000000"), milliseconds(4000));
    EXPECT_EQ(Due(1, "1000000000.000000"), milliseconds(0));
}

TEST(ReplaySchedule, MakesFramesDueNowAtFullSpeedOrWithoutATimeStamp)
{
    EXPECT_EQ(Due(AT_ONCE, "1000009999.0"), milliseconds(3));
    EXPECT_EQ(Due(1, ""), milliseconds(3));
}

TEST(ReplaySchedule, BeginsAnewWhereTheLogJumpsBackOrChangesItsForm)
{
    EXPECT_EQ(Due(1, "0999999999.000000"), milliseconds(0));
    EXPECT_EQ(Due(1, "0999999998.999999"), milliseconds(3));
    EXPECT_EQ(Due(1, "5.000000"), milliseconds(3));
    EXPECT_EQ(Due(1, "2021-01-04 17:05:22.655421"), milliseconds(3));
}

TEST(ReplaySchedule, StaysInRangeForTheLongestWaits)
{
    const auto years = std::chrono::hours(24 * 365 * 30);
    EXPECT_GT(Due(1e-300, "9999999999.999999"), years);
    EXPECT_LT(Due(1, "9999999999.999999"), years * 2);
}

TEST(ReplaySchedule, KeepsTheDistanceToTheLastFrameAfterAPause)
{
    ReplaySchedule schedule(1);
    for (const char* const time : {"1000000000.0", "1000000002.0"}) {
        schedule.DueTime(At(time), BEGIN);
        schedule.Played(At(time));
    }
    const CandumpLine next = At("1000000002.5");
    EXPECT_EQ(schedule.DueTime(next, BEGIN + milliseconds(2000)), BEGIN + milliseconds(2500));
    const auto later = BEGIN + std::chrono::hours(1);
    schedule.Resume(later);
    EXPECT_EQ(schedule.DueTime(next, later), later + milliseconds(500));
}

TEST(ReplaySchedule, BeginsAnewAfterARestart)
{
    ReplaySchedule schedule(1);
    schedule.DueTime(At("1000000000.0"), BEGIN);
    schedule.Restart();
    EXPECT_EQ(schedule.DueTime(At("1000000005.0"), BEGIN), BEGIN);
}

} // namespace
