#ifndef TARN_TARN_SYNC_REQUEST_H
#define TARN_TARN_SYNC_REQUEST_H

#include <tarn/Export.h>
#include <tarn/TarnMessage.h>
#include <tarn/iTarnMessageHandler.h>

#include <Poco/Event.h>
#include <Poco/Logger.h>
#include <Poco/Mutex.h>

#include <tr1/memory>

namespace tarn
{

class iTarnAsyncDispatcher;

/// Sends a request and waits for its response, over any dispatcher.
///
/// One object serves one request at a time; threads that call Send() on the same object are served
/// one after another. Objects live in shared pointers and share ownership of their dispatcher.
///
/// Logs to the logger "TarnSyncRequest".
class TARN_API TarnSyncRequest : public iTarnMessageHandler
{
public:
    /// The dispatcher is not tested here; Send() needs one.
    static std::tr1::shared_ptr<TarnSyncRequest>
    Create(std::tr1::shared_ptr<iTarnAsyncDispatcher> dispatcher);

    /// The same, for classes that derive. Others use Create().
    explicit TarnSyncRequest(std::tr1::shared_ptr<iTarnAsyncDispatcher> dispatcher);

    /// Does not unsubscribe: no Send() may be running.
    /// @throws Poco::SystemException when a mutex fails; all members are released first.
    ~TarnSyncRequest() noexcept(false) override;

    TarnSyncRequest(const TarnSyncRequest&) = delete;
    TarnSyncRequest& operator=(const TarnSyncRequest&) = delete;

    /// Sends the request and blocks until its response is there or the time-out has passed.
    ///
    /// A response is a DATA message from the request's target address to its source address, with
    /// direction RESPONSE and the request's addressing, access type, addressing mode, register and
    /// module. Priority, status, data type and payload may be anything. A CHCP request is never
    /// answered.
    ///
    /// A response that arrives after the time-out but before the object has unsubscribed stays
    /// pending: the next Send() on the object returns true at once, with that response.
    ///
    /// @param timeout in milliseconds; with 0 the result is false at once, unless a response is
    ///     pending already
    /// @return true with the response copied into response; false on time-out, response untouched
    /// @throws Poco::NullPointerException without a dispatcher, before anything was done
    /// @throws whatever SubscribeSource, Send and UnsubscribeSource of the dispatcher throw. When
    ///     Send throws, the object unsubscribes first, unless it was a mutex that failed.
    /// @throws Poco::SystemException when a mutex fails. The object may then still be subscribed to
    ///     the request's target address: call the dispatcher's UnsubscribeSource() with it before
    ///     its last reference goes.
    bool Send(TarnMessage& request, TarnMessage& response, unsigned int timeout);

    /// Called by the dispatcher, on its receive thread.
    /// @return true when the message is the response to the outstanding request
    /// @throws Poco::SystemException "cannot signal event (lock)" or "cannot signal event" when the
    ///     waiting thread cannot be woken
    bool DispatchResponse(TarnMessage& message) override;

private:
    bool IsResponse(TarnMessage& message) const;
    void SendRequest(TarnMessage& request);
    void UnsubscribeQuietly();

    Poco::Logger& mLogger;
    std::tr1::shared_ptr<iTarnAsyncDispatcher> mDispatcher;
    TarnMessage mRequest;
    TarnMessage mResponse;
    Poco::Event mEvent;
    Poco::Mutex mResponseMutex;
    Poco::Mutex mSendMutex;
};

} // namespace tarn

#endif
