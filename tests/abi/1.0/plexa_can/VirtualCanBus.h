#ifndef PLEXA_CAN_VIRTUAL_CAN_BUS_H
#define PLEXA_CAN_VIRTUAL_CAN_BUS_H

#include <plexa_can/Export.h>
#include <plexa_can/iCanBus.h>

#include <cstddef>
#include <memory>
#include <string>
#include <tr1/memory>

namespace tarn
{

class VirtualCanNode;

/// A CAN bus inside the process, for tests, simulations and machines without CAN hardware. Other
/// processes have their own bus of the same name; SocketCandDispatcher and "tarn serve" share one.
///
/// Every frame that a node sends reaches every other node, and all of them see all frames in one
/// and the same order. Nothing is lost without a counter that says so.
///
/// A bus lives as long as somebody holds it or one of its nodes. All operations may be called from
/// any thread.
class PLEXA_CAN_API VirtualCanBus
{
public:
    /// On which thread handlers run.
    enum tDelivery : int {
        /// Each node delivers on a receive thread of its own, from a bounded queue.
        DELIVERY_THREADED = 0,
        /// Send() delivers on the sender's thread and returns when all handlers have run. Frames
        /// that handlers send meanwhile are delivered before it returns too, after the present one.
        /// No thread is started.
        DELIVERY_INLINE = 1
    };

    /// What a bus is like.
    struct Options {
        tDelivery delivery = DELIVERY_THREADED; ///< a thread a node, or the sender's

        /// Frames that wait at a node for its handlers, beside those just being delivered; also the
        /// frames of a node that wait for their turn on a bus with a bit rate.
        std::size_t queueSize = 1024;

        /// How long Send() waits for a place in a full queue, in milliseconds, before it throws.
        unsigned int sendTimeout = 1000;

        /// Bits a second, e.g. 250000. Frames then take as long as they would on a real bus
        /// (without stuff bits), and of the frames waiting at the nodes the one with the lowest
        /// identifier goes first, by the rules of ISO 11898-1. 0: frames take no time and go in the
        /// order of the calls. Needs threaded delivery.
        unsigned int bitRate = 0;
    };

    /// What goes wrong, by chance. Each chance is a probability, 0 (never) to 1 (always), and is
    /// drawn for every frame and every node that receives it. The same seed gives the same faults
    /// for the same sequence of frames.
    struct Faults {
        double loss = 0;        ///< the node does not get the frame
        double duplication = 0; ///< the node gets the frame twice
        double errorFrame = 0;  ///< the node gets an error frame (CAN_ERR_BUSERROR) ahead of it
        unsigned int delay = 0; ///< milliseconds by which frames arrive late; they stay in order
        unsigned long long seed = 1; ///< any number; where the sequence of chances begins
    };

    /// What has happened on the whole bus since it was made, nodes that are gone included; a node
    /// itself tells its own part. A copy is one frame for one receiving node. At any quiet moment
    ///
    ///     sent   = onBus + waitingToSend + unsent
    ///     copies + duplicated + errorFrames = delivered + waiting + lost + unheard
    struct Counters {
        unsigned long long sent;              ///< frames that Send() took
        unsigned long long waitingToSend;     ///< of these: waiting for their turn (bit rate)
        unsigned long long unsent;            ///< of these: their node was closed before their turn
        unsigned long long onBus;             ///< of these: went over the bus
        unsigned long long copies;            ///< the frames on the bus, once for each other node
        unsigned long long duplicated;        ///< copies added by faults
        unsigned long long errorFrames;       ///< error frames added by faults, for each node
        unsigned long long delivered;         ///< copies that the handlers of a node have got
        unsigned long long waiting;           ///< copies in the queues
        unsigned long long lost;              ///< copies taken away by faults, bus-off included
        unsigned long long unheard;           ///< copies for a node without handlers
        unsigned long long handlerExceptions; ///< exceptions that left a handler
        unsigned long long sendTimeouts;      ///< Send() calls that gave up on a full queue
    };

    /// A bus of its own, without a name.
    /// @throws CanException for options that contradict each other
    static std::tr1::shared_ptr<VirtualCanBus> Create(const Options& options);
    /// The same with the options as they are by default.
    static std::tr1::shared_ptr<VirtualCanBus> Create();

    /// The bus of this name in this process. It is made by the first who asks, with the options
    /// given, and goes with the last who holds it; others get it as it is, whatever their options.
    static std::tr1::shared_ptr<VirtualCanBus> Open(const std::string& name,
                                                    const Options& options);
    /// The same with the options as they are by default.
    static std::tr1::shared_ptr<VirtualCanBus> Open(const std::string& name);

    ~VirtualCanBus();
    VirtualCanBus(const VirtualCanBus&) = delete;
    VirtualCanBus& operator=(const VirtualCanBus&) = delete;

    /// A new node. It keeps the bus alive.
    std::tr1::shared_ptr<VirtualCanNode> Connect();

    /// From the next frame on. Begins a new sequence of chances from the seed.
    void SetFaults(const Faults& faults);

    /// From any thread, also from inside a handler; all figures are of one moment.
    Counters GetCounters() const;

    /// Waits until no frame is waiting or being delivered, at most timeout milliseconds.
    /// @return false when the bus did not come to rest in that time
    bool WaitUntilIdle(unsigned int timeout) const;

    class Core;

private:
    explicit VirtualCanBus(std::shared_ptr<Core> core);

    std::shared_ptr<Core> mCore;
};

/// A connection to a VirtualCanBus, made by VirtualCanBus::Connect().
///
/// Handlers run on the node's receive thread (threaded delivery) or on that of the sender (inline).
/// An exception that leaves a handler is caught, counted and logged to the logger "VirtualCanBus";
/// other handlers and later frames still arrive. Frames that come while no handler is there are
/// counted as unheard.
class PLEXA_CAN_API VirtualCanNode : public iCanBus
{
public:
    /// Stops all handlers as Stop() does.
    ~VirtualCanNode() noexcept override;
    VirtualCanNode(const VirtualCanNode&) = delete;
    VirtualCanNode& operator=(const VirtualCanNode&) = delete;

    /// Adds a handler; adding one that is there already changes nothing.
    void Start(iCanMessageHandler* handler) override;

    /// Removes a handler; it is no error when it is not there. Blocks while a call to this handler
    /// is running on another thread.
    void Stop(iCanMessageHandler* handler) override;

    /// Puts a frame on the bus. Waits while a queue is full, at most the bus's send time-out.
    /// @throws CanException when that time has passed or the node is bus-off. The frame was given
    /// to
    ///     nobody then.
    void Send(CanMessage& frame) override;

    CanBusCounters GetCounters() const override;

    /// Takes the node off the bus, or back on. A node that is bus-off gets one error frame
    /// (CAN_ERR_BUSOFF) and then no more frames, and its Send() throws.
    void SetBusOff(bool busOff);

    class Core;

private:
    friend class VirtualCanBus;
    explicit VirtualCanNode(std::shared_ptr<Core> core);

    std::shared_ptr<Core> mCore;
};

} // namespace tarn

#endif
