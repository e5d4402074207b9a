#include "SocketCanCore.h"

#include "ControllerState.h"
#include "LogSafely.h"
#include "SteadyLock.h"

#include <plexa_can/CanException.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cxxabi.h>
#include <system_error>

namespace tarn
{

namespace
{

constexpr const char* LOGGER = "SocketCanDispatcher";

/// Between two looks at a full transmit queue: about what two frames take at 1 Mbit/s.
constexpr std::chrono::microseconds QUEUE_WAIT(250);

/// Between two looks where the system fails to wait for frames.
constexpr std::chrono::milliseconds FAILURE_WAIT(10);

int Opened(int fd, const std::string& interface, const char* call)
{
    if (fd < 0)
        throw CanException("cannot open the CAN interface \"" + interface + "\": " + call + ": " +
                               ErrorText(errno) + "; raise the limit of open files",
                           errno);
    return fd;
}

} // namespace

SocketCanDispatcher::Core::Core(iCanSystem& system, const std::string& interface,
                                const Options& options)
    : mSystem(system),
      mInterface(interface),
      mOptions(options),
      mSocket(system, interface, options),
      mLinks(system),
      mWake(system, Opened(system.Event(), interface, "eventfd")),
      mWaitSet(system, Opened(system.WaitSet(), interface, "epoll_create1")),
      mHandlers(LOGGER)
{
    Watch(mSocket.Descriptor());
    Watch(mLinks.Descriptor());
    Watch(mWake.Get());
    LookAtLink();
}

void SocketCanDispatcher::Core::Watch(int fd)
{
    Opened(mSystem.Watch(mWaitSet.Get(), fd), mInterface, "epoll_ctl");
}

void SocketCanDispatcher::Core::Start(iCanMessageHandler* handler)
{
    const SteadyLock lock(mMutex);
    StartThread();
    if (!mHandlers.IsEmpty())
        return mHandlers.Add(handler);
    ForgetWhatWaits();
    mSocket.Listen(true); // ahead of the handler: where it fails there is none, as before
    mHandlers.Add(handler);
    Wake(); // error frames may have been missed, so the controller is looked at again
}

void SocketCanDispatcher::Core::Stop(const iCanMessageHandler* handler)
{
    mHandlers.Remove(handler);
    const SteadyLock lock(mMutex);
    if (mHandlers.IsEmpty())
        mSocket.Listen(false);
}

void SocketCanDispatcher::Core::Close()
{
    mHandlers.RemoveAll();
    {
        const SteadyRecursiveLock lock(mStateMutex);
        mListeners.clear();
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
    mSystem.SetThreadName(mInterface); // for eyes only: a failure changes nothing
    if (mOptions.realTimePriority == 0)
        return;
    const int error = mSystem.SetRealTimePriority(static_cast<int>(mOptions.realTimePriority));
    mIsRealTime = error == 0;
    if (error != 0)
        LogSafely(LOGGER, Poco::Message::PRIO_WARNING,
                  "The receive thread of " + mInterface + " has no real-time priority " +
                      std::to_string(mOptions.realTimePriority) + ": " + ErrorText(error) +
                      "; it needs CAP_SYS_NICE or a higher RLIMIT_RTPRIO");
}

void SocketCanDispatcher::Core::Wake()
{
    // EAGAIN: so many wake-ups are pending already.
    while (mSystem.Signal(mWake.Get()) != 0 && errno != EAGAIN)
        mSystem.Sleep(QUEUE_WAIT);
}

void SocketCanDispatcher::Core::Run()
{
    const Events all = {true, true, true};
    bool isSetUp = false;
    bool lookAtAll = true;
    while (!mClosed) {
        try {
            if (!isSetUp)
                SetUpThread();
            isSetUp = true;
            Attend(lookAtAll ? all : AwaitEvents());
            lookAtAll = false;
        } catch (const std::exception&) { // out of memory
            lookAtAll = true;
            mSystem.Sleep(FAILURE_WAIT);
        }
    }
}

void SocketCanDispatcher::Core::Attend(const Events& events)
{
    if (events.wake)
        mSystem.TakeSignal(mWake.Get());
    if (events.link)
        mLinks.Drain();
    if (events.link || events.wake)
        LookAtLink();
    if (events.frames)
        ReceiveBatch();
}

/// Where the system cannot wait, everything is looked at now and then.
SocketCanDispatcher::Core::Events SocketCanDispatcher::Core::AwaitEvents()
{
    std::array<epoll_event, 3> happened = {};
    const int count = mSystem.Wait(mWaitSet.Get(), happened.data(), happened.size());
    if (count < 0 && errno == EINTR)
        return {};
    if (count < 0) {
        Endure(mWaitFailure, "epoll_wait", errno);
        return {true, true, true};
    }
    mWaitFailure = 0;
    Events events;
    for (int i = 0; i < count; ++i) {
        const int fd = happened[static_cast<std::size_t>(i)].data.fd;
        events.frames = events.frames || fd == mSocket.Descriptor();
        events.link = events.link || fd == mLinks.Descriptor();
        events.wake = events.wake || fd == mWake.Get();
    }
    return events;
}

/// A failure that may stay: told once, and not met again at once.
void SocketCanDispatcher::Core::Endure(int& last, const char* call, int error)
{
    if (error != last)
        LogSafely(LOGGER, Poco::Message::PRIO_ERROR,
                  "The receive thread of " + mInterface + " tries again every " +
                      std::to_string(FAILURE_WAIT.count()) + " ms: " + call + ": " +
                      ErrorText(error));
    last = error;
    mSystem.Sleep(FAILURE_WAIT);
}

void SocketCanDispatcher::Core::ReceiveBatch()
{
    unsigned int generation = 0;
    int error = 0;
    {
        const SteadyLock lock(mReadMutex);
        generation = mHandlers.Generation();
        error = mSocket.ReadBatch();
    }
    unsigned long long oddities = 0;
    mSocket.TakeBatch([&](const CanMessage& frame) { Deliver(frame, generation); }, oddities);
    mReceived += oddities;
    mFiltered += oddities;
    if (error == ENETDOWN || error == ENODEV)
        LookAtLink();
    else if (error != 0 && error != EAGAIN && error != EINTR)
        return Endure(mReadFailure, "recvmmsg", error);
    mReadFailure = 0;
    NoteDrops(mSocket.DropsAtLastBatch());
}

/// What came before the first handler is for nobody: neither what lies in the socket, nor what the
/// receive thread has in hand.
void SocketCanDispatcher::Core::ForgetWhatWaits()
{
    const SteadyLock lock(mReadMutex);
    mHandlers.BeginGeneration();
    unsigned long long oddities = 0;
    mSocket.Discard(
        [this](const CanMessage& frame) {
            ++mReceived;
            ++mUnheard;
            if (frame.HasError())
                ++mErrorFrames;
        },
        oddities);
    mReceived += oddities;
    mFiltered += oddities;
}

void SocketCanDispatcher::Core::Deliver(const CanMessage& frame, unsigned int generation)
{
    ++mReceived;
    if (frame.HasError())
        NoteErrorFrame(frame);
    ++mDelivered; // ahead of the call: whoever has stopped its handler finds all it got counted
    const FrameHandlers::Outcome outcome = mHandlers.Deliver(frame, generation);
    mHandlerExceptions += outcome.exceptions;
    if (outcome.calls != 0)
        return;
    --mDelivered;
    ++mUnheard;
}

void SocketCanDispatcher::Core::NoteDrops(unsigned int total)
{
    const SteadyLock lock(mDropMutex);
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
    if (const auto state = ControllerStateOf(frame))
        SetState(*state);
}

void SocketCanDispatcher::Core::LookAtLink()
{
    const SteadyRecursiveLock lock(mStateMutex);
    const LinkMonitor::Link link = mLinks.Look(mInterface);
    if (link.index == 0)
        return SetState(CAN_BUS_REMOVED);
    if (link.index != mSocket.InterfaceIndex() && !mSocket.Rebind(link.index))
        return SetState(CAN_BUS_REMOVED);
    if (!link.up)
        return SetState(CAN_BUS_DOWN);
    if (link.controller)
        return SetState(*link.controller);
    if (mState == CAN_BUS_DOWN || mState == CAN_BUS_REMOVED)
        SetState(CAN_BUS_ERROR_ACTIVE);
}

void SocketCanDispatcher::Core::SetState(tCanBusState state)
{
    const SteadyRecursiveLock lock(mStateMutex);
    if (mState.exchange(state) != state)
        Announce(state);
}

void SocketCanDispatcher::Core::Announce(tCanBusState state)
{
    const auto listeners = CopyOfListeners(); // a listener may remove itself and others
    for (iCanBusStateListener* const listener : listeners) {
        if (std::find(mListeners.begin(), mListeners.end(), listener) == mListeners.end())
            continue;
        try {
            listener->OnBusState(state);
        } catch (const abi::__forced_unwind&) {
            throw; // the thread is being cancelled
        } catch (...) {
            LogPresentException(LOGGER, "A state listener threw");
        }
    }
}

/// Waits for memory: a frame may be in hand that must reach its handlers.
std::vector<iCanBusStateListener*> SocketCanDispatcher::Core::CopyOfListeners()
{
    for (;;) {
        try {
            return mListeners;
        } catch (const std::bad_alloc&) {
            mSystem.Sleep(FAILURE_WAIT);
        }
    }
}

tCanBusState SocketCanDispatcher::Core::GetBusState()
{
    const SteadyLock lock(mMutex);
    if (!mThread.joinable())
        LookAtLink();
    return mState;
}

void SocketCanDispatcher::Core::AddStateListener(iCanBusStateListener* listener)
{
    {
        const SteadyRecursiveLock lock(mStateMutex);
        mListeners.push_back(listener);
    }
    const SteadyLock lock(mMutex);
    StartThread();
}

void SocketCanDispatcher::Core::RemoveStateListener(const iCanBusStateListener* listener)
{
    const SteadyRecursiveLock lock(mStateMutex);
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
    const SteadyLock lock(mDropMutex);
    counters.droppedByKernel = mDropped;
    return counters;
}

} // namespace tarn
