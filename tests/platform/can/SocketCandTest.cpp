#include "ScriptedServer.h"
#include "SocketCandCore.h"
#include "support/Await.h"
#include "support/CanFakes.h"
#include "support/LedgerText.h"

#include <plexa_can/CanException.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <fstream>
#include <functional>
#include <memory>
#include <thread>

namespace
{

using namespace tarn;
using namespace tarn::test;
using std::chrono::milliseconds;
using std::chrono::seconds;
using std::chrono::steady_clock;
using testing::HasSubstr;
using testing::StartsWith;

/// The system, but for calls that are told to fail.
class FaultySystem : public iTcpSystem
{
public:
    /// Error numbers of the next calls; 0: none.
    std::atomic<int> socketError{0};
    std::atomic<int> eventError{0};
    std::atomic<int> optionError{0};
    std::atomic<int> connectError{0};
    std::atomic<int> pollError{0};
    std::atomic<int> receiveError{0};
    std::atomic<int> sendError{0};
    std::atomic<unsigned int> sendInterruptions{0};
    std::atomic<std::size_t> mostSent{100000}; ///< bytes a call
    std::atomic<bool> isFull{false};           ///< nothing can be sent
    std::atomic<std::size_t> roomLeft{100000000};
    std::atomic<unsigned int> sleeps{0};

    std::string Resolve(const std::string& host, const std::string& port,
                        std::vector<TcpAddress>& addresses) override
    {
        return mSystem.Resolve(host, port, addresses);
    }
    int Socket(int family) override { return Fails(socketError) ? -1 : mSystem.Socket(family); }
    int Close(int fd) override { return mSystem.Close(fd); }
    int SetOption(int fd, int level, int name, int value) override
    {
        return Fails(optionError) ? -1 : mSystem.SetOption(fd, level, name, value);
    }
    int PendingError(int fd) override { return mSystem.PendingError(fd); }
    int Connect(int fd, const TcpAddress& address) override
    {
        return Fails(connectError) ? -1 : mSystem.Connect(fd, address);
    }
    int Abort(int fd) override { return mSystem.Abort(fd); }
    ssize_t Receive(int fd, void* buffer, std::size_t size) override
    {
        return Fails(receiveError) ? -1 : mSystem.Receive(fd, buffer, size);
    }
    ssize_t Send(int fd, const void* buffer, std::size_t size) override
    {
        if (Fails(sendError))
            return -1;
        if (sendInterruptions != 0) {
            --sendInterruptions;
            return Failed(EINTR);
        }
        const std::size_t most = std::min({size, mostSent.load(), roomLeft.load()});
        if (isFull || most == 0)
            return Failed(EAGAIN);
        roomLeft -= most;
        return mSystem.Send(fd, buffer, most);
    }
    int Poll(pollfd* descriptors, std::size_t count, int timeout) override
    {
        if (Fails(pollError))
            return -1;
        if (isFull && count == 1 && descriptors->events == POLLOUT) {
            std::this_thread::sleep_for(milliseconds(timeout));
            return 0;
        }
        return mSystem.Poll(descriptors, count, timeout);
    }
    int Event() override { return Fails(eventError) ? -1 : mSystem.Event(); }
    int Signal(int event) override { return mSystem.Signal(event); }
    int TakeSignal(int event) override { return mSystem.TakeSignal(event); }
    int SetThreadName(const std::string& name) override { return mSystem.SetThreadName(name); }
    Clock::time_point Now() override { return mSystem.Now(); }
    void Sleep(milliseconds time) override
    {
        ++sleeps;
        mSystem.Sleep(time);
    }

private:
    static int Failed(int error)
    {
        errno = error;
        return -1;
    }
    static bool Fails(const std::atomic<int>& error)
    {
        errno = error;
        return error != 0;
    }

