#ifndef TARN_BENCH_PATH_H
#define TARN_BENCH_PATH_H

#include <benchmark/benchmark.h>

#include <string>
#include <valgrind/callgrind.h>
#include <vector>

namespace bench
{

/// A path through the code, or a reference to compare one with.
struct Path {
    std::string name;
    void (*time)(benchmark::State&);
    void (*execute)(const char* name, unsigned int times); ///< null: instructions tell nothing
    bool hasThreads;
};

/// In the order in which they were added.
std::vector<Path>& Paths();

template <typename Operation>
void Time(benchmark::State& state)
{
    Operation operation;
    for (auto _ : state)
        operation();
}

/// Counts the instructions of this many passes, under callgrind, into a dump that bears the name.
template <typename Operation>
void Execute(const char* name, unsigned int times)
{
    constexpr unsigned int WARM_UP = 16; // the first passes decide gates and fill caches
    Operation operation;
    for (unsigned int pass = 0; pass < WARM_UP; ++pass)
        operation();
    CALLGRIND_ZERO_STATS;
    for (unsigned int pass = 0; pass < times; ++pass)
        operation();
    CALLGRIND_DUMP_STATS_AT(name);
}

/// One pass is operation(), on an object that is made before the first.
template <typename Operation>
bool AddPath(const std::string& name)
{
    Paths().push_back({name, Time<Operation>, Execute<Operation>, false});
    return true;
}

/// A path that keeps its own time, or that other threads take part in.
inline bool AddTimed(const std::string& name, void (*time)(benchmark::State&), bool hasThreads)
{
    Paths().push_back({name, time, nullptr, hasThreads});
    return true;
}

/// Registers the benchmarks whose names begin with "curve/".
void AddCurves();

} // namespace bench

#endif
