#include "SocketCanCore.h"

#include <plexa_can/CanException.h>

#include <Poco/Logger.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <linux/can/error.h>
#include <pthread.h>
#include <sys/eventfd.h>
#include <system_error>
#include <unistd.h>

namespace tarn
{

namespace
{

constexpr const char* LOGGER = "SocketCanDispatcher";

/// Between two looks at a full transmit queue: about what two frames take at 1 Mbit/s.
constexpr std::chrono::microseconds QUEUE_WAIT(250);

/// CAN_ERR_CRTL_ACTIVE, which headers before Linux 4.4 lack.
constexpr unsigned char CONTROLLER_ACTIVE = 0x40;

int MakeWake(const std::string& interface)
{
    const int wake = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (wake < 0)
        throw CanException("cannot open the CAN interface \"" + interface + "\": eventfd: " +
                               ErrorText(errno) + "; raise the limit of open files",
                           errno);
    return wake;
}

} // namespace

SocketCanDispatcher::Core::Core(iCanSystem& system, const std::string& interface,
                                const Options& options)
    : mSystem(system),
      mInterface(interface),
      mOptions(options),
      mSocket(system, interface, options),
      mLinks(system),
      mWake(MakeWake(interface)),
      mHandlers(LOGGER, mHandlerExceptions)
{
}

SocketCanDispatcher::Core::~Core()
{
    ::close(mWake);
}

void SocketCanDispatcher::Core::Start(iCanMessageHandler* handler)
{
    const std::lock_guard<std::mutex> lock(mMutex);
    StartThread();
    const bool first = mHandlers.IsEmpty();
    mHandlers.Add(handler);
    if (first)
        mSocket.Listen(true);
}

void SocketCanDispatcher::Core::Stop(const iCanMessageHandler* handler)
{
    mHandlers.Remove(handler);
    const std::lock_guard<std::mutex> lock(mMutex);
    if (mHandlers.IsEmpty())
        mSocket.Listen(false);
}

void SocketCanDispatcher::Core::Close()
{
    mHandlers.RemoveAll();
    {
        const std::lock_guard<std::recursive_mutex> lock(mStateMutex);
        mListeners.clear();
    }
    mClosed = true;
    Wake();
    std::thread thread;
    {
        const std::lock_guard<std::mutex> lock(mMutex);
        thread.swap(mThread);
    }
    if (thread.get_id() == std::this_thread::get_id())
        thread.detach(); // it ends when the running handler returns
    else if (thread.joinable())
        thread.join();
}

// The receive thread.

void SocketCanDispatcher::Core::StartThread()
{
    if (mThread.joinable())
        return;
    try {
        mThread = std::thread([self = shared_from_this()] { self->Run(); });
    } catch (const std::system_error& error) {
        throw CanException("cannot start the receive thread of the CAN interface \"" + mInterface +
                               "\": " + error.what() + "; raise the limit of threads",
                           error.code().value());
    }
}

void SocketCanDispatcher::Core::SetUpThread()
{
    ::pthread_setname_np(::pthread_self(), mInterface.c_str());
    if (mOptions.realTimePriority == 0)
        return;
    const int error = mSystem.SetRealTimePriority(static_cast<int>(mOptions.realTimePriority));
    mIsRealTime = error == 0;
    if (error != 0)
        Poco::Logger::get(LOGGER).warning(
            "The receive thread of " + mInterface + " has no real-time priority " +
            std::to_string(mOptions.realTimePriority) + ": " + ErrorText(error) +
            "; it needs CAP_SYS_NICE or a higher RLIMIT_RTPRIO");
}

void SocketCanDispatcher::Core::Wake()
{
    const unsigned long long one = 1;
    const bool woken = ::write(mWake, &one, sizeof one) == sizeof one;
    static_cast<void>(woken); // it fails only while a wake-up is pending already
}

void SocketCanDispatcher::Core::Run()
{
    SetUpThread();
    LookAtLink();
    std::array<pollfd, 3> events = {};
    events[0] = {mSocket.Descriptor(), POLLIN, 0};
    events[1] = {mLinks.Descriptor(), POLLIN, 0};
    events[2] = {mWake, POLLIN, 0};
    while (!mClosed) {
        if (mSystem.Poll(events.data(), events.size(), -1) < 0)
            continue; // EINTR; anything else shows at the next read
        if (events[1].revents != 0) {
            mLinks.Drain();
            LookAtLink();
        }
        if (events[0].revents != 0)
            ReceiveBatch();
    }
}

void SocketCanDispatcher::Core::ReceiveBatch()
{
    unsigned long long oddities = 0;
    const int error =
        mSocket.Receive([this](const CanMessage& frame) { Deliver(frame); }, oddities);
    mReceived += oddities;
    mFiltered += oddities;
    if (error == 0)
        NoteDrops(mSocket.DropsAtLastBatch());
    else if (error == ENETDOWN || error == ENODEV)
        LookAtLink();
}

void SocketCanDispatcher::Core::Deliver(const CanMessage& frame)
{
    ++mReceived;
    if (frame.HasError())
        NoteErrorFrame(frame);
    ++(mHandlers.Deliver(frame) ? mDelivered : mUnheard);
}

void SocketCanDispatcher::Core::NoteDrops(unsigned int total)
{
    const std::lock_guard<std::mutex> lock(mDropMutex);
    // The count wraps at 2^32, and one that came with an older frame may be behind the last.
    const unsigned int more = total - mLastDrops;
    if (static_cast<int>(more) <= 0)
        return;
    mDropped += more;
    mLastDrops = total;
}

// The state of the bus.

void SocketCanDispatcher::Core::NoteErrorFrame(const CanMessage& frame)
{
    ++mErrorFrames;
    const unsigned int errorClass = frame.GetHeader();
    const unsigned int controller = frame.GetDataSize() > 1 ? frame.GetBytes()[1] : 0;
    if ((errorClass & CAN_ERR_BUSOFF) != 0)
        return SetState(CAN_BUS_OFF);
    if ((errorClass & CAN_ERR_RESTARTED) != 0)
        return SetState(CAN_BUS_ERROR_ACTIVE);
    if ((errorClass & CAN_ERR_CRTL) == 0)
        return;
    if ((controller & (CAN_ERR_CRTL_RX_PASSIVE | CAN_ERR_CRTL_TX_PASSIVE)) != 0)
        SetState(CAN_BUS_ERROR_PASSIVE);
    else if ((controller & (CAN_ERR_CRTL_RX_WARNING | CAN_ERR_CRTL_TX_WARNING)) != 0)
        SetState(CAN_BUS_ERROR_WARNING);
    else if ((controller & CONTROLLER_ACTIVE) != 0)
        SetState(CAN_BUS_ERROR_ACTIVE);
}

void SocketCanDispatcher::Core::LookAtLink()
{
    const std::lock_guard<std::recursive_mutex> lock(mStateMutex);
    const LinkMonitor::Link link = mLinks.Look(mInterface);
    if (link.index == 0)
        return SetState(CAN_BUS_REMOVED);
    if (link.index != mSocket.InterfaceIndex() && !mSocket.Rebind(link.index))
        return SetState(CAN_BUS_REMOVED);
    if (!link.up)
        return SetState(CAN_BUS_DOWN);
    if (mState == CAN_BUS_DOWN || mState == CAN_BUS_REMOVED)
        SetState(CAN_BUS_ERROR_ACTIVE);
}

void SocketCanDispatcher::Core::SetState(tCanBusState state)
{
    const std::lock_guard<std::recursive_mutex> lock(mStateMutex);
    if (mState.exchange(state) != state)
        Announce(state);
}

void SocketCanDispatcher::Core::Announce(tCanBusState state)
{
    const auto listeners = mListeners; // a listener may remove itself and others
    for (iCanBusStateListener* const listener : listeners) {
        if (std::find(mListeners.begin(), mListeners.end(), listener) == mListeners.end())
            continue;
        try {
            listener->OnBusState(state);
        } catch (const std::exception& exception) {
            Poco::Logger::get(LOGGER).error(std::string("A state listener threw: ") +
                                            exception.what());
        } catch (...) {
            Poco::Logger::get(LOGGER).error("A state listener threw");
        }
    }
}

tCanBusState SocketCanDispatcher::Core::GetBusState()
{
    const std::lock_guard<std::mutex> lock(mMutex);
    if (!mThread.joinable())
        LookAtLink();
    return mState;
}

void SocketCanDispatcher::Core::AddStateListener(iCanBusStateListener* listener)
{
    {
        const std::lock_guard<std::recursive_mutex> lock(mStateMutex);
        mListeners.push_back(listener);
    }
    const std::lock_guard<std::mutex> lock(mMutex);
    StartThread();
}

void SocketCanDispatcher::Core::RemoveStateListener(const iCanBusStateListener* listener)
{
    const std::lock_guard<std::recursive_mutex> lock(mStateMutex);
    mListeners.erase(std::remove(mListeners.begin(), mListeners.end(), listener), mListeners.end());
}

// Sending.

void SocketCanDispatcher::Core::Send(const CanMessage& frame)
{
    const auto since = mSystem.Now();
    int error = mSocket.Send(frame);
    // poll() does not tell of a place in the interface's queue, so there is nothing to wait for but
    // time; EAGAIN is the socket's own buffer, full of frames that wait for that queue.
    while (error == ENOBUFS || error == EAGAIN) {
        if (!AwaitPlaceInQueue(since))
            break;
        error = mSocket.Send(frame);
    }
    if (error != 0)
        RefuseToSend(error, since);
    ++mSent;
}

bool SocketCanDispatcher::Core::AwaitPlaceInQueue(iCanSystem::Clock::time_point since)
{
    if (mSystem.Now() - since >= std::chrono::milliseconds(mOptions.sendTimeout))
        return false;
    ++mSendRetries;
    mSystem.Sleep(QUEUE_WAIT);
    return true;
}

void SocketCanDispatcher::Core::RefuseToSend(int error, iCanSystem::Clock::time_point since)
{
    ++mSendFailures;
    using std::chrono::milliseconds;
    const auto waited = std::chrono::duration_cast<milliseconds>(mSystem.Now() - since).count();
    throw CanException("a frame was not sent on the CAN interface \"" + mInterface +
                           "\": " + ErrorText(error) + ", after " + std::to_string(waited) + " ms",
                       error);
}

// The ledger.

CanBusCounters SocketCanDispatcher::Core::GetCounters()
{
    unsigned int drops = 0;
    if (mSocket.AskForDrops(drops))
        NoteDrops(drops);
    CanBusCounters counters;
    counters.received = mReceived;
    counters.delivered = mDelivered;
    counters.unheard = mUnheard;
    counters.filtered = mFiltered;
    counters.errorFrames = mErrorFrames;
    counters.handlerExceptions = mHandlerExceptions;
    counters.sent = mSent;
    counters.sendRetries = mSendRetries;
    counters.sendFailures = mSendFailures;
    const std::lock_guard<std::mutex> lock(mDropMutex);
    counters.droppedByKernel = mDropped;
    return counters;
}

} // namespace tarn
