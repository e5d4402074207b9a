#ifndef TARN_TOOLS_LIVE_BUS_H
#define TARN_TOOLS_LIVE_BUS_H

#include "BusOption.h"
#include "FrameQueue.h"
#include "Ledger.h"
#include "StopSignal.h"

#include <plexa_can/CandumpLine.h>

#include <chrono>
#include <string>
#include <vector>

namespace tarn::tool
{

/// An open bus whose frames are worked with on the thread that owns this object, in the order in
/// which they came. Stops listening when it goes.
class LiveBus
{
public:
    using Clock = std::chrono::steady_clock;

    /// @param verb begins remarks on standard error: "tarn dump"
    /// @throws Failure, CanException when the bus cannot be opened
    LiveBus(const std::string& verb, const BusOption& option);
    ~LiveBus();
    LiveBus(const LiveBus&) = delete;
    LiveBus& operator=(const LiveBus&) = delete;

    /// Hands frames to take(CandumpLine&) until it returns false, until the time, a stop signal, or
    /// the end of a bus that has one. In between, and every tenth of a second, it calls pause().
    template <typename TAKE, typename PAUSE>
    void Listen(Clock::time_point until, const TAKE& take, const PAUSE& pause);

    /// Inside Listen(): it ends, and pause() is not called any more.
    void EndListening() { mEnding = true; }

    /// Also calls pause() when a read from this descriptor would not block.
    void AlsoWaitFor(int descriptor) { mOtherInput = descriptor; }

    /// Says nothing on standard error.
    void KeepSilent() { mSilent = true; }

    CanBusCounters GetCounters() const { return mBus->GetCounters(); }

    /// Frames that came faster than they were worked with, for longer than the queue could bear.
    std::uint64_t GetOverflows() const { return mQueue.GetOverflows(); }

    const std::string& GetName() const { return mName; }

    iCanBus& GetBus() { return *mBus; }

private:
    bool WaitForFrames(Clock::time_point until);
    void SetFrame(const CanMessage& frame);
    bool HasEnded() const;

    std::string mName;
    std::tr1::shared_ptr<iCanBus> mBus;
    FrameQueue mQueue;
    DropWatch mDrops;
    std::vector<CanMessage> mFrames;
    CandumpLine mLine;
    int mOtherInput = -1;
    bool mEnding = false;
    bool mSilent = false;
};

template <typename TAKE, typename PAUSE>
void LiveBus::Listen(Clock::time_point until, const TAKE& take, const PAUSE& pause)
{
    bool goOn = true;
    while (goOn && !mEnding) {
        goOn = WaitForFrames(until);
        for (const CanMessage& frame : mFrames) {
            SetFrame(frame);
            if (!take(mLine))
                return pause();
        }
        pause();
        if (!mSilent)
            mDrops.Look(GetCounters());
    }
}

} // namespace tarn::tool

#endif
