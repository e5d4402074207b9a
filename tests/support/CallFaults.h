#ifndef TESTS_SUPPORT_CALL_FAULTS_H
#define TESTS_SUPPORT_CALL_FAULTS_H

#include <string>
#include <vector>

namespace support
{

/// Makes the nth call of one kind that the process makes from now on fail, counted from 1, on
/// whatever thread; all others go through. Kinds are the functions by name, and "operator new".
///
/// Link CallFaults.cpp into the test program: it stands before the C and C++ libraries' functions,
/// for all libraries. Not for ThreadSanitizer, which stands in the same place.
class CallFault
{
public:
    CallFault(const char* function, unsigned int nth);
    ~CallFault();
    CallFault(const CallFault&) = delete;
    CallFault& operator=(const CallFault&) = delete;

    /// Whether the call that was to fail was made.
    static bool WasHit();

    /// The kinds of all calls that were made, failing or not.
    static std::vector<std::string> KindsSeen();
};

/// The calling thread, and all threads that it starts while this lives, and those that they start,
/// are spared by faults.
class SparedThreads
{
public:
    SparedThreads();
    ~SparedThreads();
    SparedThreads(const SparedThreads&) = delete;
    SparedThreads& operator=(const SparedThreads&) = delete;
};

/// How many allocations of the process are not freed yet.
long LiveBlocks();

} // namespace support

#endif
