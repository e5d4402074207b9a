#ifndef TARN_EXPORT_H
#define TARN_EXPORT_H

/// @file
/// What libplexa_tarn exports.

/// Marks what libplexa_tarn offers to others; everything else in it is hidden.
#define TARN_API __attribute__((visibility("default")))

#endif
