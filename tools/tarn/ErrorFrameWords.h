#ifndef TARN_TOOLS_ERROR_FRAME_WORDS_H
#define TARN_TOOLS_ERROR_FRAME_WORDS_H

#include <plexa_can/CanMessage.h>

#include <string>

namespace tarn::tool
{

/// What an error frame tells, in words, by the codes of <linux/can/error.h>:
/// "controller: transmit error-passive; counters: transmit 128, receive 0".
std::string DescribeErrorFrame(const CanMessage& frame);

} // namespace tarn::tool

#endif
