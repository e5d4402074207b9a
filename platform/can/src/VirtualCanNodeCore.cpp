#include "VirtualCanNodeCore.h"

#include "VirtualCanBusCore.h"

#include <plexa_can/CanException.h>

#include <system_error>
#include <utility>

namespace tarn
{

VirtualCanNode::Core::Core(std::shared_ptr<VirtualCanBus::Core> bus)
    : mBus(std::move(bus)),
      mHandlers("VirtualCanBus")
{
    mPending.reserve(mBus->CopiesAtMost());
    mTaken.reserve(mBus->CopiesAtMost());
}

void VirtualCanNode::Core::Start(iCanMessageHandler* handler)
{
    const SteadyLock lock(mBus->mMutex);
    if (mBus->IsThreaded() && !mThread.joinable())
        StartThread();
    if (!mListening)
        mHandlers.BeginGeneration();
    mHandlers.Add(handler);
    mListening = true;
}

void VirtualCanNode::Core::StartThread()
{
    try {
        mThread = std::thread([self = shared_from_this()] { self->Receive(); });
    } catch (const std::system_error& error) {
        throw CanException(std::string("cannot start a receive thread for a virtual CAN node: ") +
                               error.what(),
                           error.code().value());
    }
}

void VirtualCanNode::Core::Stop(const iCanMessageHandler* handler)
{
    mHandlers.Remove(handler);
    const SteadyLock lock(mBus->mMutex);
    mListening = !mHandlers.IsEmpty();
    if (!mListening)
        DropPending();
}

void VirtualCanNode::Core::Close()
{
    mHandlers.RemoveAll();
    {
        const SteadyLock lock(mBus->mMutex);
        mListening = false;
        mClosed = true;
        DropPending();
        mBus->Disconnect(*this);
    }
    mArrived.notify_all();
    if (!mThread.joinable())
        return;
    if (mThread.get_id() == std::this_thread::get_id())
        mThread.detach(); // it ends when the running handler returns
    else
        mThread.join();
}

void VirtualCanNode::Core::DropPending()
{
    mBus->mCounters.unheard += mPending.size();
    mCounters.unheard += mPending.size();
    mPending.clear();
    mBus->mChanged.notify_all();
}

void VirtualCanNode::Core::Receive()
{
    SteadyLock lock(mBus->mMutex);
    while (!mClosed) {
        mArrived.wait(lock, [this] { return mClosed || !mPending.empty(); });
        DeliverPending(lock);
    }
}

void VirtualCanNode::Core::DeliverPending(SteadyLock& lock)
{
    mTaken.swap(mPending);
    const unsigned int generation = mHandlers.Generation();
    mBus->mInHand += mTaken.size();
    mBus->mChanged.notify_all();
    for (const Copy& copy : mTaken) {
        AwaitDue(lock, copy.due);
        lock.unlock();
        const FrameHandlers::Outcome outcome = mHandlers.Deliver(copy.frame, generation);
        lock.lock();
        Account(outcome);
        --mBus->mInHand;
    }
    mTaken.clear();
    mBus->mChanged.notify_all();
}

void VirtualCanNode::Core::Account(const FrameHandlers::Outcome& outcome)
{
    const bool heard = outcome.calls != 0;
    ++(heard ? mCounters.delivered : mCounters.unheard);
    ++(heard ? mBus->mCounters.delivered : mBus->mCounters.unheard);
    mCounters.handlerExceptions += outcome.exceptions;
    mBus->mCounters.handlerExceptions += outcome.exceptions;
}

void VirtualCanNode::Core::AwaitDue(SteadyLock& lock, Clock::time_point due)
{
    if (due != Clock::time_point())
        mArrived.wait_until(lock, due, [this] { return mClosed; });
}

} // namespace tarn
