#ifndef PLEXA_CAN_CAN_BUS_H
#define PLEXA_CAN_CAN_BUS_H

#include <plexa_can/Export.h>
#include <plexa_can/iCanBus.h>

#include <string>
#include <tr1/memory>

namespace tarn
{

/// Buses by name, so that a program can leave it to its user which one it runs on.
///
///     socketcan:NAME  a SocketCanDispatcher on the interface NAME
///         errors=0|1  buffer=BYTES  timeout=MS  priority=0..99
///     virtual:NAME    a node on VirtualCanBus::Open(NAME): a bus of this process alone,
///                     which "tarn serve" offers to others
///         delivery=threaded|inline  queue=FRAMES  timeout=MS  bitrate=BITS
///             the bus's options; they count for the first who opens the bus
///         loss=P  duplication=P  error=P  delay=MS  seed=NUMBER
///             its faults, with probabilities from 0 to 1; when one is given, they replace what the
///             bus had
///     log:FILE        a LogReplayDispatcher
///         speed=FACTOR|max  loop=0|1  record=FILE
///     socketcand:HOST:PORT/BUS  a SocketCandDispatcher: the bus BUS of a server over TCP
///         timeout=MS  connect=MS  reconnect=0|1  keepalive=MS
///             without :PORT it is 29536; an address of IPv6 stands in brackets
///
/// Numbers are decimal. What is not given is as in the class's own options. See BusName for the
/// form of a name.
class PLEXA_CAN_API CanBus
{
public:
    /// Opens a bus, or one more connection to it. From any thread. Blocks while a bus over TCP is
    /// being connected, and for a log that is a FIFO until somebody writes to it. What is returned
    /// is the caller's own connection.
    /// @throws CanException for a name, scheme, key or value that is unknown, with a message that
    ///     lists the known ones; and when the bus cannot be opened
    static std::tr1::shared_ptr<iCanBus> Open(const std::string& name);
};

} // namespace tarn

#endif
