#ifndef PLEXA_CAN_SRC_VIRTUAL_CAN_NODE_CORE_H
#define PLEXA_CAN_SRC_VIRTUAL_CAN_NODE_CORE_H

#include "FrameHandlers.h"
#include "SteadyLock.h"

#include <plexa_can/CanMessage.h>
#include <plexa_can/VirtualCanBus.h>

#include <chrono>
#include <condition_variable>
#include <deque>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

namespace tarn
{

/// A node as the bus sees it. All members but the handlers are guarded by the mutex of the bus. The
/// receive thread holds the object, so that a node may be destroyed from inside its own handler.
class PLEXA_CAN_HIDDEN VirtualCanNode::Core
    : public std::enable_shared_from_this<VirtualCanNode::Core>
{
public:
    using Clock = std::chrono::steady_clock;

    explicit Core(std::shared_ptr<VirtualCanBus::Core> bus);

    void Start(iCanMessageHandler* handler);
    void Stop(const iCanMessageHandler* handler);
    void Close();
    VirtualCanBus::Core& Bus() { return *mBus; }

private:
    friend class VirtualCanBus::Core;

    /// One frame for this node, and when it may be delivered.
    struct Copy {
        CanMessage frame;
        Clock::time_point due;
    };

    void StartThread();
    void Receive();
    void DeliverPending(SteadyLock& lock);
    void AwaitDue(SteadyLock& lock, Clock::time_point due);
    void DropPending();
    void Account(const FrameHandlers::Outcome& outcome);

    const std::shared_ptr<VirtualCanBus::Core> mBus;
    FrameHandlers mHandlers;
    std::thread mThread;
    std::condition_variable mArrived; ///< a copy to deliver, or the end
    std::vector<Copy> mPending;
    std::vector<Copy> mTaken;         ///< being delivered
    std::deque<CanMessage> mOutgoing; ///< waits for its turn on a bus with a bit rate
    CanBusCounters mCounters;
    bool mListening = false;
    bool mBusOff = false;
    bool mClosed = false;
};

} // namespace tarn

#endif
