#ifndef PLEXA_CAN_EXPORT_H
#define PLEXA_CAN_EXPORT_H

/// @file
/// What libplexa_can exports.

/// Marks what libplexa_can offers to others; everything else in it is hidden.
#define PLEXA_CAN_API __attribute__((visibility("default")))

#endif
