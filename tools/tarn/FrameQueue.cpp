#include "FrameQueue.h"

#include "Failure.h"

#include <cerrno>
#include <chrono>
#include <string>
#include <sys/eventfd.h>
#include <system_error>
#include <unistd.h>

namespace tarn::tool
{

int MakeWakeUp()
{
    const int descriptor = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (descriptor < 0)
        throw Trouble("no event descriptor: " + std::generic_category().message(errno) +
                      "; see 'ulimit -n'");
    return descriptor;
}

FrameQueue::FrameQueue(tWhenFull whenFull, std::size_t capacity)
    : mWhenFull(whenFull),
      mCapacity(capacity),
      mWakeUp(MakeWakeUp())
{
    mFrames.reserve(capacity);
}

FrameQueue::~FrameQueue() noexcept
{
    ::close(mWakeUp);
}

void FrameQueue::DispatchResponse(CanMessage& frame)
{
    std::unique_lock<std::mutex> lock(mMutex);
    if (mWhenFull == WAIT)
        mTaken.wait(lock, [this] { return mFrames.size() < mCapacity || mClosed; });
    if (mFrames.size() == mCapacity || mClosed) {
        ++mOverflows;
        return;
    }
    mFrames.push_back(frame);
    if (frame.GetTimeStamp() == 0)
        mFrames.back().SetTimeStamp(TimeOfDay());
    if (mFrames.size() == 1)
        ::eventfd_write(mWakeUp, 1);
}

void FrameQueue::TakeAll(std::vector<CanMessage>& frames)
{
    frames.clear();
    frames.reserve(mCapacity);
    const std::lock_guard<std::mutex> lock(mMutex);
    frames.swap(mFrames);
    eventfd_t wakeUps = 0;
    ::eventfd_read(mWakeUp, &wakeUps);
    mTaken.notify_one();
}

void FrameQueue::Close()
{
    const std::lock_guard<std::mutex> lock(mMutex);
    mClosed = true;
    mTaken.notify_one();
}

std::uint64_t FrameQueue::GetOverflows() const
{
    const std::lock_guard<std::mutex> lock(mMutex);
    return mOverflows;
}

std::uint64_t TimeOfDay()
{
    using namespace std::chrono;
    return static_cast<std::uint64_t>(
        duration_cast<nanoseconds>(system_clock::now().time_since_epoch()).count());
}

} // namespace tarn::tool
