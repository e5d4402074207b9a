#ifndef TARN_BENCH_PINNED_H
#define TARN_BENCH_PINNED_H

#include <sched.h>

namespace bench
{

/// Keeps this thread, and the threads that it starts meanwhile, on one processor.
class Pinned
{
public:
    explicit Pinned(unsigned int processor)
    {
        sched_getaffinity(0, sizeof mBefore, &mBefore);
        cpu_set_t one;
        CPU_ZERO(&one);
        CPU_SET(processor, &one);
        sched_setaffinity(0, sizeof one, &one);
    }

    ~Pinned() { sched_setaffinity(0, sizeof mBefore, &mBefore); }
    Pinned(const Pinned&) = delete;
    Pinned& operator=(const Pinned&) = delete;

private:
    cpu_set_t mBefore = {};
};

/// Gives this thread, and the threads that it starts meanwhile, a real-time priority, as the
/// threads of a controller have; without the right to do so, the scheduling class that comes next
/// to it in that a thread which wakes another one runs on.
class RealTime
{
public:
    RealTime()
    {
        sched_param priority = {};
        priority.sched_priority = 10;
        if (sched_setscheduler(0, SCHED_FIFO, &priority) == 0)
            return;
        priority.sched_priority = 0;
        sched_setscheduler(0, SCHED_BATCH, &priority);
    }

    ~RealTime()
    {
        const sched_param priority = {};
        sched_setscheduler(0, SCHED_OTHER, &priority);
    }

    RealTime(const RealTime&) = delete;
    RealTime& operator=(const RealTime&) = delete;
};

/// The scheduling class of every process that does not ask for another.
struct Ordinary {
    Ordinary() {} // so that no warning calls it unused
};

constexpr unsigned int FIRST_PROCESSOR = 0;
constexpr unsigned int SECOND_PROCESSOR = 1;

} // namespace bench

#endif
