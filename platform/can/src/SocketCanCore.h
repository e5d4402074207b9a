#ifndef PLEXA_CAN_SRC_SOCKET_CAN_CORE_H
#define PLEXA_CAN_SRC_SOCKET_CAN_CORE_H

#include "CanSocket.h"
#include "CanSystem.h"
#include "FrameHandlers.h"
#include "LinkMonitor.h"

#include <plexa_can/SocketCanDispatcher.h>

#include <atomic>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace tarn
{

/// A connection to an interface. The receive thread holds the object, so that the dispatcher may be
/// destroyed from inside one of its own handlers.
class PLEXA_CAN_HIDDEN SocketCanDispatcher::Core
    : public std::enable_shared_from_this<SocketCanDispatcher::Core>
{
public:
    Core(iCanSystem& system, const std::string& interface, const Options& options);
    ~Core() = default;
    Core(const Core&) = delete;
    Core& operator=(const Core&) = delete;

    void Start(iCanMessageHandler* handler);
    void Stop(const iCanMessageHandler* handler);
    void Close();
    void Send(const CanMessage& frame);

    CanBusCounters GetCounters();
    tCanBusState GetBusState();
    void AddStateListener(iCanBusStateListener* listener);
    void RemoveStateListener(const iCanBusStateListener* listener);
    bool IsRealTime() const { return mIsRealTime; }

private:
    /// Closed with its owner.
    class Descriptor
    {
    public:
        Descriptor(iCanSystem& system, int fd) : mSystem(system), mFd(fd) {}
        ~Descriptor() { mSystem.Close(mFd); }
        Descriptor(const Descriptor&) = delete;
        Descriptor& operator=(const Descriptor&) = delete;

        int Get() const { return mFd; }

    private:
        iCanSystem& mSystem;
        const int mFd;
    };

    /// What may be there.
    struct Events {
        bool frames = false;
        bool link = false;
        bool wake = false;
    };

    void StartThread();
    void Run();
    void Attend(const Events& events);
    void SetUpThread();
    void Watch(int fd);
    Events AwaitEvents();
    void Endure(int& last, const char* call, int error);
    void Wake();
    void ReceiveBatch();
    void Deliver(const CanMessage& frame, unsigned int generation);
    void ForgetWhatWaits();
    void NoteErrorFrame(const CanMessage& frame);
    void NoteDrops(unsigned int total);
    void LookAtLink();
    void SetState(tCanBusState state);
    void Announce(tCanBusState state);
    std::vector<iCanBusStateListener*> CopyOfListeners();
    bool AwaitPlaceInQueue(iCanSystem::Clock::time_point since);
    [[noreturn]] void RefuseToSend(int error, iCanSystem::Clock::time_point since);

    iCanSystem& mSystem;
    const std::string mInterface;
    const Options mOptions;
    CanSocket mSocket;
    LinkMonitor mLinks;
    const Descriptor mWake;
    const Descriptor mWaitSet;
    FrameHandlers mHandlers;

    std::mutex mMutex; ///< guards thread and filters, not the receiving
    std::thread mThread;

    std::mutex mReadMutex; ///< held while the socket is read

    std::recursive_mutex mStateMutex; ///< held while listeners are called
    std::vector<iCanBusStateListener*> mListeners;
    std::atomic<tCanBusState> mState{CAN_BUS_ERROR_ACTIVE};

    int mWaitFailure = 0; ///< this and the next: of the receive thread alone
    int mReadFailure = 0;

    std::atomic<bool> mClosed{false};
    std::atomic<bool> mIsRealTime{false};
    std::atomic<unsigned long long> mReceived{0};
    std::atomic<unsigned long long> mDelivered{0};
    std::atomic<unsigned long long> mUnheard{0};
    std::atomic<unsigned long long> mFiltered{0};
    std::atomic<unsigned long long> mErrorFrames{0};
    std::atomic<unsigned long long> mHandlerExceptions{0};
    std::atomic<unsigned long long> mSent{0};
    std::atomic<unsigned long long> mSendRetries{0};
    std::atomic<unsigned long long> mSendFailures{0};

    std::mutex mDropMutex;
    unsigned int mLastDrops = 0;
    unsigned long long mDropped = 0;
};

} // namespace tarn

#endif
