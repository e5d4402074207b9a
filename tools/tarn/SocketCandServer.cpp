#include "SocketCandServer.h"

#include "Failure.h"
#include "StopSignal.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace tarn::tool
{

namespace
{

/// What an event is of; clients have higher numbers.
enum tSource : std::uint64_t {
    SOURCE_LISTENER,
    SOURCE_STOP,
    SOURCE_BUS,
    SOURCE_SENDER,
    FIRST_CLIENT
};

/// Connections that wait to be taken; beyond it those of honest clients would be delayed too.
constexpr int BACKLOG = 4096;

/// Connections taken in a row; the others wait until the clients had their turn.
constexpr int MOST_ACCEPTED = 64;

/// Frames of one client on their way to the bus. It is not read from while there are as many.
/// So many that the bus never waits for the client, and so few that a bus which makes each of them
/// wait for a second does not keep the client from an answer for long.
constexpr unsigned int MOST_UNDER_WAY = 8;

/// Of all clients, also of those that have gone.
constexpr std::size_t MOST_WAITING = 4096;

/// For a client to read what it is told at the end.
constexpr std::chrono::milliseconds TIME_TO_LEAVE(1000);

/// After the system had no descriptor left.
constexpr std::chrono::milliseconds ACCEPT_PAUSE(100);

constexpr std::chrono::milliseconds BEACON_INTERVAL(2000);

/// More than a bus that is not stuck takes for a frame.
constexpr std::chrono::milliseconds TIME_TO_SEND(20);

constexpr int SEND_BUFFER_BYTES = 256 * 1024;

std::string ErrorText(int error)
{
    return std::generic_category().message(error);
}

void SetOption(int descriptor, int level, int name, int value)
{
    ::setsockopt(descriptor, level, name, &value, sizeof value);
}

/// A client whose machine has gone says nothing any more; that is found out within half a minute.
void SetClientOptions(int descriptor)
{
    SetOption(descriptor, IPPROTO_TCP, TCP_NODELAY, 1);
    SetOption(descriptor, SOL_SOCKET, SO_SNDBUF, SEND_BUFFER_BYTES);
    SetOption(descriptor, SOL_SOCKET, SO_KEEPALIVE, 1);
    SetOption(descriptor, IPPROTO_TCP, TCP_KEEPIDLE, 15);
    SetOption(descriptor, IPPROTO_TCP, TCP_KEEPINTVL, 5);
    SetOption(descriptor, IPPROTO_TCP, TCP_KEEPCNT, 3);
    SetOption(descriptor, IPPROTO_TCP, TCP_USER_TIMEOUT, 30000);
}

} // namespace

class SocketCandServer::Descriptor
{
public:
    Descriptor(int fd, const char* what) : mFd(fd)
    {
        if (fd < 0)
            throw Trouble(std::string(what) + ": " + ErrorText(errno) + "; see 'ulimit -n'");
    }
    ~Descriptor() { ::close(mFd); }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;

    int Get() const { return mFd; }

private:
    const int mFd;
};

/// Tells of the server by datagrams, as socketcand does.
class SocketCandServer::Beacon
{
public:
    Beacon(const SocketAddress& to, const SocketAddress& server, const std::string& bus)
        : mTo(to),
          mSocket(::socket(to.storage.ss_family, SOCK_DGRAM | SOCK_CLOEXEC, 0), "no socket")
    {
        std::array<char, 256> host = {};
        ::gethostname(host.data(), host.size() - 1);
        mText = "<CANBeacon name=\"" + Quoted(host.data()) +
                "\" type=\"SocketCAN\" description=\"tarn serve\">\n<URL>can://" + server.Text() +
                "</URL><Bus name=\"" + Quoted(bus) + "\"/></CANBeacon>";
        SetOption(mSocket.Get(), SOL_SOCKET, SO_BROADCAST, 1);
    }

    Clock::time_point Next() const { return mNext; }

    void Look(Clock::time_point now)
    {
        if (now < mNext)
            return;
        mNext = now + BEACON_INTERVAL;
        // Nobody may be there to hear it.
        ::sendto(mSocket.Get(), mText.data(), mText.size(), MSG_DONTWAIT | MSG_NOSIGNAL, mTo.Get(),
                 mTo.size);
    }

private:
    static std::string Quoted(const std::string& text)
    {
        std::string quoted;
        for (const char character : text) {
            const bool plain = character >= ' ' && character != '"' && character != '&' &&
                               character != '<' && character != '>';
            quoted += plain ? character : '_';
        }
        return quoted;
    }

    const SocketAddress mTo;
    const Descriptor mSocket;
    std::string mText;
    Clock::time_point mNext = {};
};

SocketCandServer::SocketCandServer(std::tr1::shared_ptr<iCanBus> bus, const Options& options)
    : mBus(std::move(bus)),
      mOptions(options),
      mQueue(options.isLog ? FrameQueue::WAIT : FrameQueue::COUNT_LOSS),
      mSender(*mBus),
      mNextId(FIRST_CLIENT)
{
    OpenListener();
    mWaitSet = std::make_unique<Descriptor>(::epoll_create1(EPOLL_CLOEXEC), "no wait set");
    mStop = std::make_unique<Descriptor>(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK), "no event");
    const bool all = Watch(mListener->Get(), SOURCE_LISTENER, EPOLLIN, EPOLL_CTL_ADD) &&
                     Watch(mStop->Get(), SOURCE_STOP, EPOLLIN, EPOLL_CTL_ADD) &&
                     Watch(mQueue.GetDescriptor(), SOURCE_BUS, EPOLLIN, EPOLL_CTL_ADD) &&
                     Watch(mSender.GetDescriptor(), SOURCE_SENDER, EPOLLIN, EPOLL_CTL_ADD);
    if (!all)
        throw Trouble("cannot wait for connections: epoll_ctl: " + ErrorText(errno) +
                      "; see 'ulimit -n'");
    if (options.beacon)
        mBeacon = std::make_unique<Beacon>(*options.beacon, mAddress, options.busName);
}

