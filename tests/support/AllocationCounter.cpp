#include "support/AllocationCounter.h"

#include <atomic>
#include <cstdlib>
#include <new>

namespace
{

thread_local unsigned long tAllocations = 0;
thread_local unsigned long tBytes = 0;
thread_local unsigned long tFailing = 0; // the number of the allocation that fails; 0 for none
std::atomic<long> live{0};

} // namespace

// The array and nothrow forms of the standard library call these.

void* operator new(std::size_t size)
{
    if (++tAllocations == tFailing)
        throw std::bad_alloc();
    void* const memory = std::malloc(size != 0 ? size : 1);
    if (memory == nullptr)
        throw std::bad_alloc();
    ++live;
    tBytes += size;
    return memory;
}

void operator delete(void* memory) noexcept
{
    if (memory != nullptr)
        --live;
    std::free(memory);
}

void operator delete(void* memory, std::size_t) noexcept
{
    operator delete(memory);
}

namespace support
{

unsigned long AllocationsSoFar()
{
    return tAllocations;
}

unsigned long BytesSoFar()
{
    return tBytes;
}

long LiveAllocations()
{
    return live;
}

AllocationFault::AllocationFault(unsigned long nth)
{
    tFailing = tAllocations + nth;
}

AllocationFault::~AllocationFault()
{
    tFailing = 0;
}

} // namespace support
