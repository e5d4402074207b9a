#ifndef TARN_TESTS_CAN_KERNEL_BUSY_THREADS_H
#define TARN_TESTS_CAN_KERNEL_BUSY_THREADS_H

#include <atomic>
#include <thread>
#include <vector>

namespace tarn::test
{

/// Threads that only compute.
class BusyThreads
{
public:
    explicit BusyThreads(unsigned int count)
    {
        for (unsigned int i = 0; i < count; ++i)
            mThreads.emplace_back([this] {
                while (!mEnd)
                    ++mWork;
            });
    }
    ~BusyThreads()
    {
        mEnd = true;
        for (std::thread& thread : mThreads)
            thread.join();
    }
    BusyThreads(const BusyThreads&) = delete;
    BusyThreads& operator=(const BusyThreads&) = delete;

private:
    std::atomic<bool> mEnd{false};
    std::atomic<unsigned long long> mWork{0};
    std::vector<std::thread> mThreads;
};

} // namespace tarn::test

#endif