    iTcpSystem& mSystem = RealTcpSystem();
};

SocketCandDispatcher::Options Patient()
{
    SocketCandDispatcher::Options options;
    options.connectTimeout = 20000;
    options.sendTimeout = 20000;
    options.keepAlive = 0;
    return options;
}

/// A dispatcher's inside and the server that it talks to.
class SocketCand : public testing::Test
{
protected:
    using Core = SocketCandDispatcher::Core;

    ~SocketCand() override
    {
        if (core != nullptr)
            core->Close();
    }

    std::shared_ptr<Core> MakeCore(const SocketCandDispatcher::Options& options)
    {
        return std::make_shared<Core>(system, SocketCandAddress{"127.0.0.1", server.Port(), "can0"},
                                      options);
    }

    void Open(const SocketCandDispatcher::Options& options = Patient(), int receiveBuffer = 0)
    {
        core = MakeCore(options);
        std::thread opening([this] { core->Open(); });
        server.Accept(receiveBuffer);
        server.OpenBus();
        opening.join();
    }

    /// What Open() throws while the server does something.
    std::string FailureOfOpen(const SocketCandDispatcher::Options& options,
                              const std::function<void()>& serve)
    {
        std::string text = "no exception";
        core = MakeCore(options);
        std::thread opening([&] {
            try {
                core->Open();
            } catch (const CanException& failure) {
                text = failure.message();
            }
        });
        serve();
        opening.join();
        return text;
    }

    void Greet()
    {
        server.Accept();
        server.Say("< hi >");
    }

    void Start(FrameRecorder& handler)
    {
        std::thread starting([&] { core->Start(&handler); });
        server.HearUntil("< echo >");
        server.Say("< echo >");
        starting.join();
    }

    void Send(unsigned int header) { core->Send(ExtendedFrame(header, {0x20})); }

    std::string FailureOfSend(unsigned int header)
    {
        try {
            Send(header);
        } catch (const CanException& failure) {
            return failure.message();
        }
        return "no exception";
    }

    bool AwaitDisconnection()
    {
        const auto end = steady_clock::now() + PATIENCE;
        while (core->IsConnected() && steady_clock::now() < end)
            std::this_thread::sleep_for(milliseconds(1));
        return !core->IsConnected();
    }

    std::string Ledger() { return LedgerText(core->GetCounters()); }

