#include "Installation.h"
#include "Simulation.h"
#include "Tarn.h"
#include "VerbRun.h"
#include "support/CaseName.h"
#include "support/TemporaryFolder.h"

#include <tarn/TarnAsyncDispatcher.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>

namespace
{

using namespace tarn;
using namespace tarn::test;
using namespace tarn::tool;
using testing::HasSubstr;
using testing::MatchesRegex;

const std::string PUMP_STATION = PROJECT_DIRECTORY "/examples/installations/pump-station.json";
const std::string TEST_BENCH = PROJECT_DIRECTORY "/examples/installations/test-bench.json";

/// Devices on a bus that delivers before Send() returns, and a client at address 1.
class Simulated : public testing::Test
{
protected:
    Simulated()
    {
        mDispatcher->Start();
        mClient->Start(&mHeard);
    }
    ~Simulated() override
    {
        mClient->Stop(&mHeard);
        mSimulation.reset();
        mDispatcher->Stop();
    }

    static VirtualCanBus::Options Inline()
    {
        VirtualCanBus::Options options;
        options.delivery = VirtualCanBus::DELIVERY_INLINE;
        return options;
    }

    void Simulate(const Installation& installation)
    {
        for (const InstalledDevice& device : installation.devices) {
            if (device.simulated)
                mSimulation->Add(device);
        }
    }

    void SimulateText(const std::string& device)
    {
        Simulate(ParseInstallation("plant.json", "{\"devices\":[" + device + "]}"));
    }

    /// The frames that come after a request, each behind a blank.
    std::string AnswersTo(unsigned int header, const std::vector<unsigned char>& data)
    {
        const std::size_t before = mHeard.Frames().size();
        CanMessage frame = ExtendedFrame(header, data);
        mClient->Send(frame);
        return HeardSince(before);
    }

    std::string HeardSince(std::size_t before)
    {
        std::string text;
        const auto frames = mHeard.Frames();
        for (std::size_t at = before; at < frames.size(); ++at)
            text += ' ' + frames[at].ToString();
        return text;
    }

    std::tr1::shared_ptr<VirtualCanBus> mBus = VirtualCanBus::Create(Inline());
    std::tr1::shared_ptr<VirtualCanNode> mClient = mBus->Connect();
    std::tr1::shared_ptr<TarnAsyncDispatcher> mDispatcher =
        TarnAsyncDispatcher::Create(mBus->Connect());
    FrameRecorder mHeard;
    std::unique_ptr<Simulation> mSimulation = std::make_unique<Simulation>(mDispatcher);
};

// READ requests from 1: register 0x10 of device 5, of its module 3, of device 9, of group 1.
constexpr unsigned int READ_PUMP = 0x0F840281;
constexpr unsigned int READ_PUMP_MODULE = 0x0FC40281;
constexpr unsigned int READ_VALVE = 0x0F840481;
constexpr unsigned int READ_GROUP = 0x0D840081;

TEST_F(Simulated, DevicesAnswerWithTheValuesOfTheFile)
{
    Simulate(ReadInstallation(PUMP_STATION));
    // 120.5 rpm in steps of 0.1 are 1205, OPERATING, U16.
    EXPECT_EQ(AnswersTo(READ_PUMP, {0x20}), " 0F040085#B50459");
    // 61 and 48 above -40 are 101 and 88, OPERATING, U8, module 3.
    EXPECT_EQ(AnswersTo(READ_PUMP_MODULE, {0x20, 3}), " 0F440085#65585803");
    // 50 and 49.75 in steps of 1/32 are 1600 and 1592, S16F4.
    EXPECT_EQ(AnswersTo(READ_VALVE, {0x20}), " 0F040089#4006380654");
}

TEST_F(Simulated, AGroupAnswersWithAllItsDevices)
{
    Simulate(ReadInstallation(PUMP_STATION));
    EXPECT_EQ(AnswersTo(READ_GROUP, {0x20}), " 0D040081#B50459 0D040081#4006380654");
}

TEST_F(Simulated, DevicesWithAMacIdentifierAnnounceThemselves)
{
    Simulate(ReadInstallation(PUMP_STATION));
    mSimulation->Announce();
    // MAC 00ABCDE, device code 12345678, identifier 5, command 0.
    EXPECT_EQ(HeardSince(0), " 100ABCDE#78563412050020");
}

TEST_F(Simulated, RegistersMayBeReadOnly)
{
    Simulate(ReadInstallation(PUMP_STATION));
    // WRITE of FLOAT 1 to register 0x11 of device 5: ACCESS NOT GRANTED.
    EXPECT_THAT(AnswersTo(0x0E844281, {0, 0, 0x80, 0x3F, 0x2D}), MatchesRegex(" 0E044085#F."));
}

TEST_F(Simulated, ValuesMove)
{
    SimulateText(R"({"name":"a","address":5,"registers":[{"name":"r","register":16,"type":"U32",
        "values":[{"name":"v","value":{"random":{"from":0,"to":4294967295,"seed":1}}}]}]})");
    const std::string first = AnswersTo(READ_PUMP, {0x20});
    EXPECT_THAT(first, MatchesRegex(" 0F040085#[0-9A-F]{8}5B"));
    EXPECT_NE(AnswersTo(READ_PUMP, {0x20}), first);
}

