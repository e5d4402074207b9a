#ifndef TARN_DISPATCH_HANDLER_FAMILIES_H
#define TARN_DISPATCH_HANDLER_FAMILIES_H

#include "dispatch/HandlerWalk.h"

#include <tarn/TarnMessage.h>

#include <Poco/Logger.h>
#include <Poco/Mutex.h>

#include <type_traits>

namespace tarn
{

class TarnAsyncDispatcherMock;

/// The four families of subscriptions: where each stands in a dispatcher, and what its log lines
/// say. Both dispatchers have the same members and let this struct at them.
struct HandlerFamilies {
    /// The address tables have slots 0 to 126.
    static constexpr unsigned char LAST_ADDRESS = 126;

    template <typename Dispatcher>
    static Poco::Logger& Logger(Dispatcher& dispatcher)
    {
        return dispatcher.mLogger;
    }

    struct Source {
        static constexpr bool HAS_ADDRESS = true;
        static constexpr const char* SUBSCRIBE = "SubscribeSource";
        static constexpr const char* UNSUBSCRIBE = "UnsubscribeSource";
        static constexpr const char* INVALID_ADDRESS = "Invalid SourceAddr: ";
        static constexpr const char* ADDING = "Adding Handler with SourceAddr=";
        static constexpr const char* DELETING = "Deleting Handler with SourceAddr=";
        static constexpr const char* DISPATCHING = "Dispatching Response for SourceAddr=";
        static constexpr const char* REMOVING = "Removing Handler for SourceAddr=";
        static constexpr const char* REMOVING_INVALID = "Removing invalid Handler for SourceAddr=";

        static unsigned char Number(const TarnMessage& message) { return message.GetSourceAddr(); }

        template <typename Dispatcher>
        static HandlerList* Lists(Dispatcher& dispatcher)
        {
            return dispatcher.mSourceHandlers;
        }

        template <typename Dispatcher>
        static Poco::Mutex& Mutex(Dispatcher& dispatcher)
        {
            return dispatcher.mSourceMutex;
        }
    };

    struct Target {
        static constexpr bool HAS_ADDRESS = true;
        static constexpr const char* SUBSCRIBE = "SubscribeTarget";
        static constexpr const char* UNSUBSCRIBE = "UnsubscribeTarget";
        static constexpr const char* INVALID_ADDRESS = "Invalid TargetAddr: ";
        static constexpr const char* ADDING = "Adding Handler with TargetAddr=";
        static constexpr const char* DELETING = "Deleting Handler with TargetAddr=";
        static constexpr const char* DISPATCHING = "Dispatching Response for TargetAddr=";
        static constexpr const char* REMOVING = "Removing Handler for TargetAddr=";
        static constexpr const char* REMOVING_INVALID = "Removing invalid Handler for TargetAddr=";

        static unsigned char Number(const TarnMessage& message) { return message.GetTargetAddr(); }

        template <typename Dispatcher>
        static HandlerList* Lists(Dispatcher& dispatcher)
        {
            return dispatcher.mTargetHandlers;
        }

        template <typename Dispatcher>
        static Poco::Mutex& Mutex(Dispatcher& dispatcher)
        {
            return dispatcher.mTargetMutex;
        }
    };

    // The removing lines of the two families without addresses end in the source address all the
    // same (for a CHCP message the low bits of its MAC identifier); log readers rely on it.

    struct Chcp {
        static constexpr bool HAS_ADDRESS = false;
        static constexpr const char* SUBSCRIBE = "SubscribeChcp";
        static constexpr const char* UNSUBSCRIBE = "UnsubscribeChcp";
        static constexpr const char* INVALID_ADDRESS = nullptr;
        static constexpr const char* ADDING = "Adding Handler ...";
        static constexpr const char* DELETING = "Deleting Handler ...";
        static constexpr const char* DISPATCHING = "Dispatching Response for Chcp-Message";
        static constexpr const char* REMOVING = "Removing Handler for Chcp-Message";
        static constexpr const char* REMOVING_INVALID = "Removing invalid Handler for Chcp-Message";

        static unsigned char Number(const TarnMessage& message) { return message.GetSourceAddr(); }

        template <typename Dispatcher>
        static HandlerList* Lists(Dispatcher& dispatcher)
        {
            return &dispatcher.mChcpHandlers;
        }

        template <typename Dispatcher>
        static Poco::Mutex& Mutex(Dispatcher& dispatcher)
        {
            return dispatcher.mChcpMutex;
        }
    };

    struct All {
        static constexpr bool HAS_ADDRESS = false;
        static constexpr const char* SUBSCRIBE = "SubscribeAll";
        static constexpr const char* UNSUBSCRIBE = "UnsubscribeAll";
        static constexpr const char* INVALID_ADDRESS = nullptr;
        static constexpr const char* ADDING = "Adding Handler ...";
        static constexpr const char* DELETING = "Deleting Handler ...";
        static constexpr const char* DISPATCHING = "Dispatching Response for Tarn-Message";
        static constexpr const char* REMOVING = "Removing Handler for Tarn-Message";
        static constexpr const char* REMOVING_INVALID = "Removing invalid Handler for Tarn-Message";

        static unsigned char Number(const TarnMessage& message) { return message.GetSourceAddr(); }

        template <typename Dispatcher>
        static HandlerList* Lists(Dispatcher& dispatcher)
        {
            return &dispatcher.mAllHandlers;
        }

        template <typename Dispatcher>
        static Poco::Mutex& Mutex(Dispatcher& dispatcher)
        {
            return dispatcher.mAllMutex;
        }
    };
};

// The mock is terser than the dispatcher over a bus: it does not say that it drops an invalid
// entry, and of the four Unsubscribe operations only that of the All handlers says "Deleting".

template <typename Dispatcher>
constexpr bool TRACES_INVALID = !std::is_same_v<Dispatcher, TarnAsyncDispatcherMock>;

template <typename Dispatcher, typename Family>
constexpr bool TRACES_DELETING = !std::is_same_v<Dispatcher, TarnAsyncDispatcherMock> ||
                                 std::is_same_v<Family, HandlerFamilies::All>;

} // namespace tarn

#endif
