#include "SocketCandCore.h"

#include "CanSystem.h"
#include "LogSafely.h"
#include "SteadyLock.h"

#include <plexa_can/CanException.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <functional>
#include <new>
#include <system_error>
#include <utility>

namespace tarn
{

namespace
{

constexpr const char* LOGGER = "SocketCandDispatcher";

/// Most characters of a thread's name.
constexpr std::size_t THREAD_NAME_SIZE = 15;

constexpr int FIRST_BACK_OFF = 100; ///< milliseconds
constexpr int LONGEST_BACK_OFF = 5000;

/// Between two looks where the system fails to wait.
constexpr std::chrono::milliseconds FAILURE_WAIT(10);

/// For frames to be confirmed when the dispatcher goes.
constexpr std::chrono::milliseconds FAREWELL(1000);

/// How "tarn serve" begins to say that the bus did not take a frame.
constexpr const char* NOT_SENT = "not sent";

int Made(int event)
{
    if (event < 0)
        throw CanException("cannot open a bus over TCP: eventfd: " + ErrorText(errno) +
                               "; raise the limit of open files",
                           errno);
    return event;
}

int MillisecondsUntil(iTcpSystem::Clock::time_point end, iTcpSystem::Clock::time_point now)
{
    using std::chrono::milliseconds;
    if (end == iTcpSystem::Clock::time_point::max())
        return -1;
    const auto left = std::chrono::duration_cast<milliseconds>(end - now).count() + 1;
    return end <= now ? 0 : static_cast<int>(std::min<long long>(left, 60000));
}

bool MayWait()
{
    return errno == EINTR;
}

} // namespace

/// The right to send, which only one thread has at a time.
class SocketCandDispatcher::Core::Turn
{
public:
    Turn(Core& core, std::chrono::milliseconds patience) : mCore(core)
    {
        SteadyLock lock(core.mTurnMutex);
        mIsMine = core.mTurnEnded.wait_for(lock, patience, [&] { return !core.mIsSending; });
        core.mIsSending = core.mIsSending || mIsMine;
    }
    ~Turn()
    {
        if (!mIsMine)
            return;
        const SteadyLock lock(mCore.mTurnMutex);
        mCore.mIsSending = false;
        mCore.mTurnEnded.notify_one();
    }
    Turn(const Turn&) = delete;
    Turn& operator=(const Turn&) = delete;

