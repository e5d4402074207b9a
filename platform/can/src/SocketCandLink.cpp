#include "SocketCandLink.h"

#include "CanSystem.h"
#include "SteadyLock.h"

#include <plexa_can/CanException.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <netinet/in.h>
#include <netinet/tcp.h>

namespace tarn
{

namespace
{

constexpr std::size_t BUFFER_SIZE = 16384;

/// What waits in the connection is old when it arrives, so it is not much.
constexpr int SEND_BUFFER_BYTES = 65536;

int MillisecondsUntil(iTcpSystem::Clock::time_point end, iTcpSystem::Clock::time_point now)
{
    using std::chrono::milliseconds;
    const auto left = std::chrono::duration_cast<milliseconds>(end - now).count() + 1;
    return end <= now ? 0 : static_cast<int>(std::min<long long>(left, 60000));
}

} // namespace

SocketCandLink::SocketCandLink(iTcpSystem& system, const SocketCandAddress& goal,
                               const std::vector<TcpAddress>& addresses, unsigned int timeout,
                               int wake)
    : mSystem(system),
      mGoal(goal),
      mWake(wake),
      mBuffer(BUFFER_SIZE)
{
    const auto end = mSystem.Now() + std::chrono::milliseconds(timeout);
    try {
        Connect(addresses, end);
        SetOptions();
        OpenBus(end);
    } catch (...) {
        if (mDescriptor >= 0)
            mSystem.Close(mDescriptor);
        throw;
    }
}

SocketCandLink::~SocketCandLink()
{
    mSystem.Close(mDescriptor);
}

void SocketCandLink::Refuse(const std::string& step, int error, const std::string& remedy) const
{
    std::string text = "cannot open the bus \"" + mGoal.bus + "\" at host " + mGoal.host +
                       ", port " + mGoal.port + ": " + step;
    if (error != 0)
        text += ": " + ErrorText(error);
    throw CanException(text + "; " + remedy, error);
}

// Making the connection.

void SocketCandLink::Connect(const std::vector<TcpAddress>& addresses, Clock::time_point end)
{
    for (const TcpAddress& address : addresses) {
        if (TryAddress(address, end))
            return;
        if (mDescriptor >= 0)
            mSystem.Close(mDescriptor);
        mDescriptor = -1;
    }
    Refuse("connect", mLastError,
           "see whether \"tarn serve\" or socketcand runs there and a firewall lets it through");
}

bool SocketCandLink::TryAddress(const TcpAddress& address, Clock::time_point end)
{
    mDescriptor = mSystem.Socket(address.address.ss_family);
    if (mDescriptor < 0) {
        mLastError = errno;
        return false;
    }
    if (mSystem.Connect(mDescriptor, address) == 0)
        return true;
    mLastError = errno;
    if (mLastError != EINPROGRESS && mLastError != EINTR)
        return false;
    mLastError = Await(POLLOUT, end) ? mSystem.PendingError(mDescriptor) : ETIMEDOUT;
    return mLastError == 0;
}

/// Waits for the descriptor; false when the time is up or the owner goes.
bool SocketCandLink::Await(short events, Clock::time_point end)
{
    for (;;) {
        std::array<pollfd, 2> descriptors = {{{mDescriptor, events, 0}, {mWake, POLLIN, 0}}};
        const int timeout = MillisecondsUntil(end, mSystem.Now());
        const int count = mSystem.Poll(descriptors.data(), descriptors.size(), timeout);
        if (descriptors[1].revents != 0)
            return false;
        if (count > 0)
            return true;
        if (timeout == 0 || (count < 0 && errno != EINTR))
            return false;
    }
}

/// None of these is needed for the bus to work, so a failure changes nothing.
void SocketCandLink::SetOptions() const
{
    mSystem.SetOption(mDescriptor, IPPROTO_TCP, TCP_NODELAY, 1);
    mSystem.SetOption(mDescriptor, SOL_SOCKET, SO_KEEPALIVE, 1);
    mSystem.SetOption(mDescriptor, SOL_SOCKET, SO_SNDBUF, SEND_BUFFER_BYTES);
}

void SocketCandLink::OpenBus(Clock::time_point end)
{
    Expect(SocketCandElement::KIND_HI, "waiting for its greeting", end);
    Say("< open " + mGoal.bus + " >", "asking for the bus");
    Expect(SocketCandElement::KIND_OK, "asking for the bus", end);
    Say("< rawmode >", "asking for all frames");
    Expect(SocketCandElement::KIND_OK, "asking for all frames", end);
}

void SocketCandLink::Say(const std::string& text, const char* step)
{
    const int error = Send(text, 0, [] { return false; });
    if (error != 0)
        Refuse(step, error, "see what the server says of it");
}

/// Frames that come before the answer are for nobody.
void SocketCandLink::Expect(SocketCandElement::tKind kind, const char* step, Clock::time_point end)
{
    constexpr const char* OTHER_SERVER = "see whether host and port are those of tarn serve or "
                                         "socketcand";
    SocketCandElement element;
    do {
        while (!mReader.Next(mAt, mEnd, element))
            AwaitInput(step, end);
        if (element.kind == SocketCandElement::KIND_ERROR)
            Refuse(std::string(step) + ": the server says \"" + element.text.data() + '"', 0,
                   "ask it for what it offers");
        if (element.kind == SocketCandElement::KIND_MALFORMED)
            Refuse(std::string(step) + ": what came is not the protocol of socketcand", 0,
                   OTHER_SERVER);
    } while (element.kind == SocketCandElement::KIND_FRAME);
    if (element.kind != kind)
        Refuse(std::string(step) + ": the server says something else", 0, OTHER_SERVER);
}

void SocketCandLink::AwaitInput(const char* step, Clock::time_point end)
{
    if (mSystem.Now() >= end || !Await(POLLIN, end))
        Refuse(step, ETIMEDOUT, "see whether the server is well, or raise the option connect");
    const ssize_t size = mSystem.Receive(mDescriptor, mBuffer.data(), mBuffer.size());
    if (size == 0 || (size < 0 && errno != EAGAIN && errno != EINTR))
        Refuse(step, size == 0 ? ECONNRESET : errno, "see what the server says of it");
    mAt = mBuffer.data();
    mEnd = mAt + std::max<ssize_t>(size, 0);
}

// Receiving.

int SocketCandLink::Receive(const Taker& take)
{
    int error = 0;
    if (mAt == mEnd) {
        const ssize_t size = mSystem.Receive(mDescriptor, mBuffer.data(), mBuffer.size());
        if (size == 0)
            return ECONNRESET;
        if (size < 0)
            error = errno == EAGAIN || errno == EINTR ? 0 : errno;
        mAt = mBuffer.data();
        mEnd = mAt + std::max<ssize_t>(size, 0);
        mBytesReceived += static_cast<unsigned long long>(mEnd - mAt);
    }
    SocketCandElement element;
    while (mReader.Next(mAt, mEnd, element)) {
        if (element.kind == SocketCandElement::KIND_ECHO)
            TakeEcho();
        else
            take(element);
    }
    return error;
}

void SocketCandLink::TakeEcho()
{
    const SteadyLock lock(mMutex);
    if (mEchoMarks.empty())
        return; // nobody has asked for it
    mFramesConfirmed = mEchoMarks.front();
    mEchoMarks.pop_front();
    ++mEchoesSeen;
}

unsigned long long SocketCandLink::Unconfirmed() const
{
    const SteadyLock lock(mMutex);
    return mFramesSent - mFramesConfirmed;
}

// Sending.

int SocketCandLink::Send(const std::string& text, unsigned int frames,
                         const std::function<bool()>& isFull)
{
    std::size_t done = 0;
    while (done < text.size()) {
        const ssize_t size = mSystem.Send(mDescriptor, text.data() + done, text.size() - done);
        const int error = size < 0 ? errno : 0;
        if (error != 0 && error != EAGAIN && error != EINTR)
            return error;
        if (error == EAGAIN && !isFull())
            return done == 0 ? EAGAIN : ETIMEDOUT;
        done += static_cast<std::size_t>(std::max<ssize_t>(size, 0));
    }
    const SteadyLock lock(mMutex);
    mFramesSent += frames;
    return 0;
}

int SocketCandLink::SendEcho(const std::function<bool()>& isFull)
{
    {
        const SteadyLock lock(mMutex);
        mEchoMarks.push_back(mFramesSent);
    }
    const int error = Send("< echo >", 0, isFull);
    if (error == 0) {
        ++mEchoesSent;
        return 0;
    }
    const SteadyLock lock(mMutex);
    mEchoMarks.pop_back();
    return error;
}

} // namespace tarn
