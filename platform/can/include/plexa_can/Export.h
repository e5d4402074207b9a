#ifndef PLEXA_CAN_EXPORT_H
#define PLEXA_CAN_EXPORT_H

/// @file
/// What libplexa_can exports.

/// Marks what libplexa_can offers to others; everything else in it is hidden.
#define PLEXA_CAN_API __attribute__((visibility("default")))

/// Marks a class inside one that is offered, which would be offered with it otherwise.
#define PLEXA_CAN_HIDDEN __attribute__((visibility("hidden")))

#endif
