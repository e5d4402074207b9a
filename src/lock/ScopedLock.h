#ifndef TARN_LOCK_SCOPED_LOCK_H
#define TARN_LOCK_SCOPED_LOCK_H

#include <Poco/Mutex.h>

#include <exception>

namespace tarn
{

/// Holds a mutex for a scope, and lets a failing unlock out: Poco::ScopedLock would swallow it.
/// Only where an exception is already leaving the scope does that one go on alone.
class ScopedLock
{
public:
    explicit ScopedLock(Poco::Mutex& mutex)
        : mMutex(mutex),
          mExceptionsAtStart(std::uncaught_exceptions())
    {
        mMutex.lock();
    }

    ~ScopedLock() noexcept(false)
    {
        try {
            mMutex.unlock();
        } catch (...) {
            if (std::uncaught_exceptions() == mExceptionsAtStart)
                throw;
        }
    }

    ScopedLock(const ScopedLock&) = delete;
    ScopedLock& operator=(const ScopedLock&) = delete;

private:
    Poco::Mutex& mMutex;
    int mExceptionsAtStart;
};

} // namespace tarn

#endif
