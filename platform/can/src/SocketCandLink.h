#ifndef PLEXA_CAN_SRC_SOCKET_CAND_LINK_H
#define PLEXA_CAN_SRC_SOCKET_CAND_LINK_H

#include "TcpSystem.h"

#include <plexa_can/SocketCandDispatcher.h>
#include <plexa_can/SocketCandText.h>

#include <atomic>
#include <deque>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

namespace tarn
{

/// One connection to a server, from the moment at which the bus is open and all its frames come.
///
/// Receive() is for one thread at a time, and so are Send() and SendEcho(); the two sides may be
/// used at once.
class SocketCandLink
{
public:
    using Clock = iTcpSystem::Clock;
    using Taker = std::function<void(const SocketCandElement&)>;

    /// Connects to the first of the addresses that answers, and opens the bus.
    /// @param wake a descriptor that ends the attempt when it becomes readable
    /// @throws CanException
    SocketCandLink(iTcpSystem& system, const SocketCandAddress& goal,
                   const std::vector<TcpAddress>& addresses, unsigned int timeout, int wake);
    ~SocketCandLink();
    SocketCandLink(const SocketCandLink&) = delete;
    SocketCandLink& operator=(const SocketCandLink&) = delete;

    int Descriptor() const { return mDescriptor; }

    /// Takes what has come, at most a few hundred frames, without waiting. Echoes are taken note
    /// of and not handed on.
    /// @return 0, or the error number of a connection that is broken; ECONNRESET also for one that
    ///     the server closed
    int Receive(const Taker& take);

    /// Sends all of a text, and counts it as frames many frames.
    /// @param isFull called when the connection takes no more; false: it is not waited for longer
    /// @return 0, or an error number; EAGAIN when nothing was sent because there was no room. Every
    ///     other failure leaves the connection unfit for use.
    int Send(const std::string& text, unsigned int frames, const std::function<bool()>& isFull);

    /// Asks for an echo.
    int SendEcho(const std::function<bool()>& isFull);

    unsigned long long EchoesSent() const { return mEchoesSent; }
    unsigned long long EchoesSeen() const { return mEchoesSeen; }
    unsigned long long BytesReceived() const { return mBytesReceived; }

    /// Frames that were sent, and after which no echo has come yet.
    unsigned long long Unconfirmed() const;

    /// Ends the connection at once; what waits in it is not sent.
    void Abort() { mSystem.Abort(mDescriptor); }

private:
    void Connect(const std::vector<TcpAddress>& addresses, Clock::time_point end);
    bool TryAddress(const TcpAddress& address, Clock::time_point end);
    void SetOptions() const;
    void OpenBus(Clock::time_point end);
    void Say(const std::string& text, const char* step);
    void Expect(SocketCandElement::tKind kind, const char* step, Clock::time_point end);
    void AwaitInput(const char* step, Clock::time_point end);
    bool Await(short events, Clock::time_point end);
    void TakeEcho();
    [[noreturn]] void Refuse(const std::string& step, int error, const std::string& remedy) const;

    iTcpSystem& mSystem;
    const SocketCandAddress& mGoal;
    const int mWake;
    int mDescriptor = -1;
    int mLastError = 0; ///< of the last address that was tried
    SocketCandReader mReader;
    std::vector<char> mBuffer;
    const char* mAt = nullptr; ///< what of the buffer was not looked at yet
    const char* mEnd = nullptr;

    std::atomic<unsigned long long> mBytesReceived{0};
    std::atomic<unsigned long long> mEchoesSent{0};
    std::atomic<unsigned long long> mEchoesSeen{0};

    mutable std::mutex mMutex; ///< guards what follows
    unsigned long long mFramesSent = 0;
    unsigned long long mFramesConfirmed = 0;
    std::deque<unsigned long long> mEchoMarks; ///< frames sent ahead of each echo under way
};

} // namespace tarn

#endif
