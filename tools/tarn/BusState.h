#ifndef TARN_TOOLS_BUS_STATE_H
#define TARN_TOOLS_BUS_STATE_H

#include <plexa_can/iCanBus.h>

#include <string>

namespace tarn::tool
{

/// "error-active", "bus-off", "down": what a bus tells of itself; empty for a bus that does not.
std::string DescribeState(const iCanBus& bus);

} // namespace tarn::tool

#endif
