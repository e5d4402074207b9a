#ifndef TESTS_SUPPORT_ALLOCATION_COUNTER_H
#define TESTS_SUPPORT_ALLOCATION_COUNTER_H

namespace support
{

/// How often this thread has called operator new since it began. Link AllocationCounter.cpp into
/// the test program: it replaces operator new and delete, for the libraries too.
unsigned long AllocationsSoFar();

/// How often the operation calls operator new on this thread.
template <typename Operation>
unsigned long CountAllocations(Operation&& operation)
{
    const unsigned long before = AllocationsSoFar();
    operation();
    return AllocationsSoFar() - before;
}

} // namespace support

#endif