TEST_F(Simulated, AValueThatIsWrittenMovesNoMore)
{
    SimulateText(R"({"name":"a","address":5,"registers":[{"name":"r","register":16,"type":"U32",
        "values":[{"name":"v","value":{"random":{"from":0,"to":4294967295,"seed":1}}}]}]})");
    EXPECT_EQ(AnswersTo(0x0E840281, {1, 2, 3, 4, 0x2B}), " 0E040085#010203045B");
    EXPECT_EQ(AnswersTo(READ_PUMP, {0x20}), " 0F040085#010203045B");
}

TEST_F(Simulated, DevicesReportWithoutBeingAsked)
{
    SimulateText(R"({"name":"a","address":5,"registers":[
        {"name":"one","register":16,"type":"U8","values":[{"name":"v","value":7}]},
        {"name":"two","register":16,"module":2,"type":"U8","values":[{"name":"v","value":8}]}],
        "report":{"interval":"1h","target":1,"registers":["one","two"]}})");
    EXPECT_LE(mSimulation->NextReport(), Simulation::Clock::now());
    mSimulation->SendReports();
    // Responses to a WRITE from 5 to 1: register 16, then that of module 2.
    EXPECT_EQ(HeardSince(0), " 0E040085#0758 0E440085#085802");
    mSimulation->SendReports();
    EXPECT_EQ(mHeard.Frames().size(), 2u);
    EXPECT_GT(mSimulation->NextReport(), Simulation::Clock::now() + std::chrono::minutes(59));
    EXPECT_EQ(mSimulation->GetCounters().reports, 2u);
}

TEST_F(Simulated, ReportsMayGoToAGroup)
{
    SimulateText(R"({"name":"a","address":5,"registers":[{"name":"one","register":16,
        "type":"U8"}],"report":{"interval":"1h","group":4,"registers":["one"]}})");
    mSimulation->SendReports();
    EXPECT_EQ(HeardSince(0), " 0C040205#0058");
}

struct Fault {
    std::string name;
    std::string faults;
    std::string answer;
};

class WithFault : public Simulated, public testing::WithParamInterface<Fault>
{
};

TEST_P(WithFault, AnAnswerIsWrong)
{
    SimulateText(R"({"name":"a","address":5,"registers":[{"name":"r","register":16,"type":"U8",
        "values":[{"name":"v","value":7}]}],"faults":{)" +
                 GetParam().faults + "}}");
    EXPECT_EQ(AnswersTo(READ_PUMP, {0x20}), GetParam().answer);
}

INSTANTIATE_TEST_SUITE_P(Kinds, WithFault,
                         testing::ValuesIn(std::vector<Fault>{
                             {"None", "\"noAnswer\":0", " 0F040085#0758"},
                             {"NoAnswer", "\"noAnswer\":1", ""},
                             {"WrongRegister", "\"wrongRegister\":1", " 0F044085#0758"},
                             {"WrongSource", "\"wrongSource\":1", " 0F040084#0758"},
                             {"WrongStatus", "\"wrongStatus\":1", " 0F040085#0768"},
                             {"LateBeyondThisTest", "\"late\":1,\"lateBy\":\"1h\"", ""}}),
                         support::CaseName());

TEST_F(Simulated, ASeedMakesTheSameAnswersGoWrong)
{
    const auto device = [](const char* address) {
        return std::string("{\"name\":\"a\",\"address\":") + address +
               ",\"registers\":[{\"name\":\"r\",\"register\":16,\"type\":\"U8\"}],"
               "\"faults\":{\"noAnswer\":0.5,\"seed\":3}}";
    };
    SimulateText(device("5"));
    SimulateText(device("9"));
    int answers = 0;
    for (int count = 0; count < 200; ++count) {
        const bool answered = !AnswersTo(READ_PUMP, {0x20}).empty();
        EXPECT_EQ(!AnswersTo(READ_VALVE, {0x20}).empty(), answered);
        answers += answered ? 1 : 0;
    }
    // Outside with a probability of less than 1 in 10^8.
    EXPECT_GT(answers, 60);
    EXPECT_LT(answers, 140);
}

