#include "Installation.h"
#include "Scanner.h"
#include "Simulation.h"
#include "Tarn.h"
#include "VerbRun.h"

#include <tarn/TarnAsyncDispatcher.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>

namespace
{

using namespace tarn;
using namespace tarn::test;
using namespace tarn::tool;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::MatchesRegex;

const std::string PUMP_STATION = PROJECT_DIRECTORY "/examples/installations/pump-station.json";

/// Keeps what is sent.
struct Recorder : iCanAsyncDispatcher {
    void Start(iCanMessageHandler*) override {}
    void Stop(iCanMessageHandler*) override {}
    void Send(CanMessage& frame) override { mSent.push_back(frame); }

    std::vector<CanMessage> mSent;
};

std::vector<TarnMessage> RequestsTo(unsigned char count)
{
    std::vector<TarnMessage> requests;
    for (unsigned char address = 0; address < count; ++address) {
        TarnMessage request;
        request.SetTargetAddr(address);
        requests.push_back(request);
    }
    return requests;
}

/// The answer of a device to a READ of register 0 from 1: OPERATING, U8 7.
CanMessage AnswerOf(unsigned int address)
{
    return ExtendedFrame(0x0F000080 | address, {7, 0x58});
}

TEST(Scanner, KeepsSixteenRequestsWaiting)
{
    Scanner scanner(RequestsTo(20), std::chrono::hours(1));
    Recorder bus;
    scanner.Send(bus);
    ASSERT_EQ(bus.mSent.size(), 16u);
    EXPECT_EQ(bus.mSent.back().ToString(), "0F800781#20");
    scanner.Send(bus);
    EXPECT_EQ(bus.mSent.size(), 16u);
    CanMessage answer = AnswerOf(3);
    scanner.Take(answer);
    scanner.Send(bus);
    EXPECT_EQ(bus.mSent.size(), 17u);
    EXPECT_FALSE(scanner.IsDone());
}

TEST(Scanner, IsDoneWhenAllWereAnsweredOrWaitedForLongEnough)
{
    Scanner answered(RequestsTo(1), std::chrono::hours(1));
    Recorder bus;
    answered.Send(bus);
    EXPECT_GT(answered.NextDeadline(), Scanner::Clock::now() + std::chrono::minutes(59));
    CanMessage answer = AnswerOf(0);
    answered.Take(answer);
    EXPECT_TRUE(answered.IsDone());

    Scanner late(RequestsTo(1), std::chrono::nanoseconds(1));
    late.Send(bus);
    late.Send(bus);
    EXPECT_TRUE(late.IsDone());
    EXPECT_LT(late.NextDeadline(), Scanner::Clock::now()) << "nobody would end this wait";
    EXPECT_FALSE(late.GetResults().at(0).answered);
    late.Take(answer);
    EXPECT_TRUE(late.GetResults().at(0).answered);
}

TEST(Scanner, TakesWhatWasNotAskedForAsHeard)
{
    Scanner scanner(RequestsTo(2), std::chrono::hours(1));
    Recorder bus;
    scanner.Send(bus);
    // Another register, a WRITE, to another target, with a module, a request, the same answer
    // twice.
    for (const unsigned int header :
         {0x0F004081u, 0x0E000081u, 0x0F000101u, 0x0F400081u, 0x0F800081u}) {
        CanMessage frame = ExtendedFrame(header, {7, 0x58});
        scanner.Take(frame);
    }
    EXPECT_FALSE(scanner.GetResults().at(1).answered);
    CanMessage answer = AnswerOf(1);
    scanner.Take(answer);
    scanner.Take(answer);
    EXPECT_TRUE(scanner.GetResults().at(1).answered);
    EXPECT_EQ(scanner.GetSources().at(1).count, 6u);
    CanMessage remote = ExtendedFrame(0x0F000082);
    remote.GetFlags() |= CanMessage::FLAG_REMOTE;
    scanner.Take(remote);
    EXPECT_EQ(scanner.GetSources().count(2), 0u);
}

/// The pump station on a virtual bus; its announcement is over before the scan.
class Scan : public testing::Test
{
protected:
    Scan()
    {
        mDispatcher->Start();
        const Installation plant = ReadInstallation(PUMP_STATION);
        for (const InstalledDevice& device : plant.devices) {
            if (device.simulated)
                mSimulation->Add(device);
        }
    }
    ~Scan() noexcept override
    {
        mSimulation.reset();
        mDispatcher->Stop();
    }

    int Run(std::vector<std::string> arguments)
    {
        arguments.insert(arguments.begin(), {"scan", "-b", "virtual:scan-test"});
        VerbRun run(arguments);
        const int status = run.Wait();
        mOut = run.out;
        mErr = run.err;
        return status;
    }

