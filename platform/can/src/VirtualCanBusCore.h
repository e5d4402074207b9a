#ifndef PLEXA_CAN_SRC_VIRTUAL_CAN_BUS_CORE_H
#define PLEXA_CAN_SRC_VIRTUAL_CAN_BUS_CORE_H

#include "VirtualCanNodeCore.h"

#include <plexa_can/VirtualCanBus.h>

#include <chrono>
#include <condition_variable>
#include <deque>
#include <memory>
#include <mutex>
#include <random>
#include <string>
#include <thread>
#include <vector>

namespace tarn
{

/// The bus itself, held by its handles and its nodes. One mutex guards it and its nodes; no handler
/// is ever called while it is held.
class PLEXA_CAN_HIDDEN VirtualCanBus::Core
{
public:
    explicit Core(const Options& options);
    ~Core();
    Core(const Core&) = delete;
    Core& operator=(const Core&) = delete;

    void Connect(std::shared_ptr<VirtualCanNode::Core> node);
    void Send(VirtualCanNode::Core& sender, const CanMessage& frame);
    void SetBusOff(VirtualCanNode::Core& node, bool busOff);
    void SetFaults(const Faults& faults);
    Counters GetCounters();
    CanBusCounters GetCounters(const VirtualCanNode::Core& node);
    bool WaitUntilIdle(std::chrono::milliseconds timeout);

    bool IsThreaded() const { return mOptions.delivery == DELIVERY_THREADED; }

    /// The queue, and what faults may add to the last frame that found room in it.
    std::size_t CopiesAtMost() const { return mOptions.queueSize + 3; }

private:
    friend class VirtualCanNode::Core;

    using Clock = VirtualCanNode::Core::Clock;
    using Lock = SteadyLock;

    struct Sent {
        const VirtualCanNode::Core* sender = nullptr;
        CanMessage frame;
    };

    void Disconnect(const VirtualCanNode::Core& node);
    static void RequireOnBus(const VirtualCanNode::Core& sender);
    void NoteSent(VirtualCanNode::Core& sender);

    void SendAtOnce(Lock& lock, VirtualCanNode::Core& sender, const CanMessage& frame);
    void SendInline(Lock& lock, VirtualCanNode::Core& sender, const CanMessage& frame);
    void SendInTurn(Lock& lock, VirtualCanNode::Core& sender, const CanMessage& frame);
    template <typename Condition>
    void AwaitPlace(Lock& lock, VirtualCanNode::Core& sender, const char* what,
                    Condition condition);
    [[noreturn]] void GiveUp(const std::string& why);

    void PutOnBus(const Sent& sent);
    void PutTo(VirtualCanNode::Core& node, const CanMessage& frame);
    void Enqueue(VirtualCanNode::Core& node, const CanMessage& frame);
    void EnqueueError(VirtualCanNode::Core& node, CanMessage frame);
    void WakeReceivers(Lock& lock);
    bool HasFaults() const;
    bool Happens(double chance);
    bool ReceiversHaveRoom(const VirtualCanNode::Core* sender) const;

    void DrainLine(Lock& lock);
    bool DeliverInline(Lock& lock);

    void StartWire();
    void RunWire();
    VirtualCanNode::Core* WinnerOfArbitration() const;
    bool AwaitFrameTime(Lock& lock, const CanMessage& frame);

    bool IsIdle() const;

    const Options mOptions;
    const CanMessage mBusError; ///< made ahead, since a frame on the bus cannot wait for memory
    const CanMessage mBusOff;
    std::mutex mMutex;
    std::condition_variable mChanged; ///< places in queues, the end of an inline delivery, rest
    std::vector<std::shared_ptr<VirtualCanNode::Core>> mNodes;
    std::vector<std::shared_ptr<VirtualCanNode::Core>> mToWake; ///< have got a first frame
    Counters mCounters = {};
    std::size_t mInHand = 0; ///< copies that nodes, also closed ones, are delivering
    Faults mFaults;
    std::mt19937_64 mRandom;

    // Inline delivery: frames that handlers send wait here until the present one is delivered.
    std::deque<Sent> mLine;
    bool mDraining = false;
    std::thread::id mDrainer;

    // A bus with a bit rate: the thread that plays the wire.
    std::thread mWire;
    std::condition_variable mOutgoing;
    Clock::time_point mFreeAt;
    bool mWireBusy = false;
    bool mClosed = false;
};

} // namespace tarn

#endif
