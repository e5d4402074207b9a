#ifndef TARN_BENCH_CLOCKS_H
#define TARN_BENCH_CLOCKS_H

#include <ctime>

namespace bench
{

/// The time since the object was made, by one of the clocks of the system.
template <clockid_t Clock>
class TimeBy
{
public:
    TimeBy() : mStart(Now()) {}

    double Seconds() const { return Now() - mStart; }

private:
    static double Now()
    {
        timespec time = {};
        clock_gettime(Clock, &time);
        return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
    }

    double mStart;
};

// What other processes do meanwhile does not count.
using ThreadTime = TimeBy<CLOCK_THREAD_CPUTIME_ID>;   ///< of this thread
using ProcessTime = TimeBy<CLOCK_PROCESS_CPUTIME_ID>; ///< of all threads of this process

using WallTime = TimeBy<CLOCK_MONOTONIC>;

} // namespace bench

#endif
