#include "LatencyStatistics.h"

#include <gtest/gtest.h>

namespace
{

using namespace tarn::tool;

TEST(LatencyStatistics, SmallNumbersAreExact)
{
    LatencyStatistics statistics;
    for (const int latency : {200, 10, 30, 20, 250})
        statistics.Add(Duration(latency));
    EXPECT_EQ(statistics.GetCount(), 5u);
    EXPECT_EQ(statistics.GetMinimum().count(), 10);
    EXPECT_EQ(statistics.GetPercentile(50).count(), 30);
    EXPECT_EQ(statistics.GetPercentile(80).count(), 200);
    EXPECT_EQ(statistics.GetPercentile(99).count(), 250);
    EXPECT_EQ(statistics.GetMaximum().count(), 250);
}

TEST(LatencyStatistics, LargeNumbersAreAtMostOnePercentTooLarge)
{
    for (std::int64_t exact = 300; exact < 4000000000000; exact = exact * 7 / 5 + 1) {
        LatencyStatistics statistics;
        statistics.Add(Duration(exact));
        statistics.Add(Duration(exact * 2));
        const std::int64_t median = statistics.GetPercentile(50).count();
        EXPECT_GE(median, exact);
        EXPECT_LE(median - exact, exact / 100);
    }
}

TEST(LatencyStatistics, OneOfAHundredIsBeyondTheNinetyNinthPercentile)
{
    LatencyStatistics statistics;
    for (int count = 0; count < 99; ++count)
        statistics.Add(Duration(100));
    statistics.Add(Duration(5000000));
    EXPECT_EQ(statistics.GetPercentile(99).count(), 100);
    EXPECT_EQ(statistics.GetPercentile(99.5).count(), 5000000);
}

TEST(LatencyStatistics, TakesWhatCannotBe)
{
    LatencyStatistics statistics;
    EXPECT_EQ(statistics.GetPercentile(50).count(), 0);
    EXPECT_EQ(statistics.DrawHistogram(), "");
    statistics.Add(Duration(-5));
    EXPECT_EQ(statistics.GetMinimum().count(), 0);
    statistics.Add(Duration::max());
    EXPECT_EQ(statistics.GetPercentile(100), Duration::max());
}

TEST(LatencyStatistics, DrawsAHistogram)
{
    LatencyStatistics statistics;
    for (int count = 0; count < 40; ++count)
        statistics.Add(std::chrono::microseconds(15));
    for (int count = 0; count < 10; ++count)
        statistics.Add(std::chrono::microseconds(80));
    statistics.Add(std::chrono::microseconds(450));
    EXPECT_EQ(statistics.DrawHistogram(),
              "   <= 20 us        40 ########################################\n"
              "   <= 50 us         0 \n"
              "  <= 100 us        10 ##########\n"
              "  <= 200 us         0 \n"
              "  <= 500 us         1 #\n");
}

} // namespace