    const std::tr1::shared_ptr<VirtualCanBus> mBus = VirtualCanBus::Open("scan-test");
    std::tr1::shared_ptr<iTarnAsyncDispatcher> mDispatcher =
        TarnAsyncDispatcher::Create(mBus->Connect());
    std::unique_ptr<Simulation> mSimulation = std::make_unique<Simulation>(mDispatcher);
    std::string mOut;
    std::string mErr;
};

TEST_F(Scan, FindsTheDevicesOfAWholeBusInAMoment)
{
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(Run({"--register", "0x10"}), 0);
    // One after another it would take 6 seconds; eight rounds of 50 ms are 0.4.
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(4));
    EXPECT_THAT(mOut, MatchesRegex("target    register    status +type   time +values\n"
                                   "5          16 \\(0x10\\)  OPERATING +U16 .*  1205\n"
                                   "9          16 \\(0x10\\)  OPERATING +S16F4 .*  50 49.75\n"));
    EXPECT_THAT(mErr, testing::StartsWith("tarn scan: 127 asked, 2 answered; scan-test: "));
}

TEST_F(Scan, FindsModulesAndTellsNames)
{
    EXPECT_EQ(Run({"--target", "pump", "--module", "2-3", "--register", "16", "--timeout", "2s",
                   "--names", PUMP_STATION}),
              0);
    EXPECT_THAT(mOut, MatchesRegex("target .*\n"
                                   "5        pump +16 \\(0x10\\) speed +OPERATING .*"
                                   "actual=120.5 rpm\n"
                                   "5.2      pump +16 \\(0x10\\) +RESOURCE NOT EXISTING .*\n"
                                   "5.3      pump +16 \\(0x10\\) temperature +OPERATING .*"
                                   "winding=61 degC, bearing=48 degC\n"));
}

TEST_F(Scan, PrintsFindingsAsObjects)
{
    EXPECT_EQ(Run({"--target", "9", "--register", "16", "-q", "--json", "--timeout", "2s"}), 0);
    EXPECT_THAT(mOut,
                MatchesRegex("\\{\"time\":[0-9.]+,\"interface\":\"scan-test\",\"latency\":0\\."
                             "[0-9]{9},\"frame\":\"0F040089#4006380654\",.*\\}\n"));
    EXPECT_EQ(mErr, "");
}

TEST_F(Scan, EndsWithThreeWhenNobodyAnswers)
{
    EXPECT_EQ(Run({"--target", "7-8", "--timeout", "10ms"}), 3);
    EXPECT_EQ(mOut, "");
    EXPECT_THAT(mErr, testing::StartsWith("tarn scan: 2 asked, 0 answered; "));
}

TEST(ScanBus, TellsWhatItHeardMeanwhile)
{
    Partner partner("scan-heard");
    VerbRun scan({"scan", "-b", "virtual:scan-heard", "--target", "30", "--timeout", "1s",
                  "--names", PUMP_STATION});
    EXPECT_TRUE(partner.AwaitHeard(1));
    partner.Send(0x0E040085, {0xB5, 0x04, 0x59});
    partner.Send(0x0E040085, {0xB5, 0x04, 0x59});
    partner.Send(0x0E040087, {0xB5, 0x04, 0x59});
    partner.Send(0x100ABCDE, {0x78, 0x56, 0x34, 0x12, 5, 0, 0x20});
    EXPECT_EQ(scan.Wait(), 3);
    EXPECT_EQ(partner.Heard(), " 0F800F01#20");
    EXPECT_EQ(scan.out, "heard 5 pump: 2 messages\n"
                        "heard 7: 1 message\n"
                        "CHCP 00ABCDE pump: device 12345678, id 5, 1 message\n");
}

TEST(ScanBus, GoesOnListening)
{
    const auto begin = std::chrono::steady_clock::now();
    Partner partner("scan-listen");
    VerbRun scan({"scan", "-b", "virtual:scan-listen", "--target", "30", "--timeout", "1ms",
                  "--listen", "1s", "-q", "--json"});
    EXPECT_TRUE(partner.AwaitHeard(1));
    partner.Send(0x0E040087, {0xB5, 0x04, 0x59});
    EXPECT_EQ(scan.Wait(), 3);
    EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::seconds(1));
    EXPECT_THAT(scan.out, HasSubstr("\"frame\":\"0E040087#B50459\""));
    EXPECT_THAT(scan.out, testing::Not(HasSubstr("latency")));
}

TEST(ScanBus, RefusesWrongUse)
{
    EXPECT_EQ(Tarn({"scan", "-b", "virtual:x", "--target", "127"}).exitStatus, 2);
    EXPECT_EQ(Tarn({"scan", "-b", "virtual:x", "--module", "256"}).exitStatus, 2);
    EXPECT_EQ(Tarn({"scan"}).exitStatus, 2);
}

TEST(ScanBus, ASignalEndsIt)
{
    support::CommandResult result;
    // A command that has not said a word was hit before it began, on a machine that is busy.
    for (const char* seconds : {"0.5", "4", "20"}) {
        result = support::RunCommand({"/usr/bin/timeout", "--preserve-status", "-s", "INT", seconds,
                                      TARN_COMMAND, "scan", "-b", "virtual:x", "--timeout", "1h"});
        if (!result.err.empty())
            break;
    }
    EXPECT_EQ(result.exitStatus, 128 + SIGINT);
    EXPECT_THAT(result.err, HasSubstr("tarn scan: 16 asked, 0 answered; "));
}

} // namespace
