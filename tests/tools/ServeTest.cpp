#include "Failure.h"
#include "RawClient.h"
#include "Tarn.h"
#include "support/Await.h"
#include "support/CanFakes.h"
#include "support/LoopbackServer.h"

#include <plexa_can/CanBus.h>
#include <plexa_can/CanException.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <csignal>
#include <fstream>
#include <memory>
#include <random>

namespace
{

using namespace tarn;
using namespace tarn::test;
using std::chrono::milliseconds;
using testing::AllOf;
using testing::HasSubstr;
using testing::MatchesRegex;
using testing::Not;

const char* const OPENED = "< hi >< ok >< ok >";

/// A served bus, with a node beside the server's on it.
class Serve : public testing::Test
{
protected:
    Serve() { node->Start(&heard); }
    ~Serve() override { node->Stop(&heard); }

    void Begin(const LoopbackServer::Options& options = LoopbackServer::Defaults())
    {
        server = std::make_unique<LoopbackServer>(bus->Connect(), options);
        port = server->Port();
    }

    void Send(unsigned int header, const std::vector<unsigned char>& data = {})
    {
        CanMessage frame = ExtendedFrame(header, data);
        node->Send(frame);
    }

    std::vector<std::string> Heard()
    {
        std::vector<std::string> texts;
        for (const CanMessage& frame : heard.Frames())
            texts.push_back(frame.ToString());
        return texts;
    }

