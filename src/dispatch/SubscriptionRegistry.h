#ifndef TARN_DISPATCH_SUBSCRIPTION_REGISTRY_H
#define TARN_DISPATCH_SUBSCRIPTION_REGISTRY_H

#include "diag/Trace.h"
#include "dispatch/HandlerFamilies.h"
#include "lock/ScopedLock.h"

// The Subscribe and Unsubscribe operations of both dispatchers. They are templates over the family
// and the dispatcher, because every log statement of every operation of each class is a site of its
// own, with its own gate.

#define TARN_REGISTRY_LOG(operation, priority, pieces)                                             \
    TARN_LOG_AS(self, HandlerFamilies::Logger(self), operation, priority, pieces)

namespace tarn::registry
{

template <typename Family, typename Dispatcher>
void Append(Dispatcher& self, HandlerList& list, iTarnMessageHandler* handler)
{
    ScopedLock lock(Family::Mutex(self));
    list.push_back(handler);
    TARN_REGISTRY_LOG(Family::SUBSCRIBE, PRIO_TRACE, "EXIT");
}

template <typename Family, typename Dispatcher>
void Remove(Dispatcher& self, HandlerList& list, const iTarnMessageHandler* handler)
{
    ScopedLock lock(Family::Mutex(self));
    HandlerWalk::RemoveEvery(list, handler);
    TARN_REGISTRY_LOG(Family::UNSUBSCRIBE, PRIO_TRACE, "EXIT");
}

template <typename Family, typename Dispatcher>
void Subscribe(Dispatcher& self, unsigned char address, iTarnMessageHandler* handler)
{
    TARN_REGISTRY_LOG(Family::SUBSCRIBE, PRIO_TRACE, "ENTER");
    if (address > HandlerFamilies::LAST_ADDRESS) {
        TARN_REGISTRY_LOG(Family::SUBSCRIBE, PRIO_ERROR, Family::INVALID_ADDRESS << address);
        return;
    }
    if (handler == nullptr) {
        TARN_REGISTRY_LOG(Family::SUBSCRIBE, PRIO_ERROR, "Handler is NULL");
        return;
    }
    TARN_REGISTRY_LOG(Family::SUBSCRIBE, PRIO_TRACE, Family::ADDING << unsigned{address});
    Append<Family>(self, Family::List(self, address), handler);
}

template <typename Family, typename Dispatcher>
void Unsubscribe(Dispatcher& self, unsigned char address, const iTarnMessageHandler* handler)
{
    TARN_REGISTRY_LOG(Family::UNSUBSCRIBE, PRIO_TRACE, "ENTER");
    if (address > HandlerFamilies::LAST_ADDRESS) {
        TARN_REGISTRY_LOG(Family::UNSUBSCRIBE, PRIO_ERROR, Family::INVALID_ADDRESS << address);
        return;
    }
    if constexpr (TRACES_DELETING<Dispatcher, Family>)
        TARN_REGISTRY_LOG(Family::UNSUBSCRIBE, PRIO_TRACE, Family::DELETING << unsigned{address});
    Remove<Family>(self, Family::List(self, address), handler);
}

template <typename Family, typename Dispatcher>
void Subscribe(Dispatcher& self, iTarnMessageHandler* handler)
{
    TARN_REGISTRY_LOG(Family::SUBSCRIBE, PRIO_TRACE, "ENTER");
    if (handler == nullptr) {
        TARN_REGISTRY_LOG(Family::SUBSCRIBE, PRIO_ERROR, "Handler is NULL");
        return;
    }
    TARN_REGISTRY_LOG(Family::SUBSCRIBE, PRIO_TRACE, "Adding Handler ...");
    Append<Family>(self, Family::List(self), handler);
}

template <typename Family, typename Dispatcher>
void Unsubscribe(Dispatcher& self, const iTarnMessageHandler* handler)
{
    TARN_REGISTRY_LOG(Family::UNSUBSCRIBE, PRIO_TRACE, "ENTER");
    if constexpr (TRACES_DELETING<Dispatcher, Family>)
        TARN_REGISTRY_LOG(Family::UNSUBSCRIBE, PRIO_TRACE, "Deleting Handler ...");
    Remove<Family>(self, Family::List(self), handler);
}

} // namespace tarn::registry

#undef TARN_REGISTRY_LOG

#endif
