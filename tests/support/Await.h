#ifndef TARN_TESTS_SUPPORT_AWAIT_H
#define TARN_TESTS_SUPPORT_AWAIT_H

#include <chrono>
#include <condition_variable>
#include <mutex>

namespace tarn::test
{

/// How long a test waits for what must happen before it fails.
constexpr std::chrono::seconds PATIENCE(20);

/// A gate that threads wait at until somebody opens it.
class Gate
{
public:
    void Open()
    {
        const std::lock_guard<std::mutex> lock(mMutex);
        mOpen = true;
        mChanged.notify_all();
    }

    /// False when nobody opened it in time.
    bool Pass()
    {
        std::unique_lock<std::mutex> lock(mMutex);
        return mChanged.wait_for(lock, PATIENCE, [this] { return mOpen; });
    }

    bool IsOpen()
    {
        const std::lock_guard<std::mutex> lock(mMutex);
        return mOpen;
    }

private:
    std::mutex mMutex;
    std::condition_variable mChanged;
    bool mOpen = false;
};

} // namespace tarn::test

#endif
