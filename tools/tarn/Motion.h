#ifndef TARN_TOOLS_MOTION_H
#define TARN_TOOLS_MOTION_H

#include "Duration.h"

#include <cstdint>
#include <optional>
#include <random>

namespace tarn::tool
{

/// How a value changes with time. It never leaves what lies between from and to.
struct Motion {
    enum tKind {
        CONSTANT, ///< stays at from
        RAMP,     ///< goes from from to to in a period, then begins again
        SINE,     ///< swings between from and to, once a period, and begins in the middle
        RANDOM    ///< is anywhere in between, each time it is asked for
    };

    tKind kind = CONSTANT;
    double from = 0;
    double to = 0;
    Duration period = std::chrono::seconds(1);
    /// Of RANDOM: the same seed gives the same values again; none: others each time.
    std::optional<std::uint64_t> seed;
};

/// A value that moves.
class MovingValue
{
public:
    explicit MovingValue(const Motion& motion);

    /// @param time since the beginning
    double At(Duration time);

private:
    Motion mMotion;
    std::mt19937_64 mGenerator;
};

/// From 0 to 1, without 1.
double DrawShare(std::mt19937_64& generator);

} // namespace tarn::tool

#endif
