#include "BusSender.h"

#include "FrameQueue.h"

#include <plexa_can/CanException.h>

#include <sys/eventfd.h>
#include <unistd.h>
#include <utility>

namespace tarn::tool
{

BusSender::BusSender(iCanBus& bus) : mBus(bus), mWakeUp(MakeWakeUp()), mThread([this] { Run(); }) {}

BusSender::~BusSender()
{
    Finish(Clock::now());
    ::close(mWakeUp);
}

void BusSender::Finish(Clock::time_point end)
{
    {
        const std::lock_guard<std::mutex> lock(mMutex);
        mStopping = true;
        mEnd = end;
    }
    mChanged.notify_one();
    if (mThread.joinable())
        mThread.join();
}

void BusSender::Put(std::uint64_t sender, const CanMessage& frame)
{
    {
        const std::lock_guard<std::mutex> lock(mMutex);
        mWaiting.push_back({sender, frame, ""});
    }
    mChanged.notify_one();
}

std::size_t BusSender::CountWaiting()
{
    const std::lock_guard<std::mutex> lock(mMutex);
    return mWaiting.size();
}

void BusSender::TakeOutcomes(std::vector<Outcome>& outcomes)
{
    outcomes.clear();
    const std::lock_guard<std::mutex> lock(mMutex);
    outcomes.swap(mDone);
    eventfd_t wakeUps = 0;
    ::eventfd_read(mWakeUp, &wakeUps);
}

void BusSender::AwaitBegun(Clock::time_point until)
{
    std::unique_lock<std::mutex> lock(mMutex);
    const std::uint64_t begun = mBegun;
    mSendEnded.wait_until(lock, until, [&] { return mEnded >= begun; });
}

void BusSender::Run()
{
    std::unique_lock<std::mutex> lock(mMutex);
    for (;;) {
        mChanged.wait(lock, [this] { return mStopping || !mWaiting.empty(); });
        if (mWaiting.empty())
            return;
        Outcome item = std::move(mWaiting.front());
        mWaiting.pop_front();
        const bool isLate = Clock::now() >= mEnd;
        ++mBegun;
        lock.unlock();
        if (isLate)
            item.failure = "the server ends";
        else
            SendOne(item);
        lock.lock();
        ++mEnded;
        mSendEnded.notify_all();
        mDone.push_back(std::move(item));
        if (mDone.size() == 1)
            ::eventfd_write(mWakeUp, 1);
    }
}

void BusSender::SendOne(Outcome& item)
{
    try {
        mBus.Send(item.frame);
        item.frame.SetTimeStamp(TimeOfDay());
    } catch (const CanException& failure) {
        item.failure = failure.message();
    } catch (const std::exception& failure) {
        item.failure = failure.what();
    }
}

} // namespace tarn::tool
