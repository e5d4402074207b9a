#include "Scanner.h"

#include "FrameQueue.h"

#include <algorithm>

namespace tarn::tool
{

Scanner::Scanner(const std::vector<TarnMessage>& requests, Duration timeout)
    : mTimeout(timeout),
      mWaits(requests.size())
{
    for (const TarnMessage& request : requests) {
        RequestResult result;
        result.request = request;
        mPlaces.emplace(
            Key(request.GetTargetAddr(), request.GetAddressingMode(), request.GetModule()),
            mResults.size());
        mResults.push_back(result);
    }
}

void Scanner::Send(iCanAsyncDispatcher& bus)
{
    CloseExpired();
    while (mOpen < WINDOW && mNext < mResults.size())
        SendNext(bus);
}

void Scanner::SendNext(iCanAsyncDispatcher& bus)
{
    CanMessage frame = mResults[mNext].request.RawMessage();
    Wait& wait = mWaits[mNext];
    wait.open = true;
    wait.sent = TimeOfDay();
    wait.deadline = Clock::now() + mTimeout;
    ++mOpen;
    ++mNext;
    bus.Send(frame);
}

void Scanner::CloseExpired()
{
    const Clock::time_point now = Clock::now();
    for (std::size_t at = 0; at < mNext; ++at) {
        if (mWaits[at].deadline <= now)
            Close(at);
    }
}

void Scanner::Close(std::size_t at)
{
    if (!mWaits[at].open)
        return;
    mWaits[at].open = false;
    --mOpen;
}

Scanner::Clock::time_point Scanner::NextDeadline() const
{
    if (mOpen == 0)
        return Clock::time_point::min();
    Clock::time_point next = Clock::time_point::max();
    for (const Wait& wait : mWaits) {
        if (wait.open)
            next = std::min(next, wait.deadline);
    }
    return next;
}

void Scanner::Take(CanMessage& frame)
{
    constexpr unsigned int FOREIGN = CanMessage::FLAG_REMOTE | CanMessage::FLAG_ERROR;
    const TarnMessage message(frame);
    if (!message || (frame.GetFlags() & FOREIGN) != 0 ||
        (IsAnswer(message) && TakeAnswer(message, frame.GetTimeStamp())))
        return;
    const bool isChcp = message.GetType() == TarnMessage::TYPE_CHCP;
    Heard& heard = isChcp ? mChcp[message.GetChcpMacID()] : mSources[message.GetSourceAddr()];
    if (heard.count++ > 0)
        return;
    heard.message = message;
    heard.frame = frame;
}

bool Scanner::IsAnswer(const TarnMessage& message) const
{
    if (mResults.empty())
        return false;
    const TarnMessage& request = mResults.front().request;
    return message.GetType() == TarnMessage::TYPE_DATA &&
           message.GetDirection() == TarnMessage::DIRECTION_RESPONSE &&
           message.GetAddressing() == TarnMessage::ADDRESSING_DEVICE &&
           message.GetAccessType() == TarnMessage::ACCESS_READ &&
           message.GetRegister() == request.GetRegister() &&
           message.GetTargetAddr() == request.GetSourceAddr();
}

bool Scanner::TakeAnswer(const TarnMessage& message, std::uint64_t time)
{
    const auto place = mPlaces.find(
        Key(message.GetSourceAddr(), message.GetAddressingMode(), message.GetModule()));
    if (place == mPlaces.end() || place->second >= mNext || mResults[place->second].answered)
        return false;
    RequestResult& result = mResults[place->second];
    result.answered = true;
    result.response = message;
    result.time = time;
    // The clock may have been set between the two.
    result.latency = Duration(time - std::min(time, mWaits[place->second].sent));
    Close(place->second);
    return true;
}

} // namespace tarn::tool
