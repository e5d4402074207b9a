#include "diag/Trace.h"
#include "dispatch/HandlerFamilies.h"
#include "dispatch/Routing.h"
#include "dispatch/SubscriptionRegistry.h"

#include <plexa_can/CanMessage.h>
#include <tarn/TarnAsyncDispatcherMock.h>
#include <tarn/TarnMessage.h>

namespace tarn
{

std::tr1::shared_ptr<TarnAsyncDispatcherMock> TarnAsyncDispatcherMock::Create()
{
    return std::tr1::shared_ptr<TarnAsyncDispatcherMock>(new TarnAsyncDispatcherMock);
}

TarnAsyncDispatcherMock::TarnAsyncDispatcherMock()
    : mLogger(Poco::Logger::get("TarnAsyncDispatcherMock"))
{
    TARN_TRACE("ENTER");
    TARN_TRACE("EXIT");
}

TarnAsyncDispatcherMock::~TarnAsyncDispatcherMock() noexcept(false)
{
    TARN_TRACE("ENTER");
    TARN_TRACE("EXIT");
}

void TarnAsyncDispatcherMock::Start()
{
    TARN_TRACE("ENTER");
    TARN_TRACE("EXIT");
}

void TarnAsyncDispatcherMock::Stop()
{
    TARN_TRACE("ENTER");
    TARN_TRACE("EXIT");
}

void TarnAsyncDispatcherMock::Send(TarnMessage& /*message*/)
{
    TARN_TRACE("ENTER");
    TARN_TRACE("EXIT");
}

void TarnAsyncDispatcherMock::SubscribeSource(unsigned char sourceAddr,
                                              iTarnMessageHandler* handler)
{
    registry::Subscribe<HandlerFamilies::Source>(*this, sourceAddr, handler);
}

void TarnAsyncDispatcherMock::UnsubscribeSource(unsigned char sourceAddr,
                                                iTarnMessageHandler* handler)
{
    registry::Unsubscribe<HandlerFamilies::Source>(*this, sourceAddr, handler);
}

void TarnAsyncDispatcherMock::SubscribeTarget(unsigned char targetAddr,
                                              iTarnMessageHandler* handler)
{
    registry::Subscribe<HandlerFamilies::Target>(*this, targetAddr, handler);
}

void TarnAsyncDispatcherMock::UnsubscribeTarget(unsigned char targetAddr,
                                                iTarnMessageHandler* handler)
{
    registry::Unsubscribe<HandlerFamilies::Target>(*this, targetAddr, handler);
}

void TarnAsyncDispatcherMock::SubscribeChcp(iTarnMessageHandler* handler)
{
    registry::Subscribe<HandlerFamilies::Chcp>(*this, handler);
}

void TarnAsyncDispatcherMock::UnsubscribeChcp(iTarnMessageHandler* handler)
{
    registry::Unsubscribe<HandlerFamilies::Chcp>(*this, handler);
}

void TarnAsyncDispatcherMock::SubscribeAll(iTarnMessageHandler* handler)
{
    registry::Subscribe<HandlerFamilies::All>(*this, handler);
}

void TarnAsyncDispatcherMock::UnsubscribeAll(iTarnMessageHandler* handler)
{
    registry::Unsubscribe<HandlerFamilies::All>(*this, handler);
}

void TarnAsyncDispatcherMock::DispatchResponse(CanMessage& frame)
{
    TARN_TRACE("ENTER");
    TarnMessage message(frame);
    if (message.GetType() == TarnMessage::TYPE_CHCP) {
        HandlerList& handlers = *HandlerFamilies::Chcp::Lists(*this);
        routing::Walk<HandlerFamilies::Chcp>(*this, handlers, message);
    } else {
        TARN_TRACE("Can-Msg : ", frame.ToString());
        routing::LockedWalk<HandlerFamilies::Source>(*this, message);
        routing::LockedWalk<HandlerFamilies::Target>(*this, message);
    }
    TARN_TRACE("EXIT");
}

} // namespace tarn
