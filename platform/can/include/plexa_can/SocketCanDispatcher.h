#ifndef PLEXA_CAN_SOCKET_CAN_DISPATCHER_H
#define PLEXA_CAN_SOCKET_CAN_DISPATCHER_H

#include <plexa_can/Export.h>
#include <plexa_can/iCanBus.h>

#include <cstddef>
#include <memory>
#include <string>
#include <tr1/memory>
#include <vector>

namespace tarn
{

/// The state of a CAN interface: of its controller on the bus (ISO 11898-1), or that it is not
/// there.
enum tCanBusState : int {
    CAN_BUS_ERROR_ACTIVE = 0, ///< takes part without restriction
    CAN_BUS_ERROR_WARNING,    ///< an error counter has reached 96
    CAN_BUS_ERROR_PASSIVE,    ///< an error counter has passed 127
    CAN_BUS_OFF,              ///< too many transmit errors: takes no part
    CAN_BUS_DOWN,             ///< the interface was set down
    CAN_BUS_REMOVED           ///< the interface is gone
};

/// Hears of changes of the state of an interface.
class PLEXA_CAN_API iCanBusStateListener
{
public:
    virtual ~iCanBusStateListener() noexcept(false) {}

    /// Called on the receive thread when the state has changed. An exception is caught and logged.
    virtual void OnBusState(tCanBusState state) = 0;
};

/// A CAN interface of the Linux kernel (SocketCAN, see Documentation/networking/can.rst there).
///
/// Start() of the first handler starts a receive thread, named after the interface. It reads frames
/// in batches and delivers them to all handlers. Time stamps are those of the controller where it
/// gives any, by its own clock, else the kernel's. Error frames of the controller are delivered
/// too, as frames with FLAG_ERROR. An exception that leaves a handler is caught, counted, and
/// logged to the logger "SocketCanDispatcher", each text at most once a second.
///
/// When the interface goes down, Send() throws at once; when it comes up again, receiving goes on
/// by itself. When it is removed, nothing more is received and Send() throws; an interface that is
/// made again under the same name is taken up.
///
/// All operations may be called from any thread.
class PLEXA_CAN_API SocketCanDispatcher : public iCanBus
{
public:
    /// Frames whose identifier word, masked, equals the identifier, masked: see CAN_RAW_FILTER of
    /// the kernel. The words carry the kernel's marks: 0x80000000 for a 29-bit identifier,
    /// 0x40000000 for a remote request; in identifier, 0x20000000 inverts the filter.
    struct Filter {
        unsigned int identifier; ///< what the bits of the mask have to be
        unsigned int mask;       ///< 1 for each bit that counts
    };

    /// What is received, and how long a call may take.
    struct Options {
        /// What the kernel hands over. Empty: every frame with a 29-bit identifier, no others.
        std::vector<Filter> filters;
        /// Whether error frames are received. Without them the bus state is what the kernel says
        /// when the interface is opened or changes, and when the first handler is started.
        bool errorFrames = true;
        /// Bytes of the socket's receive buffer; 0: the system's default. Beyond the system's limit
        /// (net.core.rmem_max) only root gets what it asks for.
        std::size_t receiveBuffer = 0;
        /// How long Send() waits for a place in the interface's transmit queue, in milliseconds.
        unsigned int sendTimeout = 1000;
        /// SCHED_FIFO priority of the receive thread, 1 to 99; 0: an ordinary thread. A refusal by
        /// the system is logged as a warning and shows in IsRealTime(), and all goes on without.
        unsigned int realTimePriority = 0;
    };

    /// Opens the interface.
    /// @throws CanException that names the interface, the step that failed, the system's word for
    /// it
    ///     and the remedy; its code is the error number
    static std::tr1::shared_ptr<SocketCanDispatcher> Create(const std::string& interface,
                                                            const Options& options);
    /// The same with the options as they are by default.
    static std::tr1::shared_ptr<SocketCanDispatcher> Create(const std::string& interface);

    /// Stops all handlers as Stop() does.
    ~SocketCanDispatcher() noexcept override;
    SocketCanDispatcher(const SocketCanDispatcher&) = delete;
    SocketCanDispatcher& operator=(const SocketCanDispatcher&) = delete;

    /// Adds a handler; adding one that is there already changes nothing. Frames that came before
    /// the first handler are not delivered.
    /// @throws CanException when the receive thread cannot be started
    void Start(iCanMessageHandler* handler) override;

    /// Removes a handler; it is no error when it is not there. Blocks while a call to this handler
    /// is running on the receive thread.
    void Stop(iCanMessageHandler* handler) override;

    /// Hands one frame to the kernel, with or without handlers. While the transmit queue is full it
    /// waits, at most the send time-out.
    /// @throws CanException when the kernel did not take the frame; it names interface, error and
    /// the
    ///     time waited. The frame was not sent then, and will not be.
    void Send(CanMessage& frame) override;

    CanBusCounters GetCounters() const override;

    /// The state of the controller comes from the kernel when the interface is opened, which vcan
    /// has none for, and then from error frames and changes of the interface.
    tCanBusState GetBusState() const;

    /// The listener hears of changes from now on. It is not owned and must stay alive until it is
    /// removed. Starts the receive thread where it is not running.
    /// @throws CanException when that cannot be started
    void AddStateListener(iCanBusStateListener* listener);
    /// Blocks while a call to the listener is running on another thread.
    void RemoveStateListener(iCanBusStateListener* listener);

    /// True when the receive thread has got the real-time priority it was to have.
    bool IsRealTime() const;

    class Core;

private:
    explicit SocketCanDispatcher(std::shared_ptr<Core> core);

    std::shared_ptr<Core> mCore;
};

} // namespace tarn

#endif