    FaultySystem system;
    ScriptedServer server;
    std::shared_ptr<Core> core;
};

// Opening.

TEST_F(SocketCand, SaysWhatItWantsAndDeliversWhatComes)
{
    core = MakeCore(Patient());
    std::thread opening([this] { core->Open(); });
    server.Accept();
    server.Say("< hi >");
    EXPECT_EQ(server.HearUntil(" >"), "< open can0 >");
    server.Say("< ok >");
    EXPECT_EQ(server.HearUntil(" >"), "< rawmode >");
    server.Say("< ok >< frame 001 1.0 01 >");
    opening.join();
    FrameRecorder handler;
    Start(handler);
    server.Say("< frame 0F800001 1609779922.655421 20FF >< frame 0F80");
    EXPECT_TRUE(handler.AwaitCount(1));
    server.Say("0002 2.000001  >\n< fdframe 1 2 3.0 >junk< stat 1 2 3 4 >< error 004 1.0 >");
    EXPECT_TRUE(handler.AwaitCount(3));
    const auto frames = handler.Frames();
    EXPECT_EQ(frames[0].ToString(), "0F800001#20FF");
    EXPECT_EQ(frames[0].GetTimeStamp(), 1609779922655421000ull);
    EXPECT_EQ(frames[1].ToString(), "0F800002#");
    EXPECT_EQ(frames[2].ToString(), "20000004#");
    core->Stop(&handler);
    EXPECT_EQ(Ledger(), "received 6, delivered 3, unheard 1, filtered 2, errorFrames 1");
}

TEST_F(SocketCand, NamesHostPortStepAndRemedyWhenNobodyListens)
{
    server.StopListening();
    EXPECT_EQ(FailureOfOpen(Patient(), [] {}),
              "cannot open the bus \"can0\" at host 127.0.0.1, port " + server.Port() +
                  ": connect: Connection refused; see whether \"tarn serve\" or socketcand runs "
                  "there and a firewall lets it through");
}

TEST_F(SocketCand, GivesUpOnAServerThatSaysNothing)
{
    SocketCandDispatcher::Options options = Patient();
    options.connectTimeout = 50;
    EXPECT_THAT(FailureOfOpen(options, [] {}),
                HasSubstr("waiting for its greeting: Connection timed out; see whether the server "
                          "is well"));
}

TEST_F(SocketCand, GivesUpOnAServerThatTalksAndNeverAnswers)
{
    SocketCandDispatcher::Options options = Patient();
    options.connectTimeout = 200;
    std::atomic<bool> done{false};
    std::thread talking([&] {
        server.Accept();
        server.Say("< hi >");
        while (!done && server.TrySay("< frame 001 1.0  >< frame 001 1.0  >"))
            ;
    });
    EXPECT_THAT(FailureOfOpen(options, [] {}),
                HasSubstr("asking for the bus: Connection timed out"));
    done = true;
    talking.join();
}

TEST_F(SocketCand, StartsOverAServerThatTalksAndNeverReturnsTheEcho)
{
    SocketCandDispatcher::Options options = Patient();
    options.connectTimeout = 2000;
    Open(options);
    std::atomic<bool> done{false};
    std::thread talking([&] {
        while (!done && server.TrySay("< frame 001 1.0  >"))
            ;
    });
    FrameRecorder handler;
    core->Start(&handler);
    core->Stop(&handler);
    EXPECT_FALSE(core->IsConnected());
    done = true;
    talking.join();
}

TEST_F(SocketCand, TellsWhatTheServerSays)
{
    const auto refuse = [this] {
        server.Accept();
        server.Say("< hi >");
        server.HearUntil(" >");
        server.Say("< error no such bus >");
    };
    EXPECT_THAT(FailureOfOpen(Patient(), refuse),
                HasSubstr("asking for the bus: the server says \"no such bus\"; ask it for what "
                          "it offers"));
}

TEST_F(SocketCand, KnowsAnotherProtocol)
{
    const auto greet = [this] {
        server.Accept();
        server.Say("SSH-2.0-OpenSSH_9.2\r\n");
    };
    EXPECT_THAT(FailureOfOpen(Patient(), greet),
                HasSubstr("waiting for its greeting: what came is not the protocol of socketcand; "
                          "see whether host and port are those of"));
}

TEST_F(SocketCand, TellsThatTheServerHungUp)
{
    const auto hangUp = [this] {
        server.Accept();
        server.HangUp();
    };
    EXPECT_THAT(FailureOfOpen(Patient(), hangUp),
                HasSubstr("waiting for its greeting: Connection reset by peer"));
}

TEST_F(SocketCand, TellsThatAHostIsNotFound)
{
    core = std::make_shared<Core>(system, SocketCandAddress{"300.1.2.3", "1", "can0"}, Patient());
    try {
        core->Open();
        FAIL() << "no exception";
    } catch (const CanException& failure) {
        EXPECT_THAT(failure.message(), StartsWith("cannot open the bus \"can0\" at host 300.1.2.3, "
                                                  "port 1: finding the host: "));
    }
}

TEST_F(SocketCand, TellsWhichCallOfTheSystemFailed)
{
    system.socketError = EMFILE;
    EXPECT_THAT(FailureOfOpen(Patient(), [] {}), HasSubstr("connect: Too many open files"));
    system.socketError = 0;
    system.connectError = ENETUNREACH;
    EXPECT_THAT(FailureOfOpen(Patient(), [] {}), HasSubstr("connect: Network is unreachable"));
    system.connectError = 0;
    system.eventError = ENFILE;
    EXPECT_THROW(MakeCore(Patient()), CanException);
    system.eventError = 0;
}

TEST_F(SocketCand, TellsThatTheAnswerCannotBeRead)
{
    system.receiveError = EIO;
    EXPECT_THAT(FailureOfOpen(Patient(), [this] { Greet(); }),
                HasSubstr("waiting for its greeting: Input/output error"));
}

TEST_F(SocketCand, TellsThatTheQuestionCannotBeSent)
{
    system.sendError = ECONNRESET;
    EXPECT_THAT(FailureOfOpen(Patient(), [this] { Greet(); }),
                HasSubstr("asking for the bus: Connection reset"));
}

TEST_F(SocketCand, DoesNotDependOnOptionsOfTheSocket)
{
    system.optionError = EPERM;
    Open();
    server.HangUp();
}

// Sending.

TEST_F(SocketCand, SendsFramesOfEveryKind)
{
    Open();
    core->Send(ExtendedFrame(0x0F800001, {0x20, 0x01}));
    CanMessage remote;
    remote.SetHeader(0x123);
    remote.GetFlags() = CanMessage::FLAG_REMOTE;
    core->Send(remote);
    EXPECT_EQ(server.HearUntil("123 0 >"), "< send 0F800001 2 20 01 >< sendrtr 123 0 >");
    EXPECT_EQ(Ledger(), "sent 2");
    server.HangUp();
}

TEST_F(SocketCand, StandsShortAndInterruptedWrites)
{
    Open();
    system.mostSent = 1;
    system.sendInterruptions = 3;
    Send(0x0F800001);
    EXPECT_EQ(server.HearUntil(" >"), "< send 0F800001 1 20 >");
    server.HangUp();
}

TEST_F(SocketCand, ThrowsWhenTheConnectionStaysFullAndNeverSendsThatFrame)
{
    SocketCandDispatcher::Options options = Patient();
    options.sendTimeout = 30;
    Open(options);
    system.isFull = true;
    EXPECT_EQ(FailureOfSend(0x111),
              "a frame was not sent on the bus \"can0\" at host 127.0.0.1, port " + server.Port() +
                  ": the connection was full for 30 ms: Resource temporarily unavailable; try "
                  "again");
    EXPECT_TRUE(core->IsConnected());
    system.isFull = false;
    Send(0x222);
    EXPECT_EQ(server.HearUntil(" >"), "< send 00000222 1 20 >");
    EXPECT_EQ(Ledger(), "sent 1, sendRetries 1, sendFailures 1");
    server.HangUp();
}

TEST_F(SocketCand, EndsTheConnectionSoThatABegunFrameIsNeverCompleted)
{
    SocketCandDispatcher::Options options = Patient();
    options.sendTimeout = 30;
    Open(options);
    Send(0x111);
    EXPECT_EQ(server.HearUntil(" >"), "< send 00000111 1 20 >");
    system.roomLeft = 10;
    EXPECT_THAT(FailureOfSend(0x222), HasSubstr("the connection broke"));
    EXPECT_FALSE(core->IsConnected());
    system.roomLeft = 1000;
    EXPECT_THAT(FailureOfSend(0x333), HasSubstr("not connected"));
    EXPECT_THAT(server.HearOut(), testing::AnyOf("", "< send 000"));
    EXPECT_EQ(Ledger(), "sent 1, sendRetries 1, sendFailures 2, unconfirmed 1, disconnections 1");
}

/// Against a peer that really does not read.
TEST_F(SocketCand, FillsTheConnectionAndNeverSendsMoreThanItSaid)
{
    SocketCandDispatcher::Options options = Patient();
    options.sendTimeout = 30;
    Open(options, 2048);
    unsigned int taken = 0;
    std::string failure;
    while (failure.empty() && taken < 1000000) {
        const std::string text = FailureOfSend(0x10000 + taken);
        if (text == "no exception")
            ++taken;
        else
            failure = text;
    }
    EXPECT_GT(taken, 0u);
    EXPECT_THAT(failure, HasSubstr("a frame was not sent"));
    core->Close();
    const std::string heard = server.HearOut();
    EXPECT_LE(std::count(heard.begin(), heard.end(), '>'), static_cast<long>(taken));
    const CanBusCounters counters = core->GetCounters();
    EXPECT_EQ(counters.sent, taken);
    EXPECT_EQ(counters.sendFailures, 1u);
    EXPECT_EQ(counters.unconfirmed, taken) << "no echo has confirmed any";
    core.reset();
}

TEST_F(SocketCand, CountsWhatTheServerCouldNotSend)
{
    Open();
    FrameRecorder handler;
    Start(handler);
    Send(1);
    server.Say("< error not sent: the bus is off >< frame 001 1.0  >");
    EXPECT_TRUE(handler.AwaitCount(1));
    core->Stop(&handler);
    EXPECT_EQ(core->GetCounters().unconfirmed, 1u);
    server.HangUp();
}

// Losing the connection.

TEST_F(SocketCand, ThrowsAtOnceWhenTheServerHasGone)
{
    Open();
    Send(1);
    server.HearUntil(" >");
    server.HangUp();
    ASSERT_TRUE(AwaitDisconnection());
    EXPECT_THAT(FailureOfSend(2),
                testing::MatchesRegex("a frame was not sent on the bus .*: not connected; the "
                                      "connection was lost: .*; open the bus again, or name it "
                                      "with reconnect=1"));
    EXPECT_EQ(Ledger(), "sent 1, sendFailures 1, unconfirmed 1, disconnections 1");
}

TEST_F(SocketCand, KnowsThatAnEchoConfirmsWhatWasSentBefore)
{
    Open();
    Send(1);
    server.HearUntil(" >");
    FrameRecorder handler;
    Start(handler);
    core->Stop(&handler);
    server.HangUp();
    ASSERT_TRUE(AwaitDisconnection());
    EXPECT_EQ(Ledger(), "sent 1, disconnections 1");
}

TEST_F(SocketCand, MayBeStartedWithoutAConnection)
{
    Open();
    server.HangUp();
    ASSERT_TRUE(AwaitDisconnection());
    FrameRecorder handler;
    EXPECT_NO_THROW(core->Start(&handler));
    core->Stop(&handler);
}

TEST_F(SocketCand, ComesBackWhenToldToAndSendsNothingOld)
{
    SocketCandDispatcher::Options options = Patient();
    options.reconnect = true;
    Open(options);
    FrameRecorder handler;
    Start(handler);
    server.HangUp();
    ASSERT_TRUE(AwaitDisconnection());
    EXPECT_THAT(FailureOfSend(0x111), HasSubstr("; try again"));
    server.Accept();
    server.OpenBus();
    server.Say("< frame 0F800007 1.0  >");
    EXPECT_TRUE(handler.AwaitCount(1)) << "the handler was not heard again";
    Send(0x222);
    EXPECT_EQ(server.HearUntil(" >"), "< send 00000222 1 20 >");
    core->Stop(&handler);
    EXPECT_EQ(Ledger(), "received 1, delivered 1, sent 1, sendFailures 1, disconnections 1");
    server.HangUp();
}

TEST_F(SocketCand, TriesAgainUntilTheServerIsThere)
{
    SocketCandDispatcher::Options options = Patient();
    options.reconnect = true;
    Open(options);
    system.connectError = ECONNREFUSED;
    server.HangUp();
    ASSERT_TRUE(AwaitDisconnection());
    const auto end = steady_clock::now() + PATIENCE;
    while (FailureOfSend(1).find("connect: Connection refused") == std::string::npos &&
           steady_clock::now() < end)
        std::this_thread::sleep_for(milliseconds(5));
    system.connectError = 0;
    server.Accept();
    server.OpenBus();
    while (!core->IsConnected() && steady_clock::now() < end)
        std::this_thread::sleep_for(milliseconds(5));
    EXPECT_TRUE(core->IsConnected());
    server.HangUp();
}

TEST_F(SocketCand, GivesUpAServerThatAnswersNoEcho)
{
    SocketCandDispatcher::Options options = Patient();
    options.keepAlive = 30;
    Open(options);
    EXPECT_EQ(server.HearUntil(" >"), "< echo >");
    EXPECT_TRUE(AwaitDisconnection());
    EXPECT_THAT(FailureOfSend(1), HasSubstr("no answer to < echo >: Connection timed out"));
}

TEST_F(SocketCand, KeepsAServerThatAnswers)
{
    SocketCandDispatcher::Options options = Patient();
    options.keepAlive = 1000;
    Open(options);
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(server.HearUntil(" >"), "< echo >");
        server.Say("< echo >");
    }
    EXPECT_TRUE(core->IsConnected());
    EXPECT_EQ(Ledger(), "");
    server.HangUp();
}

