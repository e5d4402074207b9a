#ifndef PLEXA_CAN_I_CAN_ASYNC_DISPATCHER_H
#define PLEXA_CAN_I_CAN_ASYNC_DISPATCHER_H

#include <plexa_can/Export.h>

namespace tarn
{

class CanMessage;
class iCanMessageHandler;

/// A connection to a CAN bus.
class PLEXA_CAN_API iCanAsyncDispatcher
{
public:
    /// May throw, as an implementation that locks may fail to.
    virtual ~iCanAsyncDispatcher() noexcept(false) {}

    /// From now on every received frame is delivered to the handler, on a thread of the bus's own
    /// choice. What came while there was no handler is not. The handler is not owned and must stay
    /// alive until Stop returned.
    virtual void Start(iCanMessageHandler* handler) = 0;

    /// Delivers to this handler no longer: when the call has returned, none of its
    /// DispatchResponse calls is running or will start. Called from inside that very handler, it
    /// takes effect when the running call returns. Stopping a handler that is stopped already, or
    /// never was started, is no error; it waits for a running call too.
    virtual void Stop(iCanMessageHandler* handler) = 0;

    /// Transmits one frame, which is copied if it is kept beyond the call. May be called from
    /// several threads at once. A bus whose queue is full may block for a time of its own.
    /// @throws CanException when the bus did not take the frame.
    virtual void Send(CanMessage& frame) = 0;
};

} // namespace tarn

#endif
