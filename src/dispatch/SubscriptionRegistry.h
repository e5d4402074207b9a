#ifndef TARN_DISPATCH_SUBSCRIPTION_REGISTRY_H
#define TARN_DISPATCH_SUBSCRIPTION_REGISTRY_H

#include "diag/Trace.h"
#include "dispatch/HandlerFamilies.h"

#include <typeinfo>

// The Subscribe and Unsubscribe operations of both dispatchers. The templates bring the log
// statements, of which each operation of each class has its own, to the code that all share.

namespace tarn::registry
{

struct Sites {
    diag::Site enter;
    diag::Site invalidAddress;
    diag::Site noHandler;
    diag::Site action;
    diag::Site exit;
};

/// One operation of one dispatcher on one family.
struct Operation {
    const char* name;
    const char* invalidAddress; ///< what the error line says; null for a family without addresses
    const char* action;         ///< null: no line for it
    Sites& sites;
    Poco::Logger& logger;
    const std::type_info& type;
    Poco::Mutex& mutex;
    HandlerList* lists; ///< one for each address, or the only one

    void Subscribe(unsigned char address, iTarnMessageHandler* handler) const;
    void Unsubscribe(unsigned char address, const iTarnMessageHandler* handler) const;

private:
    bool IsAddress(unsigned char address) const;
    bool IsHandler(const iTarnMessageHandler* handler) const;
    void TraceAction(unsigned char address) const;
};

template <typename Family, typename Dispatcher>
void Subscribe(Dispatcher& self, unsigned char address, iTarnMessageHandler* handler)
{
    static Sites sites;
    const Operation operation = {Family::SUBSCRIBE,
                                 Family::INVALID_ADDRESS,
                                 Family::ADDING,
                                 sites,
                                 HandlerFamilies::Logger(self),
                                 typeid(self),
                                 Family::Mutex(self),
                                 Family::Lists(self)};
    operation.Subscribe(address, handler);
}

template <typename Family, typename Dispatcher>
void Unsubscribe(Dispatcher& self, unsigned char address, const iTarnMessageHandler* handler)
{
    static Sites sites;
    const Operation operation = {Family::UNSUBSCRIBE,
                                 Family::INVALID_ADDRESS,
                                 TRACES_DELETING<Dispatcher, Family> ? Family::DELETING : nullptr,
                                 sites,
                                 HandlerFamilies::Logger(self),
                                 typeid(self),
                                 Family::Mutex(self),
                                 Family::Lists(self)};
    operation.Unsubscribe(address, handler);
}

template <typename Family, typename Dispatcher>
void Subscribe(Dispatcher& self, iTarnMessageHandler* handler)
{
    Subscribe<Family>(self, 0, handler);
}

template <typename Family, typename Dispatcher>
void Unsubscribe(Dispatcher& self, const iTarnMessageHandler* handler)
{
    Unsubscribe<Family>(self, 0, handler);
}

} // namespace tarn::registry

#endif
