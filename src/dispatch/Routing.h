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

#define TARN_ROUTING_TRACE(...)                                                                    \
    TARN_LOG_AS(self, HandlerFamilies::Logger(self), "DispatchResponse", PRIO_TRACE, __VA_ARGS__)

namespace tarn::routing
{

template <typename Family, typename Dispatcher>
void RemoveInvalid(Dispatcher& self, HandlerWalk& walk, const TarnMessage& message)
{
    if constexpr (TRACES_INVALID<Dispatcher>)
        TARN_ROUTING_TRACE(Family::REMOVING_INVALID, unsigned{Family::Number(message)});
    walk.Remove();
}

template <typename Family, typename Dispatcher>
[[gnu::always_inline]] inline void OfferTo(Dispatcher& self, HandlerWalk& walk,
                                           TarnMessage& message)
{
    if constexpr (Family::HAS_ADDRESS)
        TARN_ROUTING_TRACE(Family::DISPATCHING, unsigned{Family::Number(message)});
    else
        TARN_ROUTING_TRACE(Family::DISPATCHING);
    const bool done = walk.Handler()->DispatchResponse(message);
    if (done && walk.Remove())
        TARN_ROUTING_TRACE(Family::REMOVING, unsigned{Family::Number(message)});
}

/// Offers the message to every handler of the list, in order. Apart from what leads here, which
/// then need not keep what only log lines want.
template <typename Family, typename Dispatcher>
[[gnu::noinline]] void Walk(Dispatcher& self, HandlerList& list, TarnMessage& message)
{
    HandlerWalk walk(list);
    while (walk.Next()) {
        if (walk.Handler() == nullptr)
            RemoveInvalid<Family>(self, walk, message);
        else
            OfferTo<Family>(self, walk, message);
    }
}

/// The list that a message is for; null for address 127, to which nobody can be subscribed, but
/// which a frame can carry.
template <typename Family, typename Dispatcher>
HandlerList* ListFor(Dispatcher& self, const TarnMessage& message)
{
    HandlerList* const lists = Family::Lists(self);
    if constexpr (Family::HAS_ADDRESS) {
        const unsigned char address = Family::Number(message);
        return address <= HandlerFamilies::LAST_ADDRESS ? lists + address : nullptr;
    } else {
        return lists;
    }
}

/// A walk under the mutex of its family. Most lists are empty, and asking costs less than walking.
template <typename Family, typename Dispatcher>
void LockedWalk(Dispatcher& self, TarnMessage& message)
{
    Locked(Family::Mutex(self), [&] {
        HandlerList* const list = ListFor<Family>(self, message);
        if (list != nullptr && !list->empty())
            Walk<Family>(self, *list, message);
    });
}

} // namespace tarn::routing

#undef TARN_ROUTING_TRACE

#endif
