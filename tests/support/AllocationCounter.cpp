#include "support/AllocationCounter.h"

#include <cstdlib>
#include <new>

namespace
{

thread_local unsigned long tAllocations = 0;

} // namespace

// The array and nothrow forms of the standard library call these.

void* operator new(std::size_t size)
{
    ++tAllocations;
    if (void* const memory = std::malloc(size != 0 ? size : 1))
        return memory;
    throw std::bad_alloc();
}

void operator delete(void* memory) noexcept
{
    std::free(memory);
}

void operator delete(void* memory, std::size_t) noexcept
{
    std::free(memory);
}

namespace support
{

unsigned long AllocationsSoFar()
{
    return tAllocations;
}

} // namespace support
