#ifndef TESTS_SUPPORT_LOCK_RECORDER_H
#define TESTS_SUPPORT_LOCK_RECORDER_H

#include <array>
#include <cstddef>

namespace support
{

/// The mutexes that a thread holds, outermost first, as often as it has locked each.
struct HeldMutexes {
    std::array<const void*, 64> mutexes;
    std::size_t count;

    bool Contains(const void* mutex) const
    {
        for (std::size_t i = 0; i < count; ++i) {
            if (mutexes[i] == mutex)
                return true;
        }
        return false;
    }
};

/// Called with every mutex that a thread is about to lock, and what it holds already. It may lock
/// nothing itself.
using LockObserver = void (*)(const void* mutex, const HeldMutexes& held);

/// Observes the locks of all threads from now on; null for no longer.
///
/// Link LockRecorder.cpp into the test program: it stands before the C library's functions, for the
/// libraries too. Not for ThreadSanitizer, which stands in the same place.
void ObserveLocks(LockObserver observer);

} // namespace support

#endif
