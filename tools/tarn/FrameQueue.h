#ifndef TARN_TOOLS_FRAME_QUEUE_H
#define TARN_TOOLS_FRAME_QUEUE_H

#include <plexa_can/CanMessage.h>
#include <plexa_can/iCanMessageHandler.h>

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <vector>

namespace tarn::tool
{

/// Takes frames from the thread that receives them to the one that works with them, so that slow
/// work never holds up the bus.
class FrameQueue : public iCanMessageHandler
{
public:
    /// Some seconds of a full bus.
    static constexpr std::size_t CAPACITY = 65536;

    enum tWhenFull {
        COUNT_LOSS, ///< a frame that finds no room is counted and gone: a bus waits for nobody
        WAIT        ///< it is waited for room: a log has time
    };

    explicit FrameQueue(tWhenFull whenFull, std::size_t capacity = CAPACITY);
    ~FrameQueue() noexcept override;
    FrameQueue(const FrameQueue&) = delete;
    FrameQueue& operator=(const FrameQueue&) = delete;

    /// A frame without a time stamp gets that of now.
    void DispatchResponse(CanMessage& frame) override;

    /// Replaces frames by all that wait, in their order.
    void TakeAll(std::vector<CanMessage>& frames);

    /// Lets nothing in any more, and nobody wait.
    void Close();

    /// Becomes readable when frames wait.
    int GetDescriptor() const { return mWakeUp; }

    /// Frames that found no room.
    std::uint64_t GetOverflows() const;

private:
    const tWhenFull mWhenFull;
    const std::size_t mCapacity;
    const int mWakeUp;
    mutable std::mutex mMutex;
    std::vector<CanMessage> mFrames;
    std::condition_variable mTaken;
    std::uint64_t mOverflows = 0;
    bool mClosed = false;
};

/// A descriptor that becomes readable when it is written to (eventfd); whoever makes it closes it.
/// @throws Failure when there is none to be had
int MakeWakeUp();

/// Nanoseconds since 1970.
std::uint64_t TimeOfDay();

} // namespace tarn::tool

#endif
