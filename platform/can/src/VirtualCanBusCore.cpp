#include "VirtualCanBusCore.h"

#include <plexa_can/CanException.h>
#include <plexa_can/CanTiming.h>

#include <algorithm>
#include <string>
#include <utility>

namespace tarn
{

namespace
{

// linux/can/error.h
constexpr unsigned int CAN_ERR_BUSOFF = 0x40;
constexpr unsigned int CAN_ERR_BUSERROR = 0x80;
constexpr std::size_t CAN_ERR_DLC = 8;

CanMessage ErrorFrame(unsigned int errorClass)
{
    CanMessage frame;
    frame.SetHeader(errorClass);
    frame.GetFlags() = CanMessage::FLAG_ERROR;
    frame.SetData(std::vector<unsigned char>(CAN_ERR_DLC));
    return frame;
}

unsigned long long Now()
{
    using std::chrono::nanoseconds;
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    return static_cast<unsigned long long>(std::chrono::duration_cast<nanoseconds>(now).count());
}

} // namespace

VirtualCanBus::Core::Core(const Options& options)
    : mOptions(options),
      mBusError(ErrorFrame(CAN_ERR_BUSERROR)),
      mBusOff(ErrorFrame(CAN_ERR_BUSOFF)),
      mRandom(mFaults.seed)
{
    if (options.queueSize == 0)
        throw CanException("a virtual CAN bus with a queue size of 0 could carry nothing: give 1 "
                           "frame or more");
    if (options.bitRate != 0 && !IsThreaded())
        throw CanException("a virtual CAN bus with a bit rate needs threaded delivery: an inline "
                           "sender cannot wait for its own turn");
    if (options.bitRate != 0)
        StartWire();
}

void VirtualCanBus::Core::StartWire()
{
    try {
        mWire = std::thread([this] { RunWire(); });
    } catch (const std::system_error& error) {
        throw CanException(std::string("cannot start a thread for a virtual CAN bus with a bit "
                                       "rate: ") +
                               error.what() + "; raise the limit of threads",
                           error.code().value());
    }
}

VirtualCanBus::Core::~Core()
{
    {
        const Lock lock(mMutex);
        mClosed = true;
    }
    mOutgoing.notify_all();
    mChanged.notify_all();
    if (mWire.joinable())
        mWire.join();
}

void VirtualCanBus::Core::Connect(std::shared_ptr<VirtualCanNode::Core> node)
{
    const Lock lock(mMutex);
    mNodes.push_back(std::move(node));
}

void VirtualCanBus::Core::Disconnect(const VirtualCanNode::Core& node)
{
    const auto entry = std::find_if(mNodes.begin(), mNodes.end(),
                                    [&](const auto& other) { return other.get() == &node; });
    if (entry == mNodes.end())
        return;
    mCounters.unsent += node.mOutgoing.size();
    mNodes.erase(entry);
    mChanged.notify_all();
}

// Sending.

void VirtualCanBus::Core::Send(VirtualCanNode::Core& sender, const CanMessage& frame)
{
    Lock lock(mMutex);
    try {
        RequireOnBus(sender);
        if (mOptions.bitRate != 0)
            SendInTurn(lock, sender, frame);
        else if (IsThreaded())
            SendAtOnce(lock, sender, frame);
        else
            SendInline(lock, sender, frame);
    } catch (const std::exception&) { // out of memory too, which strikes before the frame is taken
        ++sender.mCounters.sendFailures;
        throw;
    }
}

void VirtualCanBus::Core::SendAtOnce(Lock& lock, VirtualCanNode::Core& sender,
                                     const CanMessage& frame)
{
    AwaitPlace(lock, sender, "the receive queue of another node",
               [&] { return ReceiversHaveRoom(&sender); });
    mToWake.reserve(mNodes.size()); // from here on nothing can fail
    NoteSent(sender);
    PutOnBus({&sender, frame});
    WakeReceivers(lock);
}

void VirtualCanBus::Core::SendInTurn(Lock& lock, VirtualCanNode::Core& sender,
                                     const CanMessage& frame)
{
    AwaitPlace(lock, sender, "its own transmit queue",
               [&] { return sender.mOutgoing.size() < mOptions.queueSize; });
    sender.mOutgoing.push_back(frame);
    NoteSent(sender);
    mOutgoing.notify_one();
}

void VirtualCanBus::Core::SendInline(Lock& lock, VirtualCanNode::Core& sender,
                                     const CanMessage& frame)
{
    const bool insideHandler = mDraining && mDrainer == std::this_thread::get_id();
    if (insideHandler && mLine.size() >= mOptions.queueSize)
        GiveUp("handlers have sent " + std::to_string(mOptions.queueSize) +
               " frames while one was delivered; let them send less, or raise queueSize");
    if (!insideHandler)
        AwaitPlace(lock, sender, "the delivery of another thread's frame",
                   [&] { return !mDraining; });
    mLine.push_back({&sender, frame});
    NoteSent(sender);
    if (!insideHandler)
        DrainLine(lock);
}

template <typename Condition>
void VirtualCanBus::Core::AwaitPlace(Lock& lock, VirtualCanNode::Core& sender, const char* what,
                                     Condition condition)
{
    if (condition())
        return;
    ++sender.mCounters.sendRetries;
    if (!mChanged.wait_for(lock, std::chrono::milliseconds(mOptions.sendTimeout), condition))
        GiveUp("the virtual CAN bus waited " + std::to_string(mOptions.sendTimeout) + " ms for " +
               what + "; let handlers return sooner, or raise queueSize or sendTimeout");
    RequireOnBus(sender);
}

void VirtualCanBus::Core::RequireOnBus(const VirtualCanNode::Core& sender)
{
    if (!sender.mBusOff)
        return;
    throw CanException("a frame was not sent: the virtual CAN node is bus-off until "
                       "SetBusOff(false)");
}

void VirtualCanBus::Core::NoteSent(VirtualCanNode::Core& sender)
{
    ++sender.mCounters.sent;
    ++mCounters.sent;
}

void VirtualCanBus::Core::GiveUp(const std::string& why)
{
    ++mCounters.sendTimeouts;
    throw CanException("a frame was not sent: " + why);
}

// What a frame on the bus becomes at each node.

void VirtualCanBus::Core::PutOnBus(const Sent& sent)
{
    ++mCounters.onBus;
    CanMessage frame(sent.frame);
    frame.SetTimeStamp(Now());
    for (const auto& node : mNodes) {
        if (node.get() != sent.sender)
            PutTo(*node, frame);
    }
}

void VirtualCanBus::Core::PutTo(VirtualCanNode::Core& node, const CanMessage& frame)
{
    ++mCounters.copies;
    if (!HasFaults() && !node.mBusOff)
        return Enqueue(node, frame);
    const bool lost = Happens(mFaults.loss);
    const bool twice = Happens(mFaults.duplication);
    const bool error = Happens(mFaults.errorFrame);
    if (error && !node.mBusOff)
        EnqueueError(node, mBusError);
    if (lost || node.mBusOff) {
        ++node.mCounters.lost;
        ++mCounters.lost;
        return;
    }
    Enqueue(node, frame);
    if (twice) {
        ++node.mCounters.duplicated;
        ++mCounters.duplicated;
        Enqueue(node, frame);
    }
}

void VirtualCanBus::Core::Enqueue(VirtualCanNode::Core& node, const CanMessage& frame)
{
    ++node.mCounters.received;
    if (frame.HasError())
        ++node.mCounters.errorFrames;
    if (!node.mListening) {
        ++node.mCounters.unheard;
        ++mCounters.unheard;
        return;
    }
    const std::chrono::milliseconds delay(mFaults.delay);
    const bool late = mFaults.delay != 0;
    node.mPending.push_back({frame, late ? Clock::now() + delay : Clock::time_point()});
    if (!IsThreaded() || node.mPending.size() != 1)
        return;
    if (mOptions.bitRate == 0)
        mToWake.push_back(node.shared_from_this());
    else // the thread of the wire must not be the last to hold a node, and with it the bus
        node.mArrived.notify_one();
}

void VirtualCanBus::Core::EnqueueError(VirtualCanNode::Core& node, CanMessage frame)
{
    frame.SetTimeStamp(Now());
    ++mCounters.errorFrames;
    Enqueue(node, frame);
}

/// Releases the lock first: who wakes while it is held only finds the bus busy, and sleeps again.
void VirtualCanBus::Core::WakeReceivers(Lock& lock)
{
    if (mToWake.empty())
        return lock.unlock(); // the room for the next is kept
    const auto receivers = std::exchange(mToWake, {});
    lock.unlock();
    for (const auto& node : receivers)
        node->mArrived.notify_one();
}

bool VirtualCanBus::Core::ReceiversHaveRoom(const VirtualCanNode::Core* sender) const
{
    return std::all_of(mNodes.begin(), mNodes.end(), [&](const auto& node) {
        return node.get() == sender || node->mPending.size() < mOptions.queueSize;
    });
}

bool VirtualCanBus::Core::HasFaults() const
{
    return mFaults.loss > 0 || mFaults.duplication > 0 || mFaults.errorFrame > 0;
}

bool VirtualCanBus::Core::Happens(double chance)
{
    // 53 bits of a random number in [0, 1), the same on every platform.
    const double drawn = static_cast<double>(mRandom() >> 11) * 0x1p-53;
    return drawn < chance;
}

void VirtualCanBus::Core::SetFaults(const Faults& faults)
{
    const Lock lock(mMutex);
    mFaults = faults;
    mRandom.seed(faults.seed);
}

void VirtualCanBus::Core::SetBusOff(VirtualCanNode::Core& node, bool busOff)
{
    Lock lock(mMutex);
    mToWake.reserve(mNodes.size());
    if (busOff && !node.mBusOff)
        EnqueueError(node, mBusOff);
    node.mBusOff = busOff;
    if (!IsThreaded() && !mDraining)
        DrainLine(lock);
    WakeReceivers(lock);
}

// Inline delivery.

void VirtualCanBus::Core::DrainLine(Lock& lock)
{
    struct Drain {
        Core& core;
        Lock& lock;
        ~Drain()
        {
            if (!lock.owns_lock())
                lock.lock(); // the thread was cancelled inside a handler
            core.mDraining = false;
            core.mChanged.notify_all();
        }
    };
    mDraining = true;
    mDrainer = std::this_thread::get_id();
    const Drain drain = {*this, lock};
    while (DeliverInline(lock) || !mLine.empty()) {
        if (mLine.empty())
            continue;
        const Sent sent = mLine.front();
        mLine.pop_front();
        PutOnBus(sent);
    }
}

/// False when there was nothing to deliver.
bool VirtualCanBus::Core::DeliverInline(Lock& lock)
{
    bool delivered = false;
    // A handler may connect and close nodes: one that is missed here has its turn at the next call.
    // NOLINTNEXTLINE(modernize-loop-convert): the list may change meanwhile
    for (std::size_t i = 0; i < mNodes.size(); ++i) {
        const auto node = mNodes[i];
        if (node->mPending.empty())
            continue;
        node->DeliverPending(lock);
        delivered = true;
    }
    return delivered;
}

// The wire of a bus with a bit rate.

void VirtualCanBus::Core::RunWire()
{
    Lock lock(mMutex);
    while (!mClosed) {
        VirtualCanNode::Core* const winner = WinnerOfArbitration();
        if (winner == nullptr) {
            mOutgoing.wait(lock);
            continue;
        }
        const Sent sent = {winner, winner->mOutgoing.front()};
        winner->mOutgoing.pop_front();
        mWireBusy = true;
        mChanged.notify_all();
        if (AwaitFrameTime(lock, sent.frame))
            PutOnBus(sent);
        mWireBusy = false;
        mChanged.notify_all();
    }
}

VirtualCanNode::Core* VirtualCanBus::Core::WinnerOfArbitration() const
{
    VirtualCanNode::Core* winner = nullptr;
    for (const auto& node : mNodes) {
        if (node->mOutgoing.empty())
            continue;
        if (winner == nullptr ||
            ArbitrationRank(node->mOutgoing.front()) < ArbitrationRank(winner->mOutgoing.front()))
            winner = node.get();
    }
    return winner;
}

bool VirtualCanBus::Core::AwaitFrameTime(Lock& lock, const CanMessage& frame)
{
    const std::chrono::nanoseconds duration(1000000000ull * FrameBits(frame) / mOptions.bitRate);
    mFreeAt = std::max(mFreeAt, Clock::now()) + duration;
    mOutgoing.wait_until(lock, mFreeAt, [this] { return mClosed; });
    mChanged.wait(lock, [&] { return mClosed || ReceiversHaveRoom(nullptr); });
    return !mClosed;
}

// Looking on.

VirtualCanBus::Counters VirtualCanBus::Core::GetCounters()
{
    const Lock lock(mMutex);
    Counters counters = mCounters;
    counters.waiting += mInHand;
    counters.waitingToSend += mLine.size() + (mWireBusy ? 1 : 0);
    for (const auto& node : mNodes) {
        counters.waitingToSend += node->mOutgoing.size();
        counters.waiting += node->mPending.size();
    }
    return counters;
}

CanBusCounters VirtualCanBus::Core::GetCounters(const VirtualCanNode::Core& node)
{
    const Lock lock(mMutex);
    return node.mCounters;
}

bool VirtualCanBus::Core::IsIdle() const
{
    return mLine.empty() && !mDraining && !mWireBusy && mInHand == 0 &&
           std::all_of(mNodes.begin(), mNodes.end(), [](const auto& node) {
               return node->mPending.empty() && node->mOutgoing.empty();
           });
}

bool VirtualCanBus::Core::WaitUntilIdle(std::chrono::milliseconds timeout)
{
    Lock lock(mMutex);
    return mChanged.wait_for(lock, timeout, [this] { return IsIdle(); });
}

} // namespace tarn