SocketCandServer::~SocketCandServer()
{
    mQueue.Close();
    mBus->Stop(&mQueue);
}

void SocketCandServer::OpenListener()
{
    const auto fail = [this](const char* step) {
        throw Trouble("cannot listen at " + mOptions.listen.Text() + ": " + step + ": " +
                      ErrorText(errno) + "; give another --listen, or port 0 for any");
    };
    const int family = mOptions.listen.storage.ss_family;
    const int descriptor = ::socket(family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (descriptor < 0)
        fail("socket");
    mListener = std::make_unique<Descriptor>(descriptor, "socket");
    SetOption(descriptor, SOL_SOCKET, SO_REUSEADDR, 1);
    if (::bind(descriptor, mOptions.listen.Get(), mOptions.listen.size) != 0)
        fail("bind");
    if (::listen(descriptor, BACKLOG) != 0)
        fail("listen");
    mAddress.size = sizeof mAddress.storage;
    if (::getsockname(descriptor, reinterpret_cast<sockaddr*>(&mAddress.storage), &mAddress.size) !=
        0)
        fail("getsockname");
}

bool SocketCandServer::Watch(int descriptor, std::uint64_t id, unsigned int interest,
                             int operation) const
{
    epoll_event event = {};
    event.events = interest;
    event.data.u64 = id;
    return ::epoll_ctl(mWaitSet->Get(), operation, descriptor, &event) == 0;
}

void SocketCandServer::Stop()
{
    ::eventfd_write(mStop->Get(), 1);
}

void SocketCandServer::Serve(Clock::time_point until)
{
    while (!mStopped && Clock::now() < until) {
        if (!WaitForInput(mWaitSet->Get(), std::min(until, NextDeadline())))
            break;
        TakeEvents();
        ReadOn();
        WriteOut();
        LookAtDeadlines(Clock::now());
        SweepUp();
    }
    mSender.Finish(Clock::now() + TIME_TO_LEAVE);
    HandOutOutcomes();
    WriteOut();
}

void SocketCandServer::TakeEvents()
{
    std::array<epoll_event, 64> events = {};
    const int count =
        ::epoll_wait(mWaitSet->Get(), events.data(), static_cast<int>(events.size()), 0);
    for (int i = 0; i < count; ++i) {
        const epoll_event& event = events[static_cast<std::size_t>(i)];
        TakeEvent(event.data.u64, event.events);
    }
}

void SocketCandServer::TakeEvent(std::uint64_t id, unsigned int events)
{
    switch (id) {
    case SOURCE_LISTENER:
        return Accept();
    case SOURCE_STOP:
        mStopped = true;
        return;
    case SOURCE_BUS:
        return HandOutBusFrames();
    case SOURCE_SENDER:
        return HandOutOutcomes();
    default:
        break;
    }
    const auto entry = mClients.find(id);
    if (entry != mClients.end())
        Attend(id, *entry->second, events);
}

// Those who come.

void SocketCandServer::Accept()
{
    for (int i = 0; i < MOST_ACCEPTED; ++i) {
        SocketAddress peer;
        peer.size = sizeof peer.storage;
        const int descriptor =
            ::accept4(mListener->Get(), reinterpret_cast<sockaddr*>(&peer.storage), &peer.size,
                      SOCK_CLOEXEC | SOCK_NONBLOCK);
        if (descriptor >= 0) {
            Welcome(descriptor, peer);
            continue;
        }
        if (errno == EAGAIN)
            return;
        if (errno == EMFILE || errno == ENFILE || errno == ENOBUFS || errno == ENOMEM) {
            mAcceptAgain = Clock::now() + ACCEPT_PAUSE;
            Watch(mListener->Get(), SOURCE_LISTENER, 0, EPOLL_CTL_MOD);
            return;
        } // others are of a client that has gone already
    }
}

bool SocketCandServer::IsAllowed(const SocketAddress& peer) const
{
    return mOptions.allowed.empty() ||
           std::any_of(mOptions.allowed.begin(), mOptions.allowed.end(),
                       [&](const HostRange& range) { return range.Has(peer); });
}

void SocketCandServer::Welcome(int descriptor, const SocketAddress& peer)
{
    if (!IsAllowed(peer))
        return Refuse(descriptor, "your address is not among those of --allow");
    if (mClients.size() >= mOptions.maxClients)
        return Refuse(descriptor, "too many clients; see --max-clients");
    const std::uint64_t id = mNextId++;
    if (!Watch(descriptor, id, EPOLLIN, EPOLL_CTL_ADD))
        return Refuse(descriptor, "the server has no room");
    SetClientOptions(descriptor);
    ++mCounters.clients;
    auto client = std::make_unique<ServerClient>(descriptor, peer.Text(), mOptions.queueBytes);
    client->deadline = Clock::now() + mOptions.timeToOpen;
    client->interest = EPOLLIN;
    client->Tell("< hi >");
    mClients.emplace(id, std::move(client));
}

void SocketCandServer::Refuse(int descriptor, const char* complaint)
{
    ++mCounters.refused;
    std::string text;
    AppendSocketCandError(complaint, text);
    const ssize_t ignored = ::send(descriptor, text.data(), text.size(), MSG_NOSIGNAL);
    static_cast<void>(ignored);
    ::close(descriptor);
}

// What clients say.

void SocketCandServer::Attend(std::uint64_t id, ServerClient& client, unsigned int events)
{
    constexpr auto BROKEN = static_cast<unsigned int>(EPOLLHUP | EPOLLERR);
    const bool isBroken = (events & BROKEN) != 0;
    const bool isReadable = (events & EPOLLIN) != 0 && !client.HasInput();
    const bool isGone = isReadable ? !client.ReadIn() : isBroken;
    if (isGone)
        mGone.push_back(id);
    else if (isReadable)
        TakeElements(id, client);
}

/// Up to a frame that would be one too many on its way to the bus.
void SocketCandServer::TakeElements(std::uint64_t id, ServerClient& client)
{
    SocketCandElement element;
    while (client.framesUnderWay < MOST_UNDER_WAY && client.NextElement(element)) {
        if (client.GetState() != ServerClient::STATE_LEAVING)
            Obey(id, client, element);
    }
}

void SocketCandServer::Obey(std::uint64_t id, ServerClient& client,
                            const SocketCandElement& element)
{
    const bool isOpen = client.GetState() != ServerClient::STATE_GREETED;
    switch (element.kind) {
    case SocketCandElement::KIND_ECHO:
        return Answer(client, "< echo >");
    case SocketCandElement::KIND_OPEN:
        return OpenBus(client, element.text.data());
    case SocketCandElement::KIND_RAWMODE:
        return isOpen ? EnterRawMode(client) : Complain(client, "open a bus first");
    case SocketCandElement::KIND_SEND:
        return isOpen ? PassOn(id, client, element.frame) : Complain(client, "open a bus first");
    case SocketCandElement::KIND_MALFORMED:
        ++mCounters.malformed;
        return Complain(client, std::string("malformed: ") + element.reason);
    default:
        ++mCounters.malformed;
        return Complain(client, "unknown command");
    }
}

void SocketCandServer::OpenBus(ServerClient& client, const std::string& name)
{
    if (name != mOptions.busName) {
        client.Dismiss("no bus " + name + " here; there is " + mOptions.busName);
        return Leave(client);
    }
    if (client.GetState() == ServerClient::STATE_GREETED)
        client.SetState(ServerClient::STATE_OPEN);
    Answer(client, "< ok >");
}

/// From the answer on, which is not written before the end of the turn, the client misses nothing;
/// what came before it is not for it.
void SocketCandServer::EnterRawMode(ServerClient& client)
{
    HandOutBusFrames();
    Answer(client, "< ok >");
    if (client.GetState() != ServerClient::STATE_OPEN)
        return;
    client.SetState(ServerClient::STATE_RAW);
    ListenToBus();
}

void SocketCandServer::PassOn(std::uint64_t id, ServerClient& client, const CanMessage& frame)
{
    if (mOptions.readOnly) {
        ++mCounters.notTaken;
        return Complain(client, "not sent: this server is read-only");
    }
    if (mSender.CountWaiting() >= MOST_WAITING) {
        ++mCounters.notTaken;
        return Complain(client, "not sent: too many frames wait for the bus");
    }
    ++client.framesUnderWay;
    mSender.Put(id, frame);
}

void SocketCandServer::Complain(ServerClient& client, const std::string& complaint)
{
    std::string text;
    AppendSocketCandError(complaint, text);
    Answer(client, text);
}

void SocketCandServer::Answer(ServerClient& client, const std::string& text)
{
    if (client.GetState() != ServerClient::STATE_LEAVING && !client.Tell(text))
        DropSlow(client);
}

// What clients are told.

void SocketCandServer::ListenToBus()
{
    if (!mIsListening)
        mBus->Start(&mQueue);
    mIsListening = true;
}

/// A device may answer before the sender of the question knows that it was sent. Everybody hears
/// the question first, but for a bus that is stuck.
void SocketCandServer::HandOutBusFrames()
{
    mQueue.TakeAll(mFrames);
    if (mFrames.empty())
        return;
    mSender.AwaitBegun(Clock::now() + TIME_TO_SEND);
    HandOutOutcomes();
    for (const CanMessage& frame : mFrames)
        HandOut(frame, 0);
}

void SocketCandServer::HandOutOutcomes()
{
    mSender.TakeOutcomes(mOutcomes);
    for (const BusSender::Outcome& outcome : mOutcomes) {
        const auto sender = mClients.find(outcome.sender);
        const bool isThere = sender != mClients.end();
        if (isThere)
            --sender->second->framesUnderWay;
        ++(outcome.failure.empty() ? mCounters.taken : mCounters.notTaken);
        if (outcome.failure.empty())
            HandOut(outcome.frame, outcome.sender);
        else if (isThere)
            Complain(*sender->second, "not sent: " + outcome.failure);
    }
}

/// Reads on from clients that had too many frames on their way.
void SocketCandServer::ReadOn()
{
    for (const auto& entry : mClients) {
        if (entry.second->HasInput())
            TakeElements(entry.first, *entry.second);
    }
}

void SocketCandServer::HandOut(const CanMessage& frame, std::uint64_t except)
{
    std::string text;
    for (const auto& entry : mClients) {
        ServerClient& client = *entry.second;
        if (client.GetState() != ServerClient::STATE_RAW || entry.first == except)
            continue;
        if (text.empty())
            AppendSocketCandFrame(frame, text);
        // A burst may be larger than the queue of a client that keeps up.
        const bool isTold = client.Tell(text) || (client.WriteOut() && client.Tell(text));
        ++(isTold ? mCounters.told : mCounters.lost);
        if (!isTold)
            DropSlow(client);
    }
}

void SocketCandServer::DropSlow(ServerClient& client)
{
    const std::uint64_t waiting = client.CountWaitingFrames();
    ++mCounters.dropped;
    mCounters.lost += waiting;
    mCounters.told -= waiting;
    client.Dismiss("too slow: " + std::to_string(waiting) +
                   " frames were not read in time and are lost, and answers too");
    Leave(client);
}

void SocketCandServer::Leave(ServerClient& client)
{
    client.SetState(ServerClient::STATE_LEAVING);
    client.deadline = Clock::now() + TIME_TO_LEAVE;
}

// After each turn.

void SocketCandServer::WriteOut()
{
    for (const auto& entry : mClients) {
        ServerClient& client = *entry.second;
        if (!client.WriteOut())
            mGone.push_back(entry.first);
        const bool isDone = client.GetState() == ServerClient::STATE_LEAVING && !client.HasOutput();
        if (isDone && !client.HasEndedOutput())
            client.EndOutput();
        SetInterest(entry.first, client);
    }
}

void SocketCandServer::SetInterest(std::uint64_t id, ServerClient& client) const
{
    const unsigned int reading = client.HasInput() ? 0u : static_cast<unsigned int>(EPOLLIN);
    const unsigned int writing = client.HasOutput() ? static_cast<unsigned int>(EPOLLOUT) : 0u;
    const unsigned int interest = reading | writing;
    if (interest == client.interest)
        return;
    client.interest = interest;
    Watch(client.GetDescriptor(), id, interest, EPOLL_CTL_MOD);
}

SocketCandServer::Clock::time_point SocketCandServer::NextDeadline() const
{
    Clock::time_point next = Clock::time_point::max();
    if (mBeacon != nullptr)
        next = mBeacon->Next();
    if (mAcceptAgain != Clock::time_point())
        next = std::min(next, mAcceptAgain);
    for (const auto& entry : mClients)
        next = std::min(next, entry.second->deadline);
    return next;
}

void SocketCandServer::LookAtDeadlines(Clock::time_point now)
{
    if (mBeacon != nullptr)
        mBeacon->Look(now);
    if (mAcceptAgain != Clock::time_point() && now >= mAcceptAgain) {
        mAcceptAgain = {};
        Watch(mListener->Get(), SOURCE_LISTENER, EPOLLIN, EPOLL_CTL_MOD);
    }
    for (const auto& entry : mClients) {
        ServerClient& client = *entry.second;
        const bool mayStay = client.GetState() == ServerClient::STATE_OPEN ||
                             client.GetState() == ServerClient::STATE_RAW;
        if (mayStay) {
            client.deadline = Clock::time_point::max();
        } else if (now >= client.deadline) {
            mCounters.dropped += client.GetState() == ServerClient::STATE_GREETED ? 1u : 0u;
            mGone.push_back(entry.first);
        }
    }
}

void SocketCandServer::SweepUp()
{
    for (const std::uint64_t id : mGone)
        mClients.erase(id);
    mGone.clear();
    const bool isWanted = std::any_of(mClients.begin(), mClients.end(), [](const auto& entry) {
        return entry.second->GetState() == ServerClient::STATE_RAW;
    });
    if (mIsListening && !isWanted) {
        mBus->Stop(&mQueue);
        mIsListening = false;
    }
}

} // namespace tarn::tool