    bool IsMine() const { return mIsMine; }

private:
    Core& mCore;
    bool mIsMine = false;
};

SocketCandDispatcher::Core::Core(iTcpSystem& system, SocketCandAddress address,
                                 const Options& options)
    : mSystem(system),
      mAddress(std::move(address)),
      mOptions(options),
      mName("the bus \"" + mAddress.bus + "\" at host " + mAddress.host + ", port " +
            mAddress.port),
      mWake(Made(system.Event())),
      mHandlers(LOGGER)
{
}

SocketCandDispatcher::Core::~Core()
{
    mLink.reset();
    mSystem.Close(mWake);
}

void SocketCandDispatcher::Core::Open()
{
    const std::string failure = mSystem.Resolve(mAddress.host, mAddress.port, mAddresses);
    if (!failure.empty() || mAddresses.empty())
        throw CanException("cannot open " + mName + ": finding the host: " +
                           (failure.empty() ? "it has no address" : failure) +
                           "; see whether its name is right, or give its address");
    mLink = Connect();
    StartThread();
}

SocketCandDispatcher::Core::Link SocketCandDispatcher::Core::Connect()
{
    return std::make_shared<SocketCandLink>(mSystem, mAddress, mAddresses, mOptions.connectTimeout,
                                            mWake);
}

SocketCandDispatcher::Core::Link SocketCandDispatcher::Core::CurrentLink()
{
    const SteadyLock lock(mLinkMutex);
    return mLink;
}

bool SocketCandDispatcher::Core::IsConnected()
{
    return CurrentLink() != nullptr;
}

std::string SocketCandDispatcher::Core::GetFailure()
{
    const SteadyLock lock(mLinkMutex);
    const bool isOver = mLink == nullptr && !mOptions.reconnect && !mClosed;
    return isOver ? mName + ": " + mWhyLost : "";
}

void SocketCandDispatcher::Core::Start(iCanMessageHandler* handler)
{
    const SteadyLock lock(mMutex);
    if (mHandlers.IsEmpty())
        ForgetWhatWaits();
    mHandlers.Add(handler);
}

void SocketCandDispatcher::Core::Stop(const iCanMessageHandler* handler)
{
    mHandlers.Remove(handler);
}

void SocketCandDispatcher::Core::Close()
{
    mHandlers.RemoveAll();
    const Link link = CurrentLink();
    if (link != nullptr && link->Unconfirmed() != 0) {
        const SteadyLock lock(mReadMutex);
        Settle(link, mSystem.Now() + FAREWELL);
    }
    mClosed = true;
    Wake();
    std::thread thread;
    {
        const SteadyLock lock(mMutex);
        thread.swap(mThread);
    }
    if (thread.get_id() == std::this_thread::get_id())
        thread.detach(); // it ends when the running handler returns
    else if (thread.joinable())
        thread.join();
    const SteadyLock lock(mLinkMutex);
    mLink.reset();
}

// The receive thread.

void SocketCandDispatcher::Core::StartThread()
{
    try {
        mThread = std::thread([self = shared_from_this()] { self->Run(); });
    } catch (const std::system_error& error) {
        throw CanException("cannot start the receive thread of " + mName + ": " + error.what() +
                               "; raise the limit of threads",
                           error.code().value());
    }
}

void SocketCandDispatcher::Core::Wake()
{
    mSystem.Signal(mWake); // one that is there already wakes as well
}

void SocketCandDispatcher::Core::Run()
{
    bool named = false;
    while (!mClosed) {
        try {
            if (!named)
                mSystem.SetThreadName(mAddress.bus.substr(0, THREAD_NAME_SIZE)); // for eyes only
            named = true;
            Work();
        } catch (const std::exception&) { // out of memory
            mSystem.Sleep(FAILURE_WAIT);
        }
    }
}

/// As long as the connection stays as it is.
void SocketCandDispatcher::Core::Work()
{
    const Link link = CurrentLink();
    if (link != nullptr)
        Serve(link);
    else if (mOptions.reconnect)
        Reconnect();
    else
        Await(nullptr, Clock::time_point::max());
}

/// Until the connection is lost or the dispatcher goes.
void SocketCandDispatcher::Core::Serve(const Link& link)
{
    const auto interval = std::chrono::milliseconds(mOptions.keepAlive);
    mBytesAtLook = 0;
    mNextLook = mOptions.keepAlive == 0 ? Clock::time_point::max() : mSystem.Now() + interval;
    mBackOff = 0;
    ReceiveBatch(link); // what came with the answers
    while (!mClosed && CurrentLink() == link) {
        if (Await(link.get(), mNextLook))
            ReceiveBatch(link);
        if (mSystem.Now() < mNextLook)
            continue;
        KeepAlive(link);
        mNextLook = mSystem.Now() + interval;
    }
}

/// Waits for a connection to be readable or broken, at most until a time, or to be woken.
bool SocketCandDispatcher::Core::Await(const SocketCandLink* link, Clock::time_point until)
{
    const int descriptor = link != nullptr ? link->Descriptor() : -1;
    std::array<pollfd, 2> descriptors = {{{mWake, POLLIN, 0}, {descriptor, POLLIN, 0}}};
    const int timeout = MillisecondsUntil(until, mSystem.Now());
    const int count = mSystem.Poll(descriptors.data(), descriptors.size(), timeout);
    if (count < 0 && MayWait())
        return false;
    if (count < 0) { // where the system cannot wait, it is looked at now and then
        mSystem.Sleep(FAILURE_WAIT);
        return link != nullptr;
    }
    if (descriptors[0].revents != 0)
        mSystem.TakeSignal(mWake);
    return descriptors[1].revents != 0;
}

/// For a time, or until the dispatcher goes.
void SocketCandDispatcher::Core::Pause(std::chrono::milliseconds time)
{
    const Clock::time_point end = mSystem.Now() + time;
    while (!mClosed && mSystem.Now() < end)
        Await(nullptr, end);
}

void SocketCandDispatcher::Core::Reconnect()
{
    mBackOff = std::min(std::max(2 * mBackOff, FIRST_BACK_OFF), LONGEST_BACK_OFF);
    Pause(std::chrono::milliseconds(mBackOff));
    if (mClosed)
        return;
    try {
        const Link link = Connect();
        LogSafely(LOGGER, Poco::Message::PRIO_WARNING, "Connected again to " + mName);
        const SteadyLock lock(mLinkMutex);
        mLink = link;
    } catch (const CanException& failure) {
        const SteadyLock lock(mLinkMutex);
        mWhyLost = failure.message();
        mWhyLostError = failure.code();
    }
}

void SocketCandDispatcher::Core::ReceiveBatch(const Link& link)
{
    unsigned int generation = 0;
    int error = 0;
    mBatch.clear();
    {
        const SteadyLock lock(mReadMutex);
        generation = mHandlers.Generation();
        mTaken = &mBatch;
        error = link->Receive([this](const SocketCandElement& element) { Take(element); });
        mTaken = nullptr;
    }
    for (const CanMessage& frame : mBatch)
        Deliver(frame, generation);
    if (error != 0)
        Lose(link, "the server closed it, or the way to it broke", error);
}

void SocketCandDispatcher::Core::Take(const SocketCandElement& element)
{
    switch (element.kind) {
    case SocketCandElement::KIND_FRAME:
        TakeFrame(element.frame);
        break;
    case SocketCandElement::KIND_ERROR:
        NoteComplaint(element.text.data());
        break;
    case SocketCandElement::KIND_MALFORMED:
        ++mReceived;
        ++mFiltered;
        break;
    default: // such as < fdframe ... >, and statistics
        if (std::strcmp(element.text.data(), "fdframe") == 0) {
            ++mReceived;
            ++mFiltered;
        }
        break;
    }
}

void SocketCandDispatcher::Core::TakeFrame(const CanMessage& frame)
{
    try {
        if (mTaken != nullptr)
            mTaken->push_back(frame);
        else
            ++mUnheard;
    } catch (const std::bad_alloc&) {
        ++mLost;
        return;
    }
    ++mReceived;
    if (frame.HasError())
        ++mErrorFrames;
}

void SocketCandDispatcher::Core::NoteComplaint(const char* text)
{
    if (std::strncmp(text, NOT_SENT, std::strlen(NOT_SENT)) == 0)
        ++mUnconfirmed;
    try {
        LogComplaint(text);
    } catch (const std::bad_alloc&) { // no memory to say it
    }
}

void SocketCandDispatcher::Core::LogComplaint(const std::string& text)
{
    const auto now = mSystem.Now();
    if (text == mLastComplaint && now - mComplainedAt < std::chrono::seconds(1))
        return;
    mLastComplaint = text;
    mComplainedAt = now;
    LogSafely(LOGGER, Poco::Message::PRIO_WARNING, "The server of " + mName + " says: " + text);
}

void SocketCandDispatcher::Core::Deliver(const CanMessage& frame, unsigned int generation)
{
    ++mDelivered; // ahead of the call: whoever has stopped its handler finds all it got counted
    const FrameHandlers::Outcome outcome = mHandlers.Deliver(frame, generation);
    mHandlerExceptions += outcome.exceptions;
    if (outcome.calls != 0)
        return;
    --mDelivered;
    ++mUnheard;
}

/// Once in each interval: asks where nothing was heard, or where nobody has said that what was sent
/// has come; gives up where an answer is missing.
void SocketCandDispatcher::Core::KeepAlive(const Link& link)
{
    const unsigned long long bytes = link->BytesReceived();
    const bool silent = bytes == mBytesAtLook;
    const bool waiting = link->EchoesSent() != link->EchoesSeen();
    mBytesAtLook = bytes;
    if (silent && waiting)
        return Lose(link, "no answer to < echo >", ETIMEDOUT);
    if (!waiting && (silent || link->Unconfirmed() != 0))
        AskForEcho(link, mSystem.Now());
}

// What came before the first handler is for nobody.

void SocketCandDispatcher::Core::ForgetWhatWaits()
{
    const SteadyLock lock(mReadMutex);
    mHandlers.BeginGeneration();
    const Link link = CurrentLink();
    if (link != nullptr)
        Settle(link, mSystem.Now() + std::chrono::milliseconds(mOptions.connectTimeout));
}

/// Has the server return an echo, and drops what comes ahead of it. The server has dealt with all
/// that was sent, then. Needs the read mutex.
void SocketCandDispatcher::Core::Settle(const Link& link, Clock::time_point end)
{
    if (!AskForEcho(link, end))
        return;
    const unsigned long long wanted = link->EchoesSent();
    while (link->EchoesSeen() < wanted) {
        if (mSystem.Now() >= end || !AwaitInput(*link, end))
            return Lose(link, "no answer to < echo >", ETIMEDOUT);
        const int error =
            link->Receive([this](const SocketCandElement& element) { Take(element); });
        if (error != 0)
            return Lose(link, "the server closed it, or the way to it broke", error);
    }
}

bool SocketCandDispatcher::Core::AwaitInput(const SocketCandLink& link, Clock::time_point end)
{
    for (;;) {
        pollfd descriptor = {link.Descriptor(), POLLIN, 0};
        const int timeout = MillisecondsUntil(end, mSystem.Now());
        const int count = mSystem.Poll(&descriptor, 1, timeout);
        if (count > 0)
            return true;
        if (timeout == 0 || (count < 0 && !MayWait()))
            return false;
    }
}

// Sending.

std::function<bool()> SocketCandDispatcher::Core::RoomAwaiter(const Link& link,
                                                              Clock::time_point end)
{
    return [this, link, end] {
        pollfd descriptor = {link->Descriptor(), POLLOUT, 0};
        const int timeout = MillisecondsUntil(end, mSystem.Now());
        return timeout > 0 && (mSystem.Poll(&descriptor, 1, timeout) >= 0 || MayWait());
    };
}

void SocketCandDispatcher::Core::Send(const CanMessage& frame)
{
    try {
        Transmit(frame);
    } catch (const std::exception&) { // out of memory too, which strikes before a byte has gone
        ++mSendFailures;
        throw;
    }
    ++mSent;
}

void SocketCandDispatcher::Core::Transmit(const CanMessage& frame)
{
    const auto patience = std::chrono::milliseconds(mOptions.sendTimeout);
    const auto end = mSystem.Now() + patience;
    const Link link = CurrentLink();
    if (link == nullptr)
        RefuseToSend("not connected", 0);
    std::string text;
    AppendSocketCandSend(frame, text);
    const Turn turn(*this, patience);
    bool counted = false;
    const auto await = RoomAwaiter(link, end);
    const int error = !turn.IsMine() ? EAGAIN : link->Send(text, 1, [&] {
        mSendRetries += counted ? 0 : 1;
        counted = true;
        return await();
    });
    if (error == EAGAIN)
        RefuseToSend("the connection was full for " + std::to_string(mOptions.sendTimeout) + " ms",
                     EAGAIN);
    if (error != 0) {
        Lose(link, "sending failed", error); // what was begun is never ended
        RefuseToSend("the connection broke", error);
    }
}

/// False when the connection is of no use.
bool SocketCandDispatcher::Core::AskForEcho(const Link& link, Clock::time_point end)
{
    const auto now = mSystem.Now();
    const Turn turn(*this, std::chrono::milliseconds(MillisecondsUntil(end, now)));
    const int error = turn.IsMine() ? link->SendEcho(RoomAwaiter(link, end)) : EAGAIN;
    if (error == 0 || (error == EAGAIN && end <= now))
        return error == 0;
    Lose(link, "sending failed", error);
    return false;
}

void SocketCandDispatcher::Core::RefuseToSend(const std::string& reason, int error)
{
    std::string text = "a frame was not sent on " + mName + ": " + reason;
    if (error != 0)
        text += ": " + ErrorText(error);
    const SteadyLock lock(mLinkMutex);
    if (mLink == nullptr && !mWhyLost.empty())
        text += "; " + mWhyLost;
    throw CanException(text + (mLink == nullptr && !mOptions.reconnect
                                   ? "; open the bus again, or name it with reconnect=1"
                                   : "; try again"),
                       error != 0 ? error : mWhyLostError);
}

void SocketCandDispatcher::Core::Lose(const Link& link, const std::string& reason, int error)
{
    const std::string text = "the connection was lost: " + reason + ": " + ErrorText(error);
    {
        const SteadyLock lock(mLinkMutex);
        if (mLink != link)
            return;
        mWhyLost = text;
        mWhyLostError = error;
        mLink.reset();
    }
    link->Abort(); // wakes whoever waits for it
    const unsigned long long unconfirmed = link->Unconfirmed();
    mUnconfirmed += unconfirmed;
    ++mDisconnections;
    Wake();
    LogSafely(LOGGER, Poco::Message::PRIO_ERROR,
              "To " + mName + " " + text + "; " + std::to_string(unconfirmed) +
                  " frames that were sent may not have arrived");
}

// The ledger.

CanBusCounters SocketCandDispatcher::Core::GetCounters()
{
    CanBusCounters counters;
    counters.received = mReceived;
    counters.delivered = mDelivered;
    counters.unheard = mUnheard;
    counters.filtered = mFiltered;
    counters.errorFrames = mErrorFrames;
    counters.lost = mLost;
    counters.handlerExceptions = mHandlerExceptions;
    counters.sent = mSent;
    counters.sendRetries = mSendRetries;
    counters.sendFailures = mSendFailures;
    counters.unconfirmed = mUnconfirmed;
    counters.disconnections = mDisconnections;
    return counters;
}

} // namespace tarn
