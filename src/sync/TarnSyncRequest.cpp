#include "diag/Trace.h"
#include "lock/ScopedLock.h"

#include <tarn/TarnSyncRequest.h>
#include <tarn/iTarnAsyncDispatcher.h>

#include <Poco/Exception.h>

#include <algorithm>
#include <limits>
#include <utility>

namespace tarn
{

namespace
{

/// What Poco takes as a wait; where long has 32 bits it holds half of what the caller may ask for.
long Milliseconds(unsigned int timeout)
{
    constexpr auto LONGEST = static_cast<unsigned long>(std::numeric_limits<long>::max());
    return static_cast<long>(std::min<unsigned long>(timeout, LONGEST));
}

} // namespace

std::tr1::shared_ptr<TarnSyncRequest>
TarnSyncRequest::Create(std::tr1::shared_ptr<iTarnAsyncDispatcher> dispatcher)
{
    return std::tr1::shared_ptr<TarnSyncRequest>(new TarnSyncRequest(std::move(dispatcher)));
}

TarnSyncRequest::TarnSyncRequest(std::tr1::shared_ptr<iTarnAsyncDispatcher> dispatcher)
    : mLogger(Poco::Logger::get("TarnSyncRequest")),
      mDispatcher(std::move(dispatcher)),
      mEvent(Poco::Event::EVENT_AUTORESET)
{
    TARN_TRACE("ENTER");
    TARN_TRACE("EXIT");
}

TarnSyncRequest::~TarnSyncRequest() noexcept(false)
{
    ScopedLock lock(mResponseMutex);
    TARN_TRACE("ENTER");
    TARN_TRACE("EXIT");
}

// The log statements name this function and so stay in it; each counts as a branch or two.
// NOLINTNEXTLINE(readability-function-size)
bool TarnSyncRequest::Send(TarnMessage& request, TarnMessage& response, unsigned int timeout)
{
    if (!mDispatcher)
        throw Poco::NullPointerException(
            "TarnSyncRequest has no dispatcher to send by: give one to Create()");
    ScopedLock sendLock(mSendMutex);
    TARN_TRACE("ENTER");
    TARN_TRACE("Adding handler...");
    mDispatcher->SubscribeSource(request.GetTargetAddr(), this);
    TARN_TRACE("Sending request message...");
    SendRequest(request);
    TARN_TRACE("Waiting for response...");
    if (!mEvent.tryWait(Milliseconds(timeout))) {
        TARN_LOG(PRIO_DEBUG, "timeout after ", timeout, " msec!");
        mDispatcher->UnsubscribeSource(request.GetTargetAddr(), this);
        return false;
    }
    ScopedLock responseLock(mResponseMutex);
    TARN_TRACE("EXIT");
    response = mResponse;
    return true;
}

void TarnSyncRequest::SendRequest(TarnMessage& request)
{
    mRequest = request;
    try {
        mDispatcher->Send(request);
    } catch (const Poco::SystemException&) {
        throw; // a mutex that fails leaves the subscription as it stands: removing it takes one too
    } catch (...) {
        // A bus that refuses the request must not leave behind a subscription that outlives us.
        UnsubscribeQuietly();
        throw;
    }
}

void TarnSyncRequest::UnsubscribeQuietly()
{
    try {
        mDispatcher->UnsubscribeSource(mRequest.GetTargetAddr(), this);
    } catch (...) { // the caller has a more important exception at hand
    }
}

bool TarnSyncRequest::DispatchResponse(TarnMessage& message)
{
    ScopedLock lock(mResponseMutex);
    TARN_TRACE("ENTER");
    if (!IsResponse(message)) {
        TARN_TRACE("EXIT : got invalid response");
        return false;
    }
    mResponse = message;
    mEvent.set();
    TARN_TRACE("EXIT : got valid response");
    return true;
}

/// The fields of a CHCP request mean nothing as addresses, so nothing can answer it.
bool TarnSyncRequest::IsResponse(TarnMessage& message) const
{
    return message.GetType() == TarnMessage::TYPE_DATA &&
           mRequest.GetType() == TarnMessage::TYPE_DATA &&
           message.GetAddressing() == mRequest.GetAddressing() &&
           message.GetAccessType() == mRequest.GetAccessType() &&
           message.GetDirection() == TarnMessage::DIRECTION_RESPONSE &&
           message.GetAddressingMode() == mRequest.GetAddressingMode() &&
           message.GetRegister() == mRequest.GetRegister() &&
           message.GetTargetAddr() == mRequest.GetSourceAddr() &&
           message.GetSourceAddr() == mRequest.GetTargetAddr() &&
           message.GetModule() == mRequest.GetModule();
}

} // namespace tarn
