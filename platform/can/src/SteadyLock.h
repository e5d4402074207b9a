#ifndef PLEXA_CAN_SRC_STEADY_LOCK_H
#define PLEXA_CAN_SRC_STEADY_LOCK_H

#include <mutex>
#include <system_error>
#include <thread>

namespace tarn
{

/// A lock that is always got. Where a mutex says that it could not be locked, it is asked again:
/// a receive thread has nobody to tell, a destructor may not throw, and a frame that was taken from
/// a bus must not be forgotten half way.
template <typename Mutex>
class BasicSteadyLock : public std::unique_lock<Mutex>
{
public:
    explicit BasicSteadyLock(Mutex& mutex) : std::unique_lock<Mutex>(mutex, std::defer_lock)
    {
        lock();
    }

    // NOLINTNEXTLINE(readability-identifier-naming): it stands before that of std::unique_lock
    void lock() noexcept
    {
        while (!this->owns_lock()) {
            try {
                std::unique_lock<Mutex>::lock();
            } catch (const std::system_error&) {
                std::this_thread::yield();
            }
        }
    }
};

using SteadyLock = BasicSteadyLock<std::mutex>;
using SteadyRecursiveLock = BasicSteadyLock<std::recursive_mutex>;

} // namespace tarn

#endif