    const std::tr1::shared_ptr<VirtualCanBus> bus = VirtualCanBus::Create();
    const std::tr1::shared_ptr<VirtualCanNode> node = bus->Connect();
    FrameRecorder heard;
    std::unique_ptr<LoopbackServer> server;
    std::string port;
};

TEST_F(Serve, GreetsOpensAndReturnsEchoes)
{
    Begin();
    RawClient client(port);
    EXPECT_EQ(client.OpenBus(), OPENED);
    client.Say("< echo >");
    EXPECT_EQ(client.Hear(), "< echo >");
}

TEST_F(Serve, WantsABusToBeOpenedFirst)
{
    Begin();
    RawClient client(port);
    client.Hear();
    client.Say("< send 123 0 >< rawmode >< echo >");
    EXPECT_EQ(client.Hear(), "< error open a bus first >");
    EXPECT_EQ(client.Hear(), "< error open a bus first >");
    EXPECT_EQ(client.Hear(), "< echo >");
}

TEST_F(Serve, SaysWhichBusThereIsAndHangsUp)
{
    Begin();
    RawClient client(port);
    client.Say("< open can7 >< send 1 0 >");
    EXPECT_EQ(client.HearOut(), "< hi >< error no bus can7 here; there is bench >");
}

TEST_F(Serve, TakesFramesToTheBusAndTheOtherClients)
{
    Begin();
    RawClient sender(port);
    RawClient other(port);
    sender.OpenBus();
    other.OpenBus();
    sender.Say("< send 0F800001 2 20 FF >< send 123 0  >< sendrtr 7FF 0 >");
    EXPECT_TRUE(heard.AwaitCount(3));
    EXPECT_THAT(Heard(), testing::ElementsAre("0F800001#20FF", "123#", "7FF#R"));
    EXPECT_THAT(other.Hear(), MatchesRegex("< frame 0F800001 [0-9]{10}\\.[0-9]{6} 20FF >"));
    EXPECT_THAT(other.Hear(), MatchesRegex("< frame 123 [0-9]{10}\\.[0-9]{6}  >"));
    EXPECT_THAT(other.Hear(), MatchesRegex("< rtr 7FF [0-9]{10}\\.[0-9]{6} 0 >"));
    sender.Say("< echo >");
    EXPECT_EQ(sender.Hear(), "< echo >") << "the sender heard itself";
    const auto& counters = server->End();
    EXPECT_EQ(counters.clients, 2u);
    EXPECT_EQ(counters.taken, 3u);
    EXPECT_EQ(counters.told, 3u);
    EXPECT_EQ(counters.lost + counters.notTaken + counters.malformed + counters.dropped, 0u);
}

TEST_F(Serve, TakesFramesOfTheBusToClients)
{
    Begin();
    RawClient client(port);
    client.OpenBus();
    Send(0x0F800001, {0x20});
    EXPECT_THAT(client.Hear(), MatchesRegex("< frame 0F800001 [0-9]{10}\\.[0-9]{6} 20 >"));
}

TEST_F(Serve, GivesNoFramesToAClientThatHasNotAskedForThem)
{
    Begin();
    RawClient raw(port);
    RawClient plain(port);
    raw.OpenBus();
    plain.Say("< open bench >");
    EXPECT_EQ(plain.Hear(), "< hi >");
    EXPECT_EQ(plain.Hear(), "< ok >");
    Send(1);
    raw.Hear();
    plain.Say("< send 2 0 >< echo >");
    EXPECT_EQ(plain.Hear(), "< echo >");
    EXPECT_THAT(raw.Hear(), HasSubstr("< frame 002 "));
}

TEST_F(Serve, UnderstandsCommandsThatComeByteByByte)
{
    Begin();
    RawClient client(port);
    client.OpenBus();
    for (const char character : std::string("< send F800001 2 1 F0 >\r\n<send 1 0>"))
        client.Say(std::string(1, character));
    EXPECT_TRUE(heard.AwaitCount(2));
    EXPECT_THAT(Heard(), testing::ElementsAre("0F800001#01F0", "001#"));
}

TEST_F(Serve, TellsWhatIsWrongWithACommandAndGoesOn)
{
    Begin();
    RawClient client(port);
    client.OpenBus();
    client.Say("< send 123 9 >< bcmmode >x< send 123 1 FF >");
    EXPECT_EQ(client.Hear(), "< error malformed: the length is no number from 0 to 8 >");
    EXPECT_EQ(client.Hear(), "< error unknown command >");
    EXPECT_EQ(client.Hear(), "< error malformed: characters that stand in no brackets >");
    EXPECT_TRUE(heard.AwaitCount(1));
    EXPECT_THAT(Heard(), testing::ElementsAre("123#FF"));
    EXPECT_EQ(server->End().malformed, 3u);
}

TEST_F(Serve, SendsNothingWhenReadOnly)
{
    LoopbackServer::Options options = LoopbackServer::Defaults();
    options.readOnly = true;
    Begin(options);
    RawClient client(port);
    client.OpenBus();
    client.Say("< send 123 0 >");
    EXPECT_EQ(client.Hear(), "< error not sent: this server is read-only >");
    Send(1);
    EXPECT_THAT(client.Hear(), HasSubstr("< frame 00000001 "));
    EXPECT_THAT(Heard(), testing::ElementsAre());
    EXPECT_EQ(server->End().notTaken, 1u);
}

TEST_F(Serve, TellsWhenTheBusTakesNoFrame)
{
    const auto own = bus->Connect();
    own->SetBusOff(true);
    server = std::make_unique<LoopbackServer>(own);
    RawClient client(server->Port());
    client.OpenBus();
    client.Say("< send 123 0 >");
    EXPECT_THAT(client.Hear(), HasSubstr("< error not sent: a frame was not sent: the virtual CAN "
                                         "node is bus-off"));
    EXPECT_EQ(server->End().notTaken, 1u);
}

// Who may come.

TEST_F(Serve, RefusesOneClientTooMany)
{
    LoopbackServer::Options options = LoopbackServer::Defaults();
    options.maxClients = 1;
    Begin(options);
    auto first = std::make_unique<RawClient>(port);
    EXPECT_EQ(first->OpenBus(), OPENED);
    RawClient second(port);
    EXPECT_EQ(second.HearOut(), "< error too many clients; see --max-clients >");
    first->Say("< echo >");
    EXPECT_EQ(first->Hear(), "< echo >");
    first.reset();
    std::string greeting;
    while (greeting != "< hi >") // it takes notice of the end before long
        greeting = RawClient(port).Hear();
}

TEST_F(Serve, LetsInWhomItIsToldTo)
{
    LoopbackServer::Options options = LoopbackServer::Defaults();
    options.allowed.emplace_back("--allow", "127.0.0.2");
    options.allowed.emplace_back("--allow", "127.1.0.0/16");
    Begin(options);
    EXPECT_EQ(RawClient(port, "127.0.0.1").HearOut(),
              "< error your address is not among those of --allow >");
    EXPECT_EQ(RawClient(port, "127.0.0.2").OpenBus(), OPENED);
    EXPECT_EQ(RawClient(port, "127.1.255.9").OpenBus(), OPENED);
    EXPECT_EQ(RawClient(port, "127.2.0.0").HearOut(),
              "< error your address is not among those of --allow >");
    EXPECT_EQ(server->End().refused, 2u);
}

TEST(HostRange, ComparesBits)
{
    const auto has = [](const char* range, const char* peer) {
        return tool::HostRange("--allow", range).Has(tool::ParseSocketAddress("--listen", peer));
    };
    EXPECT_TRUE(has("10.0.0.0/8", "10.255.0.1:1"));
    EXPECT_FALSE(has("10.0.0.0/8", "11.0.0.1:1"));
    EXPECT_TRUE(has("192.168.1.128/25", "192.168.1.255:1"));
    EXPECT_FALSE(has("192.168.1.128/25", "192.168.1.127:1"));
    EXPECT_TRUE(has("0.0.0.0/0", "1.2.3.4:1"));
    EXPECT_FALSE(has("0.0.0.0/0", "[::1]:1"));
    EXPECT_TRUE(has("fd00::/8", "[fdff::1]:1"));
    EXPECT_FALSE(has("fd00::/8", "[fe00::1]:1"));
    EXPECT_TRUE(has("1.2.3.4", "[::ffff:1.2.3.4]:1")) << "IPv4 in the guise of IPv6";
    EXPECT_FALSE(has("1.2.3.4", "1.2.3.5:1"));
}

TEST(HostRange, IsRefusedWithWhatToWrite)
{
    for (const char* range : {"", "x", "1.2.3", "1.2.3.4/33", "::1/129", "1.2.3.4/", "1.2.3.4/x"})
        EXPECT_THROW(tool::HostRange("--allow", range), std::exception) << range;
    for (const char* address : {"", "127.0.0.1", "127.0.0.1:", "127.0.0.1:65536", "host:1",
                                "::1:29536", "[::1:29536", "[127.0.0.1]:1", ":1", "127.0.0.1:-1"})
        EXPECT_THROW(tool::ParseSocketAddress("--listen", address), std::exception) << address;
}

TEST_F(Serve, ListensByIpv6)
{
    try {
        Begin(LoopbackServer::Defaults("[::1]:0"));
    } catch (const tool::Failure&) {
        GTEST_SKIP() << "no IPv6 here";
    }
    EXPECT_THAT(server->BusName(), MatchesRegex("socketcand:\\[::1\\]:[0-9]+/bench"));
    const auto client = CanBus::Open(server->BusName());
    CanMessage frame = ExtendedFrame(0x77, {7});
    client->Send(frame);
    EXPECT_TRUE(heard.AwaitCount(1));
    EXPECT_THAT(Heard(), testing::ElementsAre("00000077#07"));
}

// Hostile clients. Beside each there is an honest one, which misses nothing.

class Hostile : public Serve
{
protected:
    void Begin(const LoopbackServer::Options& options = LoopbackServer::Defaults())
    {
        Serve::Begin(options);
        honest = std::make_unique<RawClient>(port);
        EXPECT_EQ(honest->OpenBus(), OPENED);
    }

