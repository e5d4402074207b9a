#ifndef TARN_DISPATCH_ROUTING_H
#define TARN_DISPATCH_ROUTING_H

#include "diag/Trace.h"
#include "dispatch/HandlerFamilies.h"
#include "dispatch/HandlerWalk.h"
#include "lock/ScopedLock.h"

#include <tarn/TarnMessage.h>
#include <tarn/iTarnMessageHandler.h>

// The walks of both dispatchers through their handlers: templates over the family and the
// dispatcher, because every log statement of every walk of each class is a site of its own.

#define TARN_ROUTING_TRACE(pieces)                                                                 \
    TARN_LOG_AS(self, HandlerFamilies::Logger(self), "DispatchResponse", PRIO_TRACE, pieces)

namespace tarn::routing
{

template <typename Family, typename Dispatcher>
void RemoveInvalid(Dispatcher& self, HandlerWalk& walk, const TarnMessage& message)
{
    if constexpr (TRACES_INVALID<Dispatcher>)
        TARN_ROUTING_TRACE(Family::REMOVING_INVALID << unsigned{Family::Number(message)});
    walk.Remove();
}

template <typename Family, typename Dispatcher>
void OfferTo(Dispatcher& self, HandlerWalk& walk, TarnMessage& message)
{
    if constexpr (Family::HAS_ADDRESS)
        TARN_ROUTING_TRACE(Family::DISPATCHING << unsigned{Family::Number(message)});
    else
        TARN_ROUTING_TRACE(Family::DISPATCHING);
    const bool done = walk.Handler()->DispatchResponse(message);
    if (done && walk.Remove())
        TARN_ROUTING_TRACE(Family::REMOVING << unsigned{Family::Number(message)});
}

/// Offers the message to every handler of the list, in order.
template <typename Family, typename Dispatcher>
void Walk(Dispatcher& self, HandlerList& list, TarnMessage& message)
{
    HandlerWalk walk(list);
    while (walk.Next()) {
        if (walk.Handler() == nullptr)
            RemoveInvalid<Family>(self, walk, message);
        else
            OfferTo<Family>(self, walk, message);
    }
}

/// A walk under the mutex of its family.
template <typename Family, typename Dispatcher>
void LockedWalk(Dispatcher& self, TarnMessage& message)
{
    ScopedLock lock(Family::Mutex(self));
    if constexpr (Family::HAS_ADDRESS) {
        // Nobody can be subscribed to address 127, but the frame can carry it.
        const unsigned char address = Family::Number(message);
        if (address <= HandlerFamilies::LAST_ADDRESS)
            Walk<Family>(self, Family::List(self, address), message);
    } else {
        Walk<Family>(self, Family::List(self), message);
    }
}

} // namespace tarn::routing

#undef TARN_ROUTING_TRACE

#endif
