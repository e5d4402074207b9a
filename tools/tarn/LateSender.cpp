#include "LateSender.h"

#include <utility>

namespace tarn::tool
{

LateSender::LateSender(std::function<void(TarnMessage&)> send)
    : mSend(std::move(send)),
      mThread([this] { Run(); })
{
}

LateSender::~LateSender()
{
    {
        const std::lock_guard<std::mutex> lock(mMutex);
        mStopping = true;
    }
    mChanged.notify_one();
    mThread.join();
}

bool LateSender::Put(const TarnMessage& message, Clock::time_point due)
{
    const std::lock_guard<std::mutex> lock(mMutex);
    if (mWaiting.size() >= CAPACITY)
        return false;
    mWaiting.emplace(due, message);
    mChanged.notify_one();
    return true;
}

void LateSender::Run()
{
    std::unique_lock<std::mutex> lock(mMutex);
    while (!mStopping) {
        if (mWaiting.empty()) {
            mChanged.wait(lock);
            continue;
        }
        const Clock::time_point due = mWaiting.begin()->first;
        if (Clock::now() < due) {
            mChanged.wait_until(lock, due);
            continue;
        }
        auto next = mWaiting.extract(mWaiting.begin());
        lock.unlock();
        mSend(next.mapped());
        lock.lock();
    }
}

} // namespace tarn::tool