    void ExpectHonestClientHears(unsigned int first, unsigned int count)
    {
        for (unsigned int header = first; header < first + count; ++header) {
            char expected[20] = {};
            std::snprintf(expected, sizeof expected, "< frame %08X ", header);
            ASSERT_EQ(honest->Hear().substr(0, 17), expected);
        }
    }

    /// Also what came before has been dealt with, then.
    void ExpectHonestClientUnharmed()
    {
        const std::size_t before = heard.Frames().size();
        honest->Say("< send 00000ABC 1 01 >< echo >");
        EXPECT_EQ(honest->Hear(), "< echo >");
        EXPECT_TRUE(heard.AwaitCount(before + 1));
        EXPECT_EQ(heard.Frames().back().ToString(), "00000ABC#01");
        Send(0xDEF, {2});
        EXPECT_THAT(honest->Hear(), MatchesRegex("< frame 00000DEF [0-9.]+ 02 >"));
    }

    std::unique_ptr<RawClient> honest;
};

TEST_F(Hostile, AClientThatNeverReadsIsToldAndDropped)
{
    LoopbackServer::Options options = LoopbackServer::Defaults();
    options.queueBytes = 20000;
    Begin(options);
    RawClient slow(port, "127.0.0.1", 2048);
    slow.OpenBus();
    // Beyond all buffers of the kernel, and no faster than the honest client reads.
    for (unsigned int header = 0; header < 20000; ++header) {
        Send(header, {1, 2, 3, 4, 5, 6, 7, 8});
        if (header % 100 == 99)
            ExpectHonestClientHears(header - 99, 100);
    }
    ExpectHonestClientUnharmed();
    const std::string heardBySlow = slow.HearOut();
    EXPECT_THAT(heardBySlow.substr(heardBySlow.rfind('<')),
                MatchesRegex("< error too slow: [0-9]+ frames were not read in time and are lost, "
                             "and answers too >"));
    EXPECT_EQ(server->End().dropped, 1u);
}

TEST_F(Hostile, AnswersThatNobodyReadsAreNoReserve)
{
    LoopbackServer::Options options = LoopbackServer::Defaults();
    options.queueBytes = 20000;
    Begin(options);
    RawClient flood(port, "127.0.0.1", 2048);
    flood.OpenBus();
    std::string echoes;
    for (int i = 0; i < 1000; ++i)
        echoes += "< echo >";
    for (int i = 0; i < 10000 && flood.Say(echoes); ++i) {
    }
    ExpectHonestClientUnharmed();
    EXPECT_EQ(server->End().dropped, 1u);
}

TEST_F(Hostile, AnEndlessCommandIsOneError)
{
    Begin();
    RawClient endless(port);
    endless.OpenBus();
    endless.Say("< send ");
    const std::string block(1 << 20, 'x');
    for (int i = 0; i < 32; ++i)
        EXPECT_TRUE(endless.Say(block));
    ExpectHonestClientUnharmed();
    EXPECT_EQ(endless.Hear(), "< error malformed: longer than 256 characters >");
    EXPECT_THAT(endless.Hear(), HasSubstr("< frame "));
    EXPECT_THAT(endless.Hear(), HasSubstr("< frame "));
    endless.Say(">< echo >");
    EXPECT_EQ(endless.Hear(), "< echo >");
}

TEST_F(Hostile, NoiseIsNothingWorse)
{
    Begin();
    std::mt19937 random(7);
    for (int client = 0; client < 20; ++client) {
        const RawClient noisy(port);
        std::string noise(50000, '\0');
        for (char& character : noise) {
            const auto draw = static_cast<unsigned int>(random() % 100);
            character = draw < 10   ? '<'
                        : draw < 20 ? '>'
                        : draw < 60 ? "sendopharwm 0123F"[random() % 17]
                                    : static_cast<char>(random() % 256);
        }
        noisy.Say(noise);
    }
    ExpectHonestClientUnharmed();
}

TEST_F(Hostile, WhoNeverOpensABusLosesHisPlace)
{
    LoopbackServer::Options options = LoopbackServer::Defaults();
    options.maxClients = 2;
    options.timeToOpen = milliseconds(50);
    Serve::Begin(options);
    RawClient silent(port);
    RawClient greeted(port);
    greeted.Say("< echo >");
    EXPECT_EQ(silent.HearOut(), "< hi >");
    EXPECT_EQ(greeted.HearOut(), "< hi >< echo >");
    EXPECT_EQ(server->End().dropped, 2u);
}

TEST_F(Hostile, ThousandsOfConnectionsLeaveNothingBehind)
{
    Begin();
    for (int i = 0; i < 3000; ++i)
        const RawClient brief(port);
    ExpectHonestClientUnharmed();
    unsigned int others = 1; // the honest one, and those that come until there is a place again
    for (std::string greeting; greeting != "< hi >"; ++others)
        greeting = RawClient(port).Hear();
    const auto& counters = server->End();
    EXPECT_EQ(counters.clients + counters.refused, 3000u + others);
}

TEST_F(Hostile, FramesOfOneWhoHangsUpAtOnceStillReachTheBus)
{
    Begin();
    {
        RawClient brief(port);
        brief.Say("< open bench >< send 123 0 >< send 124 0 >");
        EXPECT_EQ(brief.Hear(), "< hi >");
        EXPECT_EQ(brief.Hear(), "< ok >");
    }
    EXPECT_TRUE(heard.AwaitCount(2));
    EXPECT_THAT(honest->Hear(), HasSubstr("< frame 123 "));
    EXPECT_THAT(honest->Hear(), HasSubstr("< frame 124 "));
    ExpectHonestClientUnharmed();
}

/// A bus that lets senders wait.
class StuckBus : public iCanBus
{
public:
    void Start(iCanMessageHandler*) override {}
    void Stop(iCanMessageHandler*) override {}
    void Send(CanMessage&) override
    {
        entered.Open();
        leave.Pass();
    }
    CanBusCounters GetCounters() const override { return {}; }

