#include "Latency.h"
#include "Path.h"

#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <thread>

namespace bench
{

std::vector<Path>& Paths()
{
    static std::vector<Path> paths;
    return paths;
}

namespace
{

/// While a process has one thread only, the C library locks a mutex without an atomic operation,
/// and everything here would look cheaper than it is in a controller.
class SecondThread
{
public:
    SecondThread() : mThread([this] { Sleep(); }) {}

    ~SecondThread()
    {
        {
            const std::lock_guard<std::mutex> lock(mMutex);
            mEnd = true;
        }
        mChanged.notify_all();
        mThread.join();
    }

    SecondThread(const SecondThread&) = delete;
    SecondThread& operator=(const SecondThread&) = delete;

private:
    void Sleep()
    {
        std::unique_lock<std::mutex> lock(mMutex);
        mChanged.wait(lock, [this] { return mEnd; });
    }

    std::mutex mMutex;
    std::condition_variable mChanged;
    bool mEnd = false;
    std::thread mThread;
};

void CountInstructions(unsigned int times)
{
    for (const Path& path : Paths()) {
        if (path.execute != nullptr)
            path.execute(path.name.c_str(), times);
    }
}

void TimePaths()
{
    for (const Path& path : Paths()) {
        auto* const benchmark = benchmark::RegisterBenchmark(path.name.c_str(), path.time);
        if (path.hasThreads)
            benchmark->UseManualTime();
    }
    AddCurves();
    benchmark::RunSpecifiedBenchmarks();
}

} // namespace

} // namespace bench

int main(int argc, char** argv)
{
    const bench::SecondThread secondThread;
    if (argc == 3 && std::strcmp(argv[1], "--instructions") == 0) {
        bench::CountInstructions(static_cast<unsigned int>(std::atoi(argv[2])));
        return 0;
    }
    if (argc == 2 && std::strcmp(argv[1], "--latency") == 0) {
        bench::ReportLatencies();
        return 0;
    }
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv))
        return 2;
    bench::TimePaths();
    return 0;
}
