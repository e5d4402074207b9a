#ifndef TARN_TOOLS_ERROR_FRAME_WORDS_H
#define TARN_TOOLS_ERROR_FRAME_WORDS_H

#include <plexa_can/CanMessage.h>

#include <optional>
#include <string>

namespace tarn::tool
{

/// What an error frame tells, in words, by the codes of <linux/can/error.h>:
/// "controller: transmit error-passive; counters: transmit 128, receive 0".
std::string DescribeErrorFrame(const CanMessage& frame);

/// The error counters of a controller (ISO 11898-1).
struct ErrorCounters {
    unsigned int transmit;
    unsigned int receive;
};

/// Nothing when the error frame does not tell them.
std::optional<ErrorCounters> ErrorCountersOf(const CanMessage& frame);

} // namespace tarn::tool

#endif
