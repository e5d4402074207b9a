#ifndef PLEXA_CAN_SRC_SOCKET_CAND_CORE_H
#define PLEXA_CAN_SRC_SOCKET_CAND_CORE_H

#include "FrameHandlers.h"
#include "SocketCandLink.h"
#include "TcpSystem.h"

#include <plexa_can/CanMessage.h>
#include <plexa_can/SocketCandDispatcher.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace tarn
{

/// A bus over TCP. The receive thread holds the object, so that the dispatcher may be destroyed
/// from inside one of its own handlers.
class PLEXA_CAN_HIDDEN SocketCandDispatcher::Core
    : public std::enable_shared_from_this<SocketCandDispatcher::Core>
{
public:
    Core(iTcpSystem& system, SocketCandAddress address, const Options& options);
    ~Core();
    Core(const Core&) = delete;
    Core& operator=(const Core&) = delete;

    /// Connects, and starts the receive thread.
    void Open();
    void Start(iCanMessageHandler* handler);
    void Stop(const iCanMessageHandler* handler);
    void Close();
    void Send(const CanMessage& frame);
    void Transmit(const CanMessage& frame);
    CanBusCounters GetCounters();
    bool IsConnected();
    std::string GetFailure();

private:
    using Clock = iTcpSystem::Clock;
    using Link = std::shared_ptr<SocketCandLink>;
    class Turn;

    Link CurrentLink();
    Link Connect();
    void StartThread();

    void Run();
    void Work();
    void Serve(const Link& link);
    void Pause(std::chrono::milliseconds time);
    void Reconnect();
    bool Await(const SocketCandLink* link, Clock::time_point until);
    void ReceiveBatch(const Link& link);
    void Deliver(const CanMessage& frame, unsigned int generation);
    void Take(const SocketCandElement& element);
    void TakeFrame(const CanMessage& frame);
    void NoteComplaint(const char* text);
    void LogComplaint(const std::string& text);
    void KeepAlive(const Link& link);
    void Wake();

    void ForgetWhatWaits();
    void Settle(const Link& link, Clock::time_point end);
    bool AwaitInput(const SocketCandLink& link, Clock::time_point end);

    std::function<bool()> RoomAwaiter(const Link& link, Clock::time_point end);
    bool AskForEcho(const Link& link, Clock::time_point end);
    void Lose(const Link& link, const std::string& reason, int error);
    [[noreturn]] void RefuseToSend(const std::string& reason, int error);

    iTcpSystem& mSystem;
    const SocketCandAddress mAddress;
    const Options mOptions;
    const std::string mName; ///< of bus and server, for messages
    const int mWake;
    std::vector<TcpAddress> mAddresses;
    FrameHandlers mHandlers;

    std::mutex mMutex; ///< guards the thread, and starting
    std::thread mThread;

    std::mutex mLinkMutex; ///< guards these three; innermost
    Link mLink;
    std::string mWhyLost;
    int mWhyLostError = 0;

    std::mutex mReadMutex;                     ///< held while the connection is read
    std::vector<CanMessage> mBatch;            ///< of the receive thread alone
    std::vector<CanMessage>* mTaken = nullptr; ///< where frames go; null: to nobody

    std::mutex mTurnMutex; ///< one sends at a time
    std::condition_variable mTurnEnded;
    bool mIsSending = false;

    Clock::time_point mNextLook = {}; ///< these: of the receive thread alone
    unsigned long long mBytesAtLook = 0;
    std::string mLastComplaint;
    Clock::time_point mComplainedAt = {};
    int mBackOff = 0;

    std::atomic<bool> mClosed{false};
    std::atomic<unsigned long long> mReceived{0};
    std::atomic<unsigned long long> mDelivered{0};
    std::atomic<unsigned long long> mUnheard{0};
    std::atomic<unsigned long long> mLost{0};
    std::atomic<unsigned long long> mFiltered{0};
    std::atomic<unsigned long long> mErrorFrames{0};
    std::atomic<unsigned long long> mHandlerExceptions{0};
    std::atomic<unsigned long long> mSent{0};
    std::atomic<unsigned long long> mSendRetries{0};
    std::atomic<unsigned long long> mSendFailures{0};
    std::atomic<unsigned long long> mUnconfirmed{0};
    std::atomic<unsigned long long> mDisconnections{0};
};

} // namespace tarn

#endif