    Gate entered;
    Gate leave;
};

TEST(ServeStuckBus, HoldsUpNobodyElse)
{
    const std::tr1::shared_ptr<StuckBus> bus(new StuckBus);
    LoopbackServer server(bus);
    RawClient sender(server.Port());
    RawClient other(server.Port());
    sender.OpenBus();
    other.OpenBus();
    std::string frames;
    for (int i = 0; i < 200; ++i) // more than are taken from one client at a time
        frames += "< send 123 0 >";
    sender.Say(frames + "< echo >");
    EXPECT_TRUE(bus->entered.Pass());
    other.Say("< echo >");
    EXPECT_EQ(other.Hear(), "< echo >");
    bus->leave.Open();
    EXPECT_EQ(sender.Hear(), "< echo >") << "reading from the sender did not go on";
    for (int i = 0; i < 200; ++i)
        EXPECT_THAT(other.Hear(), HasSubstr("< frame 123 "));
    EXPECT_EQ(server.End().taken, 200u);
}

/// A device that answers before whoever asked knows that the question was sent.
class PromptBus : public iCanBus
{
public:
    void Start(iCanMessageHandler* handler) override { mHandler = handler; }
    void Stop(iCanMessageHandler*) override { mHandler = nullptr; }
    void Send(CanMessage&) override
    {
        CanMessage answer = ExtendedFrame(0x2);
        mHandler.load()->DispatchResponse(answer);
        std::this_thread::sleep_for(milliseconds(1));
    }
    CanBusCounters GetCounters() const override { return {}; }

private:
    std::atomic<iCanMessageHandler*> mHandler{nullptr};
};

TEST(ServePromptBus, TellsTheQuestionAheadOfTheAnswer)
{
    const std::tr1::shared_ptr<PromptBus> bus(new PromptBus);
    LoopbackServer server(bus);
    RawClient asking(server.Port());
    RawClient watching(server.Port());
    watching.OpenBus();
    asking.OpenBus();
    int inOrder = 0;
    for (int i = 0; i < 50; ++i) {
        asking.Say("< send 00000001 0 >");
        const bool first = watching.Hear().find("00000001") != std::string::npos;
        const bool second = watching.Hear().find("00000002") != std::string::npos;
        inOrder += first && second ? 1 : 0;
    }
    EXPECT_GT(inOrder, 40) << "of 50; a loaded machine may miss some";
}

TEST(ServeStuckBus, TakesNoMoreFramesThanItHasRoomFor)
{
    const std::tr1::shared_ptr<StuckBus> bus(new StuckBus);
    LoopbackServer server(bus);
    std::string last;
    // Each leaves its frames behind.
    for (int i = 0; i < 1000 && last.find("error") == std::string::npos; ++i) {
        RawClient brief(server.Port());
        brief.Say("< open bench >< send 1 0 >< send 1 0 >< send 1 0 >< send 1 0 >< send 1 0 >"
                  "< send 1 0 >< send 1 0 >< echo >");
        brief.Hear();
        brief.Hear();
        last = brief.Hear();
    }
    EXPECT_EQ(last, "< error not sent: too many frames wait for the bus >");
    bus->leave.Open();
}

// Clients of this project.

TEST_F(Serve, IsABusForDispatchers)
{
    Begin();
    const auto one = CanBus::Open(server->BusName());
    const auto two = CanBus::Open(server->BusName() + "?reconnect=1&keepalive=0&connect=20000");
    FrameRecorder atTwo;
    two->Start(&atTwo);
    for (unsigned int header = 0; header < 500; ++header) {
        CanMessage frame = ExtendedFrame(header);
        one->Send(frame);
    }
    EXPECT_TRUE(atTwo.AwaitCount(500));
    EXPECT_TRUE(heard.AwaitCount(500));
    two->Stop(&atTwo);
    EXPECT_EQ(two->GetCounters().delivered, 500u);
}

TEST_F(Serve, HasAllThatWasSentBeforeAClientWent)
{
    Begin();
    for (unsigned int round = 0; round < 20; ++round) {
        const auto brief = CanBus::Open(server->BusName());
        Send(0x1000 + round); // so that there is something that nobody will read
        for (unsigned int header = 0; header < 10; ++header) {
            CanMessage frame = ExtendedFrame(header);
            brief->Send(frame);
        }
    }
    EXPECT_TRUE(heard.AwaitCount(200));
}

TEST_F(Serve, MayBeServedOnceMore)
{
    Begin();
    LoopbackServer second(CanBus::Open(server->BusName()));
    RawClient client(second.Port());
    client.OpenBus();
    client.Say("< send 0F800001 1 20 >");
    EXPECT_TRUE(heard.AwaitCount(1));
    Send(0x222);
    EXPECT_THAT(client.Hear(), HasSubstr("< frame 00000222 "));
}

// The command.

/// tarn serve, its standard error read line by line.
class ServeProcess
{
public:
    explicit ServeProcess(const std::string& arguments)
        : mCommand(
              {"/bin/bash", "-c",
               "echo $$; exec " TARN_COMMAND " serve --listen 127.0.0.1:0 " + arguments + " 2>&1"})
    {
        process = mCommand.ReadLine();
        line = mCommand.ReadLine();
        const std::string mark = "listening at ";
        const std::size_t begin = line.find(mark) + mark.size();
        where = line.substr(begin, line.find(';') - begin);
        port = where.substr(where.rfind(':') + 1);
    }

