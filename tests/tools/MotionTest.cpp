#include "Motion.h"

#include <gtest/gtest.h>

namespace
{

using namespace tarn::tool;
using std::chrono::milliseconds;

Motion Moving(Motion::tKind kind, double from, double to)
{
    Motion motion;
    motion.kind = kind;
    motion.from = from;
    motion.to = to;
    motion.period = std::chrono::seconds(4);
    return motion;
}

TEST(Motion, AConstantStays)
{
    MovingValue value(Moving(Motion::CONSTANT, 7, 7));
    EXPECT_EQ(value.At(milliseconds(0)), 7);
    EXPECT_EQ(value.At(milliseconds(12345)), 7);
}

TEST(Motion, ARampBeginsAgainAfterItsPeriod)
{
    MovingValue value(Moving(Motion::RAMP, 100, 20));
    EXPECT_EQ(value.At(milliseconds(0)), 100);
    EXPECT_EQ(value.At(milliseconds(1000)), 80);
    EXPECT_EQ(value.At(milliseconds(3000)), 40);
    EXPECT_EQ(value.At(milliseconds(4000)), 100);
    EXPECT_EQ(value.At(milliseconds(6000)), 60);
}

TEST(Motion, ASineSwingsAroundItsMean)
{
    MovingValue value(Moving(Motion::SINE, 10, 30));
    EXPECT_NEAR(value.At(milliseconds(0)), 20, 1e-9);
    EXPECT_NEAR(value.At(milliseconds(1000)), 30, 1e-9);
    EXPECT_NEAR(value.At(milliseconds(2000)), 20, 1e-9);
    EXPECT_NEAR(value.At(milliseconds(3000)), 10, 1e-9);
    EXPECT_NEAR(value.At(milliseconds(4500)), 27.0710678, 1e-6);
}

TEST(Motion, RandomValuesComeAgainWithTheirSeed)
{
    Motion motion = Moving(Motion::RANDOM, -1, 3);
    motion.seed = 5;
    MovingValue value(motion);
    MovingValue again(motion);
    double lowest = 3;
    double highest = -1;
    for (int count = 0; count < 1000; ++count) {
        const double drawn = value.At(milliseconds(0));
        EXPECT_EQ(again.At(milliseconds(count)), drawn);
        lowest = std::min(lowest, drawn);
        highest = std::max(highest, drawn);
    }
    // Of a thousand even draws, one lies in each of the outer fiftieths all but surely.
    EXPECT_GE(lowest, -1);
    EXPECT_LT(lowest, -0.92);
    EXPECT_LT(highest, 3);
    EXPECT_GT(highest, 2.92);
}

} // namespace
