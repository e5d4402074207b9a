#ifndef TESTS_SUPPORT_ALLOCATION_COUNTER_H
#define TESTS_SUPPORT_ALLOCATION_COUNTER_H

namespace support
{

/// How often this thread has called operator new since it began. Link AllocationCounter.cpp into
/// the test program: it replaces operator new and delete, for the libraries too.
unsigned long AllocationsSoFar();

/// How many bytes this thread has asked operator new for since it began.
unsigned long BytesSoFar();

/// How many allocations of all threads are not freed yet.
long LiveAllocations();

/// Makes the nth allocation that this thread makes from now on fail, counted from 1; those of other
/// threads and all later ones go through.
class AllocationFault
{
public:
    explicit AllocationFault(unsigned long nth);
    ~AllocationFault();
    AllocationFault(const AllocationFault&) = delete;
    AllocationFault& operator=(const AllocationFault&) = delete;
};

/// How often the operation calls operator new on this thread.
template <typename Operation>
unsigned long CountAllocations(Operation&& operation)
{
    const unsigned long before = AllocationsSoFar();
    operation();
    return AllocationsSoFar() - before;
}

/// How many bytes the operation asks operator new for on this thread.
template <typename Operation>
unsigned long CountBytes(Operation&& operation)
{
    const unsigned long before = BytesSoFar();
    operation();
    return BytesSoFar() - before;
}

} // namespace support

#endif
