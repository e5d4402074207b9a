#ifndef TARN_I_TARN_MESSAGE_HANDLER_H
#define TARN_I_TARN_MESSAGE_HANDLER_H

#include <tarn/Export.h>

namespace tarn
{

class TarnMessage;

/// Receives Tarn messages from a dispatcher it was subscribed to.
///
/// Order. A DATA message reaches the handlers of its source address, then those of its target
/// address, then the All handlers; a CHCP message the CHCP handlers, then the All handlers. Within
/// one list handlers are called in the order of their subscription. A handler that stands in
/// several lists, or several times in one, is called for each.
///
/// Thread. Handlers run on the thread that brought the frame: the receive thread of the CAN layer,
/// or whoever feeds the mock. The mutex of the list being walked is held meanwhile, so handlers of
/// one family never run at the same time (but for the mock's CHCP handlers, see there), and a
/// handler that blocks holds up every frame behind this one and every thread that wants to change
/// the subscriptions of that family.
///
/// A handler that throws. The exception leaves the dispatcher towards the thread that brought the
/// frame. Handlers behind the throwing one do not see this message. All subscriptions stay, that of
/// the throwing handler included, and every list stays usable.
///
/// Unsubscribing inside a handler. Returning true is the way to leave the list that is delivering.
/// A handler may all the same unsubscribe itself or any other handler from any list, the delivering
/// one included: a removed entry is not called afterwards, no other entry is skipped or called
/// twice, and returning true after having removed the own entry removes nothing else.
///
/// Subscribing inside a handler. Allowed for every list. An entry added to the list that is
/// delivering is reached by the same message. (A handler that adds one at every call therefore
/// never comes to an end.)
///
/// Several receive threads. A handler that changes the subscriptions of another family, or causes
/// another frame to be dispatched, waits for walks of those families on other threads; two handlers
/// that do so crosswise would wait for each other. So where frames come in on several threads at
/// once, handlers change only their own family and those behind it in the order source, target,
/// CHCP, All, and dispatch nothing. With one receive thread, as a bus has it, there is no such
/// rule.
///
/// A handler may also send, and may cause another frame to be dispatched on the same thread, to any
/// depth. It must not block for long. In particular TarnSyncRequest::Send() waits for a frame that
/// this very thread would have to deliver, and so always times out inside a handler. It must not
/// change the addresses or the type of the message, which later handlers still get.
class TARN_API iTarnMessageHandler
{
public:
    /// May throw, because handlers that log or lock when they are destroyed may. A class that holds
    /// a handler as a member while its own destructor must not throw (a standard container's
    /// element, a GoogleTest fixture) wants a handler with "~MyHandler() noexcept override {}". A
    /// handler must not be destroyed while it is subscribed.
    virtual ~iTarnMessageHandler() noexcept(false) {}

    /// One message was received. The message belongs to the dispatcher and lives during the call
    /// only; copy it to keep it.
    /// @return true to remove this one subscription at once, false to keep it.
    virtual bool DispatchResponse(TarnMessage& message) = 0;
};

} // namespace tarn

#endif
