#include "LiveBus.h"

#include "Failure.h"

#include <plexa_can/LogReplayDispatcher.h>
#include <plexa_can/SocketCandDispatcher.h>

#include <algorithm>

namespace tarn::tool
{

namespace
{

constexpr std::chrono::milliseconds PERIOD(100);

/// As many as candump shows.
constexpr unsigned int TIME_DECIMALS = 6;

} // namespace

LiveBus::LiveBus(const std::string& verb, const BusOption& option)
    : mName(option.GetShortName()),
      mBus(option.Open()),
      mQueue(option.IsLog() ? FrameQueue::WAIT : FrameQueue::COUNT_LOSS),
      mDrops(verb, option.GetName())
{
    mLine.kind = CandumpLine::KIND_FRAME;
    mName.copy(mLine.interfaceName, CandumpLine::INTERFACE_SIZE - 1);
    if (mName.empty())
        mName = option.GetName();
    mBus->Start(&mQueue);
}

LiveBus::~LiveBus()
{
    mQueue.Close();
    mBus->Stop(&mQueue);
}

/// Takes what waits; returns false when nothing more will come or shall be waited for.
bool LiveBus::WaitForFrames(Clock::time_point until)
{
    const bool ended = HasEnded();
    const Clock::time_point now = Clock::now();
    const bool isLast = ended || until <= now || CaughtStopSignal() != 0 ||
                        !WaitForInput(mQueue.GetDescriptor(), mOtherInput,
                                      std::min(until, now + Clock::duration(PERIOD)));
    mQueue.TakeAll(mFrames);
    return !isLast;
}

void LiveBus::SetFrame(const CanMessage& frame)
{
    mLine.frame = frame;
    mLine.timeForm = CandumpLine::TIME_ABSOLUTE;
    mLine.timeDecimals = TIME_DECIMALS;
}

/// A log ends, and a connection to a server may; what came before is in the queue.
bool LiveBus::HasEnded() const
{
    const auto* const connection = dynamic_cast<const SocketCandDispatcher*>(mBus.get());
    if (connection != nullptr && !connection->GetFailure().empty())
        throw Trouble(connection->GetFailure() +
                      "; start again, or name the bus with ?reconnect=1");
    const auto* const log = dynamic_cast<const LogReplayDispatcher*>(mBus.get());
    if (log == nullptr || !log->IsFinished())
        return false;
    if (!log->GetFailure().empty())
        throw Trouble(log->GetFailure());
    return true;
}

} // namespace tarn::tool
