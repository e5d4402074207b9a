#ifndef TARN_TOOLS_BUS_SENDER_H
#define TARN_TOOLS_BUS_SENDER_H

#include <plexa_can/CanMessage.h>
#include <plexa_can/iCanBus.h>

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace tarn::tool
{

/// Sends frames onto a bus on a thread of its own, in their order, so that a bus that makes the
/// sender wait holds up nothing else. Whoever puts frames in bounds their number.
class BusSender
{
public:
    using Clock = std::chrono::steady_clock;

    /// What became of a frame.
    struct Outcome {
        std::uint64_t sender = 0;
        CanMessage frame;
        std::string failure; ///< empty: the bus took it
    };

    /// @param bus must stay alive
    explicit BusSender(iCanBus& bus);

    /// Ends as Finish() does, with the frame that is being sent.
    ~BusSender();
    BusSender(const BusSender&) = delete;
    BusSender& operator=(const BusSender&) = delete;

    /// Sends what was put in, but begins nothing after a time; the rest is not sent. Then ends the
    /// thread. Outcomes can still be taken.
    void Finish(Clock::time_point end);

    void Put(std::uint64_t sender, const CanMessage& frame);

    /// Frames that were put in and not yet begun to be sent.
    std::size_t CountWaiting();

    /// Replaces outcomes by those since the last call.
    void TakeOutcomes(std::vector<Outcome>& outcomes);

    /// Waits, at most until a time, for the end of a Send() that has begun.
    void AwaitBegun(Clock::time_point until);

    /// Becomes readable when there are outcomes.
    int GetDescriptor() const { return mWakeUp; }

private:
    void Run();
    void SendOne(Outcome& item);

    iCanBus& mBus;
    const int mWakeUp;
    std::mutex mMutex;
    std::condition_variable mChanged;
    std::condition_variable mSendEnded;
    std::deque<Outcome> mWaiting;
    std::vector<Outcome> mDone;
    std::uint64_t mBegun = 0; ///< calls of Send()
    std::uint64_t mEnded = 0;
    bool mStopping = false;
    Clock::time_point mEnd = Clock::time_point::max();
    std::thread mThread;
};

} // namespace tarn::tool

#endif
