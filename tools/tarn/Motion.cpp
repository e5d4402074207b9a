#include "Motion.h"

#include <cmath>

namespace tarn::tool
{

namespace
{

constexpr double FULL_TURN = 6.283185307179586;

/// How much of the running period is over, 0 to 1.
double Phase(Duration time, Duration period)
{
    return static_cast<double>((time % period).count()) / static_cast<double>(period.count());
}

} // namespace

double DrawShare(std::mt19937_64& generator)
{
    return std::ldexp(static_cast<double>(generator() >> 11), -53);
}

MovingValue::MovingValue(const Motion& motion)
    : mMotion(motion),
      mGenerator(motion.seed ? *motion.seed : std::random_device()())
{
}

double MovingValue::At(Duration time)
{
    const double width = mMotion.to - mMotion.from;
    switch (mMotion.kind) {
    case Motion::RAMP:
        return mMotion.from + width * Phase(time, mMotion.period);
    case Motion::SINE:
        return mMotion.from + width * (1 + std::sin(FULL_TURN * Phase(time, mMotion.period))) / 2;
    case Motion::RANDOM:
        return mMotion.from + width * DrawShare(mGenerator);
    default:
        return mMotion.from;
    }
}

} // namespace tarn::tool