TEST_F(SocketCand, LosesTheConnectionWhenReadingFails)
{
    Open();
    system.receiveError = EIO;
    server.Say("< hi >");
    EXPECT_TRUE(AwaitDisconnection());
    EXPECT_THAT(FailureOfSend(1), HasSubstr("Input/output error"));
}

TEST_F(SocketCand, HearsOnWhereTheSystemFailsToWait)
{
    Open();
    FrameRecorder handler;
    Start(handler);
    system.pollError = ENOMEM;
    server.Say("< frame 001 1.0  >");
    EXPECT_TRUE(handler.AwaitCount(1));
    server.Say("< frame 002 1.0  >");
    EXPECT_TRUE(handler.AwaitCount(2));
    EXPECT_GT(system.sleeps, 0u) << "asked again and again without a pause";
    system.pollError = 0;
    core->Stop(&handler);
    server.HangUp();
}

// Going.

TEST_F(SocketCand, WaitsAtTheEndForTheServerToConfirmWhatWasSent)
{
    Open();
    Send(1);
    std::atomic<bool> gone{false};
    std::thread closing([&] {
        core->Close();
        gone = true;
    });
    EXPECT_EQ(server.HearUntil("< echo >"), "< send 00000001 1 20 >< echo >");
    EXPECT_FALSE(gone) << "closed while the frame may be on its way";
    server.Say("< frame 001 1.0  >< echo >");
    closing.join();
    EXPECT_EQ(Ledger(), "received 1, unheard 1, sent 1");
}

