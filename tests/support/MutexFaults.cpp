#include "support/MutexFaults.h"

#include <array>
#include <cerrno>
#include <dlfcn.h>
#include <pthread.h>
#include <utility>

namespace
{

struct Calls {
    unsigned int made;
    unsigned int failing; ///< the number of the call that fails; 0 for none
    unsigned int awaited; ///< the number of the call that a function runs before
    const std::function<void()>* function;
};

thread_local std::array<Calls, 4> tCalls;

/// Counts the call; true when it is the one that has to fail.
bool Fails(support::tMutexCall call)
{
    Calls& calls = tCalls[call];
    const unsigned int number = ++calls.made;
    if (number == calls.awaited)
        (*calls.function)();
    return number == calls.failing;
}

template <typename Function>
Function* Real(const char* name)
{
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

} // namespace

extern "C" {

int pthread_mutex_lock(pthread_mutex_t* mutex) noexcept
{
    static auto* const real = Real<int(pthread_mutex_t*)>("pthread_mutex_lock");
    return Fails(support::LOCK) ? EAGAIN : real(mutex);
}

int pthread_mutex_unlock(pthread_mutex_t* mutex) noexcept
{
    static auto* const real = Real<int(pthread_mutex_t*)>("pthread_mutex_unlock");
    const int result = real(mutex);
    return Fails(support::UNLOCK) ? EPERM : result;
}

int pthread_cond_broadcast(pthread_cond_t* condition) noexcept
{
    static auto* const real = Real<int(pthread_cond_t*)>("pthread_cond_broadcast");
    return Fails(support::BROADCAST) ? EINVAL : real(condition);
}

int pthread_cond_timedwait(pthread_cond_t* condition, pthread_mutex_t* mutex, const timespec* end)
{
    using Function = int(pthread_cond_t*, pthread_mutex_t*, const timespec*);
    static auto* const real = Real<Function>("pthread_cond_timedwait");
    return Fails(support::WAIT) ? ETIMEDOUT : real(condition, mutex, end);
}

} // extern "C"

namespace support
{

MutexFault::MutexFault(tMutexCall call, unsigned int nth) : mCall(call)
{
    tCalls[mCall].failing = tCalls[mCall].made + nth;
}

MutexFault::~MutexFault()
{
    tCalls[mCall].failing = 0;
}

BeforeMutexCall::BeforeMutexCall(tMutexCall call, unsigned int nth, std::function<void()> function)
    : mCall(call),
      mFunction(std::move(function))
{
    tCalls[mCall].awaited = tCalls[mCall].made + nth;
    tCalls[mCall].function = &mFunction;
}

BeforeMutexCall::~BeforeMutexCall()
{
    tCalls[mCall].awaited = 0;
}

unsigned int CallsSoFar(tMutexCall call)
{
    return tCalls[call].made;
}

} // namespace support
