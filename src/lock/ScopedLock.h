#ifndef TARN_LOCK_SCOPED_LOCK_H
#define TARN_LOCK_SCOPED_LOCK_H

#include <Poco/Mutex.h>

#include <type_traits>

namespace tarn
{

// Both forms hold a mutex for a while and let a failing unlock out, which Poco::ScopedLock would
// swallow. Only where an exception is already leaving does that one go on alone.

/// Holds a mutex for a scope.
class ScopedLock
{
public:
    explicit ScopedLock(Poco::Mutex& mutex);
    ~ScopedLock() noexcept(false);
    ScopedLock(const ScopedLock&) = delete;
    ScopedLock& operator=(const ScopedLock&) = delete;

private:
    Poco::Mutex& mMutex;
    int mExceptionsAtStart;
};

void UnlockQuietly(Poco::Mutex& mutex) noexcept;

/// Runs a body under a mutex and returns its result. For what every frame passes through: all of it
/// is inline, at 300 bytes a use, and it need not ask the C++ runtime, as a destructor has to,
/// whether an exception is under way.
template <typename Body>
auto Locked(Poco::Mutex& mutex, Body body)
{
    struct Release {
        ~Release()
        {
            if (mutex != nullptr) // an exception goes on
                UnlockQuietly(*mutex);
        }
        Poco::Mutex* mutex;
    };
    mutex.lock();
    Release release = {&mutex};
    if constexpr (std::is_void_v<decltype(body())>) {
        body();
        release.mutex = nullptr;
        mutex.unlock();
    } else {
        auto result = body();
        release.mutex = nullptr;
        mutex.unlock();
        return result;
    }
}

} // namespace tarn

#endif