TEST(Simulate, RunsTheDevicesOfAFile)
{
    Partner partner("simulate-run");
    VerbRun simulate({"simulate", "-b", "virtual:simulate-run", "--duration", "1s", PUMP_STATION});
    EXPECT_TRUE(partner.AwaitHeard(1)); // the announcement of the pump
    partner.AwaitListener();
    partner.Send(READ_PUMP, {0x20});
    EXPECT_TRUE(partner.AwaitHeard(2));
    EXPECT_EQ(simulate.Wait(), 0);
    EXPECT_EQ(partner.Heard(), " 100ABCDE#78563412050020 0F040085#B50459");
    EXPECT_EQ(simulate.out, "simulating pump (5), valve (9) on simulate-run; Ctrl-C ends\n");
    EXPECT_THAT(simulate.err, MatchesRegex("tarn simulate: 1 requests, 1 answers, 0 reports; "
                                           "simulate-run: .* received, .*2 sent\n"));
}

TEST(Simulate, RunsTheChosenDevicesAlone)
{
    VerbRun simulate({"simulate", "-b", "virtual:simulate-chosen", "--duration", "10ms", "--device",
                      "9,1", PUMP_STATION});
    EXPECT_EQ(simulate.Wait(), 0);
    EXPECT_EQ(simulate.out,
              "simulating controller (1), valve (9) on simulate-chosen; Ctrl-C ends\n");
}

TEST(Simulate, SendsReportsAtTheirInterval)
{
    Partner partner("simulate-report");
    VerbRun simulate(
        {"simulate", "-q", "-b", "virtual:simulate-report", "--duration", "300ms", TEST_BENCH});
    EXPECT_EQ(simulate.Wait(), 0);
    partner.GetBus().WaitUntilIdle(20000);
    EXPECT_EQ(simulate.out + simulate.err, "");
    // Two frames every 10 ms, at most 31 times.
    const std::string heard = partner.Heard();
    const auto count = std::count(heard.begin(), heard.end(), ' ');
    EXPECT_EQ(count % 2, 0);
    EXPECT_GE(count, 4);
    EXPECT_LE(count, 62);
    // From 20 to 1, register 16: U16; register 17: S16F3.
    EXPECT_THAT(heard, MatchesRegex("( 0E040094#[0-9A-F]{4}59 0E044094#[0-9A-F]{8}53)+"));
}

TEST(Simulate, ChecksAFile)
{
    EXPECT_EQ(Tarn({"simulate", "--check", "examples/installations/test-bench.json"}).out,
              "examples/installations/test-bench.json: in order, 3 devices with 3 registers\n");
    const TemporaryFolder folder;
    const std::string file = folder.File("bad.json", "{\"devices\":[\n{\"name\":\"a\"}]}");
    const auto bad = Tarn({"simulate", "--check", file});
    EXPECT_EQ(bad.exitStatus, 1);
    EXPECT_EQ(bad.err,
              "tarn simulate: " + file + ":2: devices[0]: \"address\" is missing; add it\n");
}

TEST(Simulate, RefusesWrongUse)
{
    EXPECT_EQ(Tarn({"simulate", "-b", "virtual:x"}).exitStatus, 2);
    EXPECT_EQ(Tarn({"simulate", PUMP_STATION}).exitStatus, 2);
    const auto unknown = Tarn({"simulate", "-b", "virtual:x", "--device", "valwe", PUMP_STATION});
    EXPECT_EQ(unknown.exitStatus, 2);
    EXPECT_EQ(unknown.err, "tarn simulate: --device valwe: no such device; did you mean valve?\n");
    const TemporaryFolder folder;
    const std::string nobody = folder.File("nobody.json", "{\"devices\":[]}");
    EXPECT_EQ(Tarn({"simulate", "-b", "virtual:x", nobody}).exitStatus, 1);
}

TEST(Simulate, EndsOnASignal)
{
    support::RunningCommand simulate({TARN_COMMAND, "simulate", "-b", "virtual:x", PUMP_STATION});
    EXPECT_EQ(simulate.ReadLine(), "simulating pump (5), valve (9) on x; Ctrl-C ends");
    simulate.Signal(SIGINT);
    EXPECT_EQ(simulate.Wait(), 128 + SIGINT);
}

} // namespace
