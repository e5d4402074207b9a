#ifndef TARN_TARN_ASYNC_DISPATCHER_MOCK_H
#define TARN_TARN_ASYNC_DISPATCHER_MOCK_H

#include <tarn/Export.h>
#include <tarn/iTarnAsyncDispatcher.h>

#include <Poco/Logger.h>
#include <Poco/Mutex.h>

#include <list>
#include <tr1/memory>

namespace tarn
{

class CanMessage;
class iTarnMessageHandler;

/// A dispatcher without a bus: the application feeds it frames through DispatchResponse() and so
/// drives handlers and synchronous requests in simulations and tests. What is sent goes nowhere; in
/// particular it does not come back.
///
/// It routes as TarnAsyncDispatcher does, but: a frame that is no Tarn message is routed all the
/// same, as the all-zero message it reads as; All handlers are kept but never called; and CHCP
/// handlers are called without holding their mutex, so that no other thread may subscribe or
/// unsubscribe CHCP handlers while a CHCP frame is being fed.
///
/// Logs to the logger "TarnAsyncDispatcherMock".
class TARN_API TarnAsyncDispatcherMock : public iTarnAsyncDispatcher
{
public:
    /// A mock without subscriptions.
    static std::tr1::shared_ptr<TarnAsyncDispatcherMock> Create();

    /// The same, for classes that derive.
    TarnAsyncDispatcherMock();

    /// @throws Poco::SystemException when the logger mutex fails; all members are released first.
    ~TarnAsyncDispatcherMock() noexcept(false) override;

    TarnAsyncDispatcherMock(const TarnAsyncDispatcherMock&) = delete;
    TarnAsyncDispatcherMock& operator=(const TarnAsyncDispatcherMock&) = delete;

    /// Does nothing but log, and so do Stop() and Send(): the message is not even framed.
    void Start() override;
    void Stop() override;
    void Send(TarnMessage& message) override;

    void SubscribeSource(unsigned char sourceAddr, iTarnMessageHandler* handler) override;
    void UnsubscribeSource(unsigned char sourceAddr, iTarnMessageHandler* handler) override;
    void SubscribeTarget(unsigned char targetAddr, iTarnMessageHandler* handler) override;
    void UnsubscribeTarget(unsigned char targetAddr, iTarnMessageHandler* handler) override;
    void SubscribeChcp(iTarnMessageHandler* handler) override;
    void UnsubscribeChcp(iTarnMessageHandler* handler) override;
    void SubscribeAll(iTarnMessageHandler* handler) override;
    void UnsubscribeAll(iTarnMessageHandler* handler) override;

    /// Feeds one frame as if it had been received; returns when its handlers were called, on the
    /// calling thread.
    /// @throws whatever a handler throws
    virtual void DispatchResponse(CanMessage& frame);

private:
    friend struct HandlerFamilies;

    Poco::Logger& mLogger;
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
