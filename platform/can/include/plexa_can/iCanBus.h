#ifndef PLEXA_CAN_I_CAN_BUS_H
#define PLEXA_CAN_I_CAN_BUS_H

#include <plexa_can/Export.h>
#include <plexa_can/iCanAsyncDispatcher.h>

namespace tarn
{

/// What a connection to a bus has done since it was made. At any quiet moment, when no frame is
/// under way,
///
///     received                          = delivered + unheard + filtered
///     received + droppedByKernel + lost = what came over the bus for it + duplicated
///     sent + sendFailures               = the calls of Send()
///
/// What came over the bus are the frames of the others, and error frames. A figure that a bus has
/// no use for stays 0.
struct CanBusCounters {
    /// Frames that came in, error frames included. Of a log: the lines or packets that were read,
    /// without comments and without the frame that is next.
    unsigned long long received = 0;
    /// Of these: handed to the handlers, each once however many handlers there are.
    unsigned long long delivered = 0;
    /// Of these: came while no handler was there. A log waits for handlers instead.
    unsigned long long unheard = 0;
    /// Of these: no classical CAN frame. CAN FD; of a log also what is damaged.
    unsigned long long filtered = 0;
    /// Error frames among the received.
    unsigned long long errorFrames = 0;
    /// Lost because the reader was too slow. A CAN interface alone: the others make the sender
    /// wait.
    unsigned long long droppedByKernel = 0;
    /// Taken away on a virtual bus, by its faults or because the node was bus-off. Of a bus over
    /// TCP: there was no memory to keep them.
    unsigned long long lost = 0;
    /// Came in once more by the faults of a virtual bus.
    unsigned long long duplicated = 0;
    /// Exceptions that left a handler.
    unsigned long long handlerExceptions = 0;
    /// Frames that Send() handed over: to the kernel, the virtual bus, the record of a log, the
    /// connection to a server.
    unsigned long long sent = 0;
    /// Times that Send() met a full queue and waited. A CAN interface is asked again and again, a
    /// virtual bus wakes the sender, so it counts a call once.
    unsigned long long sendRetries = 0;
    /// Send() calls that threw, since the bus did not take the frame.
    unsigned long long sendFailures = 0;
    /// Of a bus over TCP: frames among the sent of which nobody knows whether they reached the
    /// bus, because the connection broke, or which the far side said it could not send.
    unsigned long long unconfirmed = 0;
    /// Of a bus over TCP: times that the connection broke. What came over the bus until it was
    /// there again is in no figure.
    unsigned long long disconnections = 0;
};

/// A connection to a bus that keeps accounts.
class PLEXA_CAN_API iCanBus : public iCanAsyncDispatcher
{
public:
    /// May be called from any thread, also from inside a handler. Each figure is right for the
    /// moment it is read in.
    virtual CanBusCounters GetCounters() const = 0;
};

} // namespace tarn

#endif
