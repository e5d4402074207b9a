#include "diag/Trace.h"
#include "dispatch/HandlerFamilies.h"
#include "dispatch/Routing.h"
#include "dispatch/SubscriptionRegistry.h"

#include <plexa_can/CanException.h>
#include <plexa_can/CanMessage.h>
#include <tarn/TarnAsyncDispatcher.h>
#include <tarn/TarnMessage.h>

#include <utility>

namespace tarn
{

std::tr1::shared_ptr<TarnAsyncDispatcher>
TarnAsyncDispatcher::Create(std::tr1::shared_ptr<iCanAsyncDispatcher> canDispatcher)
{
    return std::tr1::shared_ptr<TarnAsyncDispatcher>(
        new TarnAsyncDispatcher(std::move(canDispatcher)));
}

TarnAsyncDispatcher::TarnAsyncDispatcher(std::tr1::shared_ptr<iCanAsyncDispatcher> canDispatcher)
    : mLogger(Poco::Logger::get("TarnAsyncDispatcher")),
      mCanDispatcher(std::move(canDispatcher))
{
    TARN_TRACE("ENTER");
    TARN_TRACE("EXIT");
}

TarnAsyncDispatcher::~TarnAsyncDispatcher() noexcept(
    std::is_nothrow_destructible<iCanMessageHandler>::value)
{
    TARN_TRACE("ENTER");
    TARN_TRACE("EXIT");
}

void TarnAsyncDispatcher::Start()
{
    TARN_TRACE("ENTER");
    if (!mCanDispatcher) {
        TARN_LOG(PRIO_ERROR, "mCanDispatcher is NULL!");
        throw CanException(
            diag::LinePrefix(typeid(*this), __FUNCTION__) + "mCanDispatcher is NULL!", 0);
    }
    mCanDispatcher->Start(this);
    TARN_TRACE("EXIT");
}

void TarnAsyncDispatcher::Stop()
{
    TARN_TRACE("ENTER");
    if (!mCanDispatcher)
        TARN_LOG(PRIO_ERROR, "mCanDispatcher is NULL!");
    else
        mCanDispatcher->Stop(this);
    TARN_TRACE("EXIT");
}

void TarnAsyncDispatcher::Send(TarnMessage& message)
{
    TARN_TRACE("ENTER");
    if (!mCanDispatcher) {
        TARN_LOG(PRIO_WARNING, "EXIT : mCanDispatcher invalid!");
    } else {
        TARN_TRACE("Sending message...");
        mCanDispatcher->Send(message.RawMessageRef());
    }
    TARN_TRACE("EXIT");
}

void TarnAsyncDispatcher::SubscribeSource(unsigned char sourceAddr, iTarnMessageHandler* handler)
{
    registry::Subscribe<HandlerFamilies::Source>(*this, sourceAddr, handler);
}

void TarnAsyncDispatcher::UnsubscribeSource(unsigned char sourceAddr, iTarnMessageHandler* handler)
{
    registry::Unsubscribe<HandlerFamilies::Source>(*this, sourceAddr, handler);
}

void TarnAsyncDispatcher::SubscribeTarget(unsigned char targetAddr, iTarnMessageHandler* handler)
{
    registry::Subscribe<HandlerFamilies::Target>(*this, targetAddr, handler);
}

void TarnAsyncDispatcher::UnsubscribeTarget(unsigned char targetAddr, iTarnMessageHandler* handler)
{
    registry::Unsubscribe<HandlerFamilies::Target>(*this, targetAddr, handler);
}

void TarnAsyncDispatcher::SubscribeChcp(iTarnMessageHandler* handler)
{
    registry::Subscribe<HandlerFamilies::Chcp>(*this, handler);
}

void TarnAsyncDispatcher::UnsubscribeChcp(iTarnMessageHandler* handler)
{
    registry::Unsubscribe<HandlerFamilies::Chcp>(*this, handler);
}

void TarnAsyncDispatcher::SubscribeAll(iTarnMessageHandler* handler)
{
    registry::Subscribe<HandlerFamilies::All>(*this, handler);
}

void TarnAsyncDispatcher::UnsubscribeAll(iTarnMessageHandler* handler)
{
    registry::Unsubscribe<HandlerFamilies::All>(*this, handler);
}

void TarnAsyncDispatcher::DispatchResponse(CanMessage& frame)
{
    TARN_TRACE("ENTER");
    TarnMessage message(frame);
    if (!message)
        return;
    if (message.GetType() == TarnMessage::TYPE_DATA) {
        TARN_TRACE("Can-Msg : ", frame.ToString());
        routing::LockedWalk<HandlerFamilies::Source>(*this, message);
        routing::LockedWalk<HandlerFamilies::Target>(*this, message);
    } else {
        routing::LockedWalk<HandlerFamilies::Chcp>(*this, message);
    }
    routing::LockedWalk<HandlerFamilies::All>(*this, message);
    TARN_TRACE("EXIT");
}

} // namespace tarn
