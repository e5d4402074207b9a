#include "lock/ScopedLock.h"

#include <exception>

namespace tarn
{

ScopedLock::ScopedLock(Poco::Mutex& mutex)
    : mMutex(mutex),
      mExceptionsAtStart(std::uncaught_exceptions())
{
    mMutex.lock();
}

ScopedLock::~ScopedLock() noexcept(false)
{
    try {
        mMutex.unlock();
    } catch (...) {
        if (std::uncaught_exceptions() == mExceptionsAtStart)
            throw;
    }
}

void UnlockQuietly(Poco::Mutex& mutex) noexcept
{
    try {
        mutex.unlock();
    } catch (...) { // the caller has a more important exception at hand
    }
}

} // namespace tarn
