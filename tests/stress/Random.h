#ifndef TESTS_STRESS_RANDOM_H
#define TESTS_STRESS_RANDOM_H

#include <atomic>
#include <random>

namespace tarn::stress
{

/// Where the chances of all threads begin; each thread has a sequence of its own.
inline std::atomic<unsigned long long> gSeed{1};
inline std::atomic<unsigned long long> gThreads{0};

/// One of 0 to count - 1.
inline unsigned int Chance(unsigned int count)
{
    thread_local std::mt19937_64 engine(gSeed * 1000003 + gThreads++);
    return static_cast<unsigned int>(engine() % count);
}

} // namespace tarn::stress

#endif
