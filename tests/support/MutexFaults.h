#ifndef TESTS_SUPPORT_MUTEX_FAULTS_H
#define TESTS_SUPPORT_MUTEX_FAULTS_H

#include <functional>

namespace support
{

/// The calls of a thread library that can be made to fail.
enum tMutexCall : unsigned int { LOCK, UNLOCK, BROADCAST, WAIT };

/// Makes the nth call of one kind that this thread makes from now on fail, counted from 1; the
/// calls of other threads and all later ones go through. A lock that fails is not taken; an unlock
/// that fails *was* done, so the mutex is free; a broadcast that fails wakes nobody; a wait with a
/// time limit that fails is over at once.
///
/// Link MutexFaults.cpp into the test program: it stands before the C library's functions, for the
/// libraries too. Keep the fault alive around the operation under test only: the test framework
/// locks mutexes as well. Not for ThreadSanitizer, which stands in the same place.
class MutexFault
{
public:
    MutexFault(tMutexCall call, unsigned int nth);
    ~MutexFault();
    MutexFault(const MutexFault&) = delete;
    MutexFault& operator=(const MutexFault&) = delete;

private:
    tMutexCall mCall;
};

/// Runs a function just before the nth call of one kind that this thread makes from now on: what
/// another thread might do at that moment. Under the same rules as a fault.
class BeforeMutexCall
{
public:
    BeforeMutexCall(tMutexCall call, unsigned int nth, std::function<void()> function);
    ~BeforeMutexCall();
    BeforeMutexCall(const BeforeMutexCall&) = delete;
    BeforeMutexCall& operator=(const BeforeMutexCall&) = delete;

private:
    tMutexCall mCall;
    std::function<void()> mFunction;
};

/// How often this thread has made such a call since it began.
unsigned int CallsSoFar(tMutexCall call);

/// How often the operation makes such a call on this thread.
template <typename Operation>
unsigned int CountCalls(tMutexCall call, Operation&& operation)
{
    const unsigned int before = CallsSoFar(call);
    operation();
    return CallsSoFar(call) - before;
}

} // namespace support

#endif
