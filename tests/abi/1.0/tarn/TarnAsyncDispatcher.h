#ifndef TARN_TARN_ASYNC_DISPATCHER_H
#define TARN_TARN_ASYNC_DISPATCHER_H

#include <plexa_can/iCanAsyncDispatcher.h>
#include <plexa_can/iCanMessageHandler.h>
#include <tarn/Export.h>
#include <tarn/iTarnAsyncDispatcher.h>

#include <Poco/Logger.h>
#include <Poco/Mutex.h>

#include <list>
#include <tr1/memory>
#include <type_traits>

namespace tarn
{

class iTarnMessageHandler;

/// The dispatcher over a CAN bus.
///
/// Life: Create() with a connection to a bus, subscribe (any time), Start(), Send() and receive,
/// Stop(), release. The owner calls Stop() before the last reference goes: the destructor does not,
/// and the bus would go on delivering to a destroyed object. It shares ownership of the connection
/// and starts no thread; handlers run on the receive thread of the connection.
///
/// Logs to the logger "TarnAsyncDispatcher". Whether a log statement is active is decided once,
/// when it is first reached: set the level before the first use.
class TARN_API TarnAsyncDispatcher : public iTarnAsyncDispatcher, public iCanMessageHandler
{
public:
    /// A dispatcher over the connection, which may be empty: Start() then throws, Stop() and Send()
    /// only log.
    static std::tr1::shared_ptr<TarnAsyncDispatcher>
    Create(std::tr1::shared_ptr<iCanAsyncDispatcher> canDispatcher);

    /// For classes that derive; others use Create(), since a dispatcher lives in a shared pointer.
    explicit TarnAsyncDispatcher(std::tr1::shared_ptr<iCanAsyncDispatcher> canDispatcher);

    /// Forgets the subscriptions, without telling the handlers, and releases the connection.
    /// @throws Poco::SystemException when the logger mutex fails, where the lower layer's handler
    ///     interface allows its destructor to throw; all members are released first.
    ~TarnAsyncDispatcher() noexcept(
        std::is_nothrow_destructible<iCanMessageHandler>::value) override;

    TarnAsyncDispatcher(const TarnAsyncDispatcher&) = delete;
    TarnAsyncDispatcher& operator=(const TarnAsyncDispatcher&) = delete;

    /// Registers this object with the connection. There is no guard: a second call registers again.
    /// @throws CanException, code 0, "N4tarn19TarnAsyncDispatcherE::Start() - mCanDispatcher is
    ///     NULL!" without a connection; and whatever the connection throws
    void Start() override;

    /// Withdraws from the connection, also when Start() was not called. Without a connection it
    /// writes an error line and returns.
    /// @throws whatever the connection throws
    void Stop() override;

    /// Hands the message's own frame to the connection. Without a connection the message is dropped
    /// with a warning in the log. Takes no lock but those of the message.
    /// @throws whatever the connection throws; and as iTarnAsyncDispatcher::Send()
    void Send(TarnMessage& message) override;

    void SubscribeSource(unsigned char sourceAddr, iTarnMessageHandler* handler) override;
    void UnsubscribeSource(unsigned char sourceAddr, iTarnMessageHandler* handler) override;
    void SubscribeTarget(unsigned char targetAddr, iTarnMessageHandler* handler) override;
    void UnsubscribeTarget(unsigned char targetAddr, iTarnMessageHandler* handler) override;
    void SubscribeChcp(iTarnMessageHandler* handler) override;
    void UnsubscribeChcp(iTarnMessageHandler* handler) override;
    void SubscribeAll(iTarnMessageHandler* handler) override;
    void UnsubscribeAll(iTarnMessageHandler* handler) override;

    /// Routes one received frame, requests and responses alike, and returns when all its handlers
    /// were called. A frame that is no Tarn message is dropped. The frame is not needed after the
    /// call. Several threads may call this at once; walks of one family then run one after another.
    /// @throws whatever a handler throws
    void DispatchResponse(CanMessage& frame) override;

private:
    friend struct HandlerFamilies;

    Poco::Logger& mLogger;
    std::tr1::shared_ptr<iCanAsyncDispatcher> mCanDispatcher;
    std::list<iTarnMessageHandler*> mSourceHandlers[127];
    Poco::Mutex mSourceMutex;
    std::list<iTarnMessageHandler*> mTargetHandlers[127];
    Poco::Mutex mTargetMutex;
    std::list<iTarnMessageHandler*> mChcpHandlers;
    Poco::Mutex mChcpMutex;
    std::list<iTarnMessageHandler*> mAllHandlers;
    Poco::Mutex mAllMutex;
};

} // namespace tarn

#endif
