#ifndef FUZZ_REQUIRE_H
#define FUZZ_REQUIRE_H

#include <cstdio>
#include <cstdlib>

/// Ends the fuzzer where a property does not hold; the input is kept then.
inline void Require(bool holds, const char* what, const char* file = __builtin_FILE(),
                    int line = __builtin_LINE())
{
    if (holds)
        return;
    std::fprintf(stderr, "%s:%d: does not hold: %s\n", file, line, what);
    std::abort();
}

#endif
