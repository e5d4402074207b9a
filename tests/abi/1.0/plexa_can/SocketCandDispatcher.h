#ifndef PLEXA_CAN_SOCKET_CAND_DISPATCHER_H
#define PLEXA_CAN_SOCKET_CAND_DISPATCHER_H

#include <plexa_can/Export.h>
#include <plexa_can/iCanBus.h>

#include <memory>
#include <string>
#include <tr1/memory>

namespace tarn
{

/// Where a server of the socketcand protocol offers a bus.
struct SocketCandAddress {
    std::string host;           ///< a name, or an address of IPv4 or IPv6
    std::string port = "29536"; ///< 1 to 65535
    std::string bus;            ///< as the server calls it, see IsSocketCandBusName()
};

/// Reads HOST:PORT/BUS or HOST/BUS; an address of IPv6 stands in brackets: [::1]:29536/can0.
/// @throws CanException when the text is no such address; the message says what to write
PLEXA_CAN_API SocketCandAddress ParseSocketCandAddress(const std::string& text);

/// A bus over TCP, by the protocol of socketcand: what "tarn serve" and socketcand itself offer.
///
/// A receive thread, named after the bus, lives as long as the object. Time stamps are those of the
/// server. Error frames come with their class, and with their data where the server sends them. The
/// protocol names no length of a remote request. An exception that leaves a handler is caught,
/// counted, and logged to the logger "SocketCandDispatcher", each text at most once a second; so
/// are complaints of the server, and the loss and return of the connection.
///
/// A connection that breaks stays broken unless reconnect is set: Send() throws at once, nothing
/// more is received. Nothing is kept for a connection to come. What others send meanwhile is not
/// heard and cannot be counted; GetCounters() tells how often that was (disconnections), and how
/// many frames that Send() took may not have reached the server (unconfirmed).
///
/// All operations may be called from any thread.
class PLEXA_CAN_API SocketCandDispatcher : public iCanBus
{
public:
    /// Times, and what becomes of a connection that breaks.
    struct Options {
        /// Milliseconds for a connection to be made and the bus opened, and for a server to
        /// answer when the first handler is started. Finding the host's address by name is not
        /// among it.
        unsigned int connectTimeout = 5000;
        /// How long Send() waits for room in the connection, in milliseconds.
        unsigned int sendTimeout = 1000;
        /// Whether a connection that broke is made again: after 100 ms, then in intervals that
        /// double up to 5 s. The host's address is that of the first time.
        bool reconnect = false;
        /// A server that says nothing for this many milliseconds is asked for an echo; when the
        /// same time passes once more without a sound, the connection counts as broken. Frames
        /// that wait in it are thrown away then, not sent late. 0: never asked.
        unsigned int keepAlive = 5000;
    };

    /// Connects and opens the bus.
    /// @throws CanException that names host, port, the step that failed, the system's or the
    ///     server's word for it and what to do; its code is the error number
    static std::tr1::shared_ptr<SocketCandDispatcher> Create(const SocketCandAddress& address,
                                                             const Options& options);
    /// The same with the options as they are by default.
    static std::tr1::shared_ptr<SocketCandDispatcher> Create(const SocketCandAddress& address);

    /// Stops all handlers as Stop() does. Frames that were sent are brought to the server first;
    /// one that does not confirm them is waited for for a second at most.
    ~SocketCandDispatcher() noexcept override;
    SocketCandDispatcher(const SocketCandDispatcher&) = delete;
    SocketCandDispatcher& operator=(const SocketCandDispatcher&) = delete;

    /// Adds a handler; adding one that is there already changes nothing. The first one asks the
    /// server for an echo and waits for it, so that what is on its way is not delivered. Adding
    /// one while there is no connection is no error.
    void Start(iCanMessageHandler* handler) override;

    /// Removes a handler; it is no error when it is not there. Blocks while a call to this handler
    /// is running on the receive thread.
    void Stop(iCanMessageHandler* handler) override;

    /// Hands one frame to the connection, with or without handlers. While that is full it waits,
    /// at most the send time-out.
    /// @throws CanException when the connection did not take the whole frame, at once when there is
    ///     none. The frame was not sent then, and will not be.
    void Send(CanMessage& frame) override;

    CanBusCounters GetCounters() const override;

    /// False from the moment that a break was noticed until the connection is there again.
    bool IsConnected() const;

    /// Why the connection broke for good; empty while there is one, or it is to be made again.
    std::string GetFailure() const;

    class Core;

private:
    explicit SocketCandDispatcher(std::shared_ptr<Core> core);

    std::shared_ptr<Core> mCore;
};

} // namespace tarn

#endif
