#ifndef PLEXA_CAN_SRC_CONTROLLER_STATE_H
#define PLEXA_CAN_SRC_CONTROLLER_STATE_H

#include <plexa_can/CanMessage.h>
#include <plexa_can/SocketCanDispatcher.h>

#include <cstddef>
#include <optional>

namespace tarn
{

/// What the kernel's answer to RTM_GETLINK (rtnetlink(7), linux/can/netlink.h) says of the CAN
/// controller of an interface. Nothing where there is no controller, as with vcan, where it does
/// not run, and where the answer is damaged or of another interface.
std::optional<tCanBusState> ParseControllerState(const void* answer, std::size_t size,
                                                 unsigned int interfaceIndex);

/// What an error frame (linux/can/error.h) says of the controller. Nothing for one that tells of
/// something else.
std::optional<tCanBusState> ControllerStateOf(const CanMessage& errorFrame);

} // namespace tarn

#endif
