#ifndef TARN_VERSION_H
#define TARN_VERSION_H

/// @file
/// The one place of the version, of all three libraries, their packages and the command. It is that
/// of the headers; which library a program runs with, its SONAME tells: libplexa_tarn.so.1 serves
/// every 1.x.

/// Grows when programs have to be built again.
#define TARN_VERSION_MAJOR 1
/// Grows with what is new.
#define TARN_VERSION_MINOR 0
/// Grows with what is corrected.
#define TARN_VERSION_PATCH 0

/// "1.0.0"
#define TARN_VERSION                                                                               \
    TARN_VERSION_TEXT(TARN_VERSION_MAJOR)                                                          \
    "." TARN_VERSION_TEXT(TARN_VERSION_MINOR) "." TARN_VERSION_TEXT(TARN_VERSION_PATCH)

/// For the preprocessor: `#if TARN_VERSION_NUMBER >= TARN_VERSION_OF(1, 2, 0)`.
#define TARN_VERSION_OF(major, minor, patch) ((major)*10000 + (minor)*100 + (patch))
/// That of these headers, for the same comparison.
#define TARN_VERSION_NUMBER                                                                        \
    TARN_VERSION_OF(TARN_VERSION_MAJOR, TARN_VERSION_MINOR, TARN_VERSION_PATCH)

/// @cond
#define TARN_VERSION_TEXT(number) TARN_VERSION_TEXT_OF(number)
#define TARN_VERSION_TEXT_OF(number) #number
/// @endcond

#endif
