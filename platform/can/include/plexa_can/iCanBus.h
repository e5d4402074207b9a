#ifndef PLEXA_CAN_I_CAN_BUS_H
#define PLEXA_CAN_I_CAN_BUS_H

#include <plexa_can/Export.h>
#include <plexa_can/iCanAsyncDispatcher.h>

namespace tarn
{

/// What a connection to a bus has done since it was made. At any quiet moment
///
///     received = delivered + unheard + filtered
///
/// and received + droppedByKernel is what the others have put on the bus for it.
struct CanBusCounters {
    unsigned long long received = 0;          ///< frames that came in, error frames included
    unsigned long long delivered = 0;         ///< of these: handed to the handlers
    unsigned long long unheard = 0;           ///< of these: came while no handler was there
    unsigned long long filtered = 0;          ///< of these: not what was asked for (CAN FD, say)
    unsigned long long errorFrames = 0;       ///< error frames among the received
    unsigned long long droppedByKernel = 0;   ///< lost because the reader was too slow
    unsigned long long handlerExceptions = 0; ///< exceptions that left a handler
    unsigned long long sent = 0;              ///< frames that Send() handed over
    unsigned long long sendRetries = 0;       ///< attempts that met a full queue
    unsigned long long sendFailures = 0;      ///< Send() calls that threw
};

/// A connection to a bus that keeps accounts.
class PLEXA_CAN_API iCanBus : public iCanAsyncDispatcher
{
public:
    /// May be called from any thread; each figure is right for the moment it is read in.
    virtual CanBusCounters GetCounters() const = 0;
};

} // namespace tarn

#endif
