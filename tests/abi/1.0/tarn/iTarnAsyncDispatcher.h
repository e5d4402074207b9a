#ifndef TARN_I_TARN_ASYNC_DISPATCHER_H
#define TARN_I_TARN_ASYNC_DISPATCHER_H

#include <tarn/Export.h>

namespace tarn
{

class TarnMessage;
class iTarnMessageHandler;

/// Sends messages and routes received ones to subscribed handlers.
///
/// There are four families of subscriptions: by source address, by target address, for CHCP
/// messages, and for all messages. Each has a recursive mutex of its own, held while handlers of
/// the family are called; no operation holds two of them.
///
/// Every operation may be called from any thread at any time, also from inside a handler; what a
/// handler may do, and in which order handlers run, stands in iTarnMessageHandler.h. Handlers are
/// never owned: a handler must outlive its subscriptions.
///
/// When Unsubscribe... has returned on a thread that is not inside a walk of that family, the
/// handler is not running through that subscription and will not run again: the call waits for a
/// walk in progress on another thread. For the same reason a thread must not call Subscribe... or
/// Unsubscribe... while it holds something that a handler waits for.
///
/// Bad arguments are no exceptions: an address above 126 ("Invalid SourceAddr: ", "Invalid
/// TargetAddr: " with the address as one raw character) or a null handler on subscribing ("Handler
/// is NULL") writes an error line to the log and changes nothing. Addresses are 7-bit, but 127 can
/// not be subscribed.
///
/// All operations throw Poco::SystemException, code 0, "cannot lock mutex" or "cannot unlock mutex"
/// when a mutex fails; after the latter the change was made.
class TARN_API iTarnAsyncDispatcher
{
public:
    /// May throw, since dispatchers log when they are destroyed and the logger mutex may fail. (Out
    /// of the release of a shared pointer such an exception ends the process.)
    virtual ~iTarnAsyncDispatcher() noexcept(false) {}

    /// Begins to receive from the bus.
    virtual void Start() = 0;

    /// Ends receiving: when it has returned, no frame is being routed and none will be. From inside
    /// a handler: once that handler has returned.
    virtual void Stop() = 0;

    /// Transmits one message. It is not routed to local handlers. Whether it blocks is a matter of
    /// the lower layer.
    /// @throws std::string for a message that cannot be framed, see TarnMessage::RawMessage()
    virtual void Send(TarnMessage& message) = 0;

    /// Receive the DATA messages that come from this address, 0 to 126. Subscribing a handler twice
    /// calls it twice for each message.
    /// @throws std::bad_alloc without memory for the entry; nothing was changed then
    virtual void SubscribeSource(unsigned char sourceAddr, iTarnMessageHandler* handler) = 0;

    /// Removes every subscription of the handler to this source address. It is no error when there
    /// is none. The same holds for the other Unsubscribe operations.
    virtual void UnsubscribeSource(unsigned char sourceAddr, iTarnMessageHandler* handler) = 0;

    /// Receive the DATA messages that go to this address, 0 to 126; otherwise as SubscribeSource().
    virtual void SubscribeTarget(unsigned char targetAddr, iTarnMessageHandler* handler) = 0;
    /// Removes every subscription of the handler to this target address.
    virtual void UnsubscribeTarget(unsigned char targetAddr, iTarnMessageHandler* handler) = 0;

    /// Receive every CHCP message.
    virtual void SubscribeChcp(iTarnMessageHandler* handler) = 0;
    /// Removes every CHCP subscription of the handler.
    virtual void UnsubscribeChcp(iTarnMessageHandler* handler) = 0;

    /// Receive every message, DATA and CHCP.
    virtual void SubscribeAll(iTarnMessageHandler* handler) = 0;

    /// Undoes SubscribeAll() only: subscriptions to addresses and to CHCP messages stay.
    virtual void UnsubscribeAll(iTarnMessageHandler* handler) = 0;
};

} // namespace tarn

#endif