TEST_F(SocketCand, GoesWhenTheServerDoesNotConfirm)
{
    Open();
    Send(1);
    const auto begin = steady_clock::now();
    core->Close();
    EXPECT_LT(steady_clock::now() - begin, seconds(10));
    EXPECT_EQ(server.HearOut().substr(0, 22), "< send 00000001 1 20 >");
}

TEST_F(SocketCand, GoesWhileItTriesToComeBack)
{
    SocketCandDispatcher::Options options = Patient();
    options.reconnect = true;
    Open(options);
    server.HangUp();
    ASSERT_TRUE(AwaitDisconnection());
    server.Accept(); // and says no word
    const auto begin = steady_clock::now();
    core->Close();
    EXPECT_LT(steady_clock::now() - begin, seconds(10));
}

TEST_F(SocketCand, NamesItsThreadAfterTheBus)
{
    Open();
    FrameRecorder handler([](CanMessage&) {});
    std::string name;
    FrameRecorder asking([&](CanMessage&) {
        std::ifstream comm("/proc/thread-self/comm");
        std::getline(comm, name);
    });
    Start(asking);
    server.Say("< frame 001 1.0  >");
    EXPECT_TRUE(asking.AwaitCount(1));
    core->Stop(&asking);
    EXPECT_EQ(name, "can0");
    server.HangUp();
}

} // namespace