    std::string ReadLine() { return mCommand.ReadLine(); }

    int Stop(int signal)
    {
        mCommand.Signal(signal);
        ledger = mCommand.ReadLine();
        return mCommand.Wait();
    }

    /// Of resident memory, the highest so far.
    long PeakKilobytes() const
    {
        std::ifstream status("/proc/" + process + "/status");
        for (std::string row; std::getline(status, row);) {
            if (row.rfind("VmHWM:", 0) == 0)
                return std::stol(row.substr(6));
        }
        return -1;
    }

    std::string line;
    std::string process;
    std::string where;
    std::string port;
    std::string ledger;

private:
    support::RunningCommand mCommand;
};

TEST(ServeVerb, SaysWhereItListensAndEndsWithALedger)
{
    ServeProcess serve("virtual:desk");
    EXPECT_THAT(serve.line,
                MatchesRegex("tarn serve: listening at 127\\.0\\.0\\.1:[0-9]+; clients: --bus "
                             "socketcand:127\\.0\\.0\\.1:[0-9]+/desk"));
    RawClient one(serve.port);
    RawClient two(serve.port);
    EXPECT_EQ(one.OpenBus("desk"), OPENED);
    EXPECT_EQ(two.OpenBus("desk"), OPENED);
    one.Say("< send 123 0 >");
    EXPECT_THAT(two.Hear(), HasSubstr("< frame 123 "));
    EXPECT_EQ(serve.Stop(SIGTERM), 128 + SIGTERM);
    EXPECT_EQ(serve.ledger, "tarn serve: 2 clients; 1 frames from clients; 1 to clients; desk: 0 "
                            "received, 0 dropped by the kernel, 1 sent");
}

TEST(ServeVerb, EndsBySigintAndAfterADuration)
{
    ServeProcess serve("virtual:desk -q");
    EXPECT_EQ(serve.Stop(SIGINT), 128 + SIGINT);
    EXPECT_EQ(serve.ledger, "");
    const auto result =
        Tarn({"serve", "virtual:desk", "--listen", "127.0.0.1:0", "--duration", "10ms"});
    EXPECT_EQ(result.exitStatus, 0);
    EXPECT_THAT(result.err, HasSubstr("tarn serve: 0 clients; 0 frames from clients; 0 to clients; "
                                      "desk: 0 received"));
}

TEST(ServeVerb, RefusesWhatItCannotDo)
{
    const auto taken = Tarn({"serve", "virtual:x", "--listen", "127.0.0.1:port"});
    EXPECT_EQ(taken.exitStatus, 2);
    EXPECT_EQ(taken.err,
              "tarn serve: --listen 127.0.0.1:port: no address; write it like 127.0.0.1:29536 or "
              "[::1]:29536, with 0 for any free port\n");
    const auto behind = Tarn({"serve", "--listen", "127.0.0.1:0", "--duration", "1ms", "--allow",
                              "127.0.0.1,::1", "virtual:x"});
    EXPECT_EQ(behind.exitStatus, 0) << behind.err;
    const auto allow = Tarn({"serve", "virtual:x", "--allow", "10.0.0.0/40"});
    EXPECT_EQ(allow.exitStatus, 2);
    EXPECT_THAT(allow.err, HasSubstr("--allow 10.0.0.0/40: no range of addresses"));
    const auto none = Tarn({"serve"});
    EXPECT_EQ(none.exitStatus, 2);
    EXPECT_THAT(none.err, HasSubstr("no bus"));
    ServeProcess serve("virtual:desk");
    const auto twice = Tarn({"serve", "virtual:x", "--listen", serve.where});
    EXPECT_EQ(twice.exitStatus, 1);
    EXPECT_EQ(twice.err, "tarn serve: cannot listen at " + serve.where +
                             ": bind: Address already in use; give another --listen, or port 0 for "
                             "any\n");
    const auto nobody = Tarn({"dump", "-b", "socketcand:" + serve.where + "/can7", "-n", "1"});
    EXPECT_EQ(nobody.exitStatus, 1);
    EXPECT_THAT(nobody.err, HasSubstr("the server says \"no bus can7 here; there is desk\""));
}

TEST(ServeVerb, EndsTheVerbsOfItsClientsUnlessTheyAreToComeBack)
{
    ServeProcess serve("virtual:desk");
    const std::string bus = "socketcand:" + serve.where + "/desk";
    support::RunningCommand dump(
        {"/bin/bash", "-c", "exec " TARN_COMMAND " dump -b " + bus + " --time none 2>&1"});
    RawClient client(serve.port);
    client.OpenBus("desk");
    std::atomic<bool> isHeard{false};
    std::thread sending([&] { // it may not listen yet
        while (!isHeard && client.Say("< send 0F800001 1 20 >"))
            std::this_thread::sleep_for(milliseconds(20));
    });
    EXPECT_THAT(dump.ReadLine(), HasSubstr("READ  request"));
    isHeard = true;
    sending.join();
    serve.Stop(SIGTERM);
    std::string line;
    do
        line = dump.ReadLine();
    while (line.find("READ  request") != std::string::npos);
    EXPECT_THAT(line, testing::StartsWith("tarn dump: "));
    EXPECT_THAT(line + dump.ReadLine() + dump.ReadLine(),
                HasSubstr("the connection was lost: the server closed it"));
    EXPECT_EQ(dump.Wait(), 1);
}

TEST(ServeVerb, LetsTwoProcessesShareABus)
{
    ServeProcess serve("virtual:desk");
    const std::string bus = "socketcand:" + serve.where + "/desk";
    support::RunningCommand simulate({TARN_COMMAND, "simulate", "-b", bus,
                                      PROJECT_DIRECTORY "/examples/installations/"
                                                        "pump-station.json"});
    EXPECT_THAT(simulate.ReadLine(), HasSubstr("on desk; Ctrl-C ends"));
    const auto answer =
        Tarn({"request", "-b", bus, "--names", "examples/installations/pump-station.json",
              "--target", "pump", "--register", "speed", "--timeout", "20s"});
    EXPECT_EQ(answer.exitStatus, 0) << answer.err;
    EXPECT_EQ(answer.out, "actual=120.5 rpm\n");
    simulate.Signal(SIGINT);
    EXPECT_EQ(simulate.Wait(), 128 + SIGINT);
}

TEST(ServeVerb, PlaysALogFromTheBeginningForTheFirstWhoListens)
{
    ServeProcess serve("'log:" PROJECT_DIRECTORY "/examples/logs/startup.log?speed=max'");
    RawClient client(serve.port);
    EXPECT_EQ(client.OpenBus("log"), OPENED);
    EXPECT_THAT(client.Hear(), HasSubstr("< frame 08000005 1609779922.001000 20 >"));
    for (int i = 1; i < 20; ++i)
        EXPECT_THAT(client.Hear(), HasSubstr("< frame "));
}

TEST(ServeVerb, TellsOfItselfOnlyWhenAskedTo)
{
    const int ear = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    ASSERT_EQ(::bind(ear, reinterpret_cast<sockaddr*>(&address), size), 0);
    ASSERT_EQ(::getsockname(ear, reinterpret_cast<sockaddr*>(&address), &size), 0);
    ServeProcess serve("virtual:desk --beacon 127.0.0.1:" +
                       std::to_string(ntohs(address.sin_port)));
    pollfd input = {ear, POLLIN, 0};
    ASSERT_EQ(::poll(&input, 1, 20000), 1);
    std::string beacon(2000, '\0');
    beacon.resize(static_cast<std::size_t>(::recv(ear, beacon.data(), beacon.size(), 0)));
    ::close(ear);
    EXPECT_THAT(beacon, AllOf(HasSubstr("<CANBeacon name=\""), HasSubstr("type=\"SocketCAN\""),
                              HasSubstr("<URL>can://" + serve.where + "</URL>"),
                              HasSubstr("<Bus name=\"desk\"/></CANBeacon>")));
}

TEST(ServeVerb, NeedsLittleMemoryWhateverClientsDo)
{
    ServeProcess serve("virtual:desk");
    std::vector<std::unique_ptr<RawClient>> clients;
    for (int i = 0; i < 40; ++i) {
        clients.push_back(std::make_unique<RawClient>(serve.port));
        clients.back()->OpenBus("desk");
    }
    const long before = serve.PeakKilobytes();
    ASSERT_GT(before, 0);
    std::string frames; // everybody gets 20 MB, and nobody reads
    for (int i = 0; i < 1000; ++i)
        frames += "< send 0F800001 8 1 2 3 4 5 6 7 8 >";
    for (int i = 0; i < 300; ++i)
        clients[0]->Say(frames);
    clients[0]->Say("< echo >");
    EXPECT_EQ(clients[0]->Hear(), "< echo >");
    EXPECT_LT(serve.PeakKilobytes() - before, 100000);
}

TEST(ServeVerb, ServesPythonCan)
{
    const auto imported = support::RunCommand({"/usr/bin/python3", "-c", "import can"});
    if (imported.exitStatus != 0)
        GTEST_SKIP() << "python-can is not installed; scripts/setup test installs it";
    ServeProcess serve("virtual:desk");
    const auto result = support::RunCommand({"/usr/bin/python3",
                                             PROJECT_DIRECTORY "/tests/tools/python_can_client.py",
                                             serve.port, TARN_COMMAND});
    EXPECT_EQ(result.exitStatus, 0) << result.out << result.err;
}

} // namespace
