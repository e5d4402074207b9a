#include "dispatch/SubscriptionRegistry.h"

#include "lock/ScopedLock.h"

#define TARN_REGISTRY_LOG(site, priority, ...)                                                     \
    TARN_LOG_AT(sites.site, logger, type, name, priority, __VA_ARGS__)

namespace tarn::registry
{

void Operation::Subscribe(unsigned char address, iTarnMessageHandler* handler) const
{
    TARN_REGISTRY_LOG(enter, PRIO_TRACE, "ENTER");
    if (!IsAddress(address) || !IsHandler(handler))
        return;
    TraceAction(address);
    ScopedLock lock(mutex);
    lists[address].push_back(handler);
    TARN_REGISTRY_LOG(exit, PRIO_TRACE, "EXIT");
}

void Operation::Unsubscribe(unsigned char address, const iTarnMessageHandler* handler) const
{
    TARN_REGISTRY_LOG(enter, PRIO_TRACE, "ENTER");
    if (!IsAddress(address))
        return;
    TraceAction(address);
    ScopedLock lock(mutex);
    HandlerWalk::RemoveEvery(lists[address], handler);
    TARN_REGISTRY_LOG(exit, PRIO_TRACE, "EXIT");
}

bool Operation::IsAddress(unsigned char address) const
{
    if (address <= HandlerFamilies::LAST_ADDRESS)
        return true;
    TARN_REGISTRY_LOG(invalidAddress, PRIO_ERROR, invalidAddress, address);
    return false;
}

bool Operation::IsHandler(const iTarnMessageHandler* handler) const
{
    if (handler != nullptr)
        return true;
    TARN_REGISTRY_LOG(noHandler, PRIO_ERROR, "Handler is NULL");
    return false;
}

void Operation::TraceAction(unsigned char address) const
{
    if (action == nullptr)
        return;
    if (invalidAddress != nullptr)
        TARN_REGISTRY_LOG(action, PRIO_TRACE, action, unsigned{address});
    else
        TARN_REGISTRY_LOG(action, PRIO_TRACE, action);
}

} // namespace tarn::registry
