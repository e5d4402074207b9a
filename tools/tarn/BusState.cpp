#include "BusState.h"

#include <plexa_can/SocketCanDispatcher.h>

namespace tarn::tool
{

std::string DescribeState(const iCanBus& bus)
{
    const auto* const interface = dynamic_cast<const SocketCanDispatcher*>(&bus);
    if (interface == nullptr)
        return {};
    switch (interface->GetBusState()) {
    case CAN_BUS_ERROR_ACTIVE:
        return "error-active";
    case CAN_BUS_ERROR_WARNING:
        return "error-active, with a warning: a counter has reached 96";
    case CAN_BUS_ERROR_PASSIVE:
        return "error-passive";
    case CAN_BUS_OFF:
        return "bus-off";
    case CAN_BUS_DOWN:
        return "down";
    case CAN_BUS_REMOVED:
        return "removed";
    }
    return "unknown";
}

} // namespace tarn::tool
