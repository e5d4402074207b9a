#ifndef PLEXA_CAN_I_CAN_MESSAGE_HANDLER_H
#define PLEXA_CAN_I_CAN_MESSAGE_HANDLER_H

#include <plexa_can/Export.h>

namespace tarn
{

class CanMessage;

/// Receives the frames of a CAN bus.
class PLEXA_CAN_API iCanMessageHandler
{
public:
    /// May throw, because handlers that log or lock when they are destroyed may.
    virtual ~iCanMessageHandler() noexcept(false) {}

    /// One frame was received. The frame is valid during the call only. Runs on the thread by which
    /// the bus delivers, so a handler that blocks holds up every frame behind this one.
    virtual void DispatchResponse(CanMessage& frame) = 0;
};

} // namespace tarn

#endif
