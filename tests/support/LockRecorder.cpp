#include "support/LockRecorder.h"

#include <atomic>
#include <dlfcn.h>
#include <pthread.h>

namespace
{

std::atomic<support::LockObserver> gObserver{nullptr};
thread_local support::HeldMutexes tHeld;

template <typename Function>
Function* Real(const char* name)
{
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

void Push(const void* mutex)
{
    if (tHeld.count < tHeld.mutexes.size())
        tHeld.mutexes[tHeld.count++] = mutex;
}

/// Takes out the innermost lock of this mutex, which need not be the last.
void Pop(const void* mutex)
{
    for (std::size_t i = tHeld.count; i > 0; --i) {
        if (tHeld.mutexes[i - 1] != mutex)
            continue;
        for (std::size_t next = i; next < tHeld.count; ++next)
            tHeld.mutexes[next - 1] = tHeld.mutexes[next];
        --tHeld.count;
        return;
    }
}

} // namespace

extern "C" {

int pthread_mutex_lock(pthread_mutex_t* mutex) noexcept
{
    static auto* const real = Real<int(pthread_mutex_t*)>("pthread_mutex_lock");
    if (const support::LockObserver observer = gObserver)
        observer(mutex, tHeld);
    const int result = real(mutex);
    if (result == 0)
        Push(mutex);
    return result;
}

int pthread_mutex_trylock(pthread_mutex_t* mutex) noexcept
{
    static auto* const real = Real<int(pthread_mutex_t*)>("pthread_mutex_trylock");
    const int result = real(mutex);
    if (result == 0)
        Push(mutex);
    return result;
}

int pthread_mutex_unlock(pthread_mutex_t* mutex) noexcept
{
    static auto* const real = Real<int(pthread_mutex_t*)>("pthread_mutex_unlock");
    Pop(mutex);
    return real(mutex);
}

} // extern "C"

namespace support
{

void ObserveLocks(LockObserver observer)
{
    gObserver = observer;
}

} // namespace support
