#include "Tarn.h"
#include "VerbRun.h"
#include "support/TemporaryFolder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <fcntl.h>
#include <thread>
#include <unistd.h>

namespace
{

using namespace tarn;
using namespace tarn::test;
using testing::EndsWith;
using testing::HasSubstr;
using testing::MatchesRegex;
using testing::StartsWith;

// Device 9 answers 1: register 17, READ, OPERATING, S16F0 1.5 -2.
constexpr unsigned int RESPONSE = 0x0F044089;
const std::vector<unsigned char> RESPONSE_DATA = {0x00, 0x30, 0x00, 0xC0, 0x50};

TEST(Dump, ShowsMessagesAsTheyComeUntilTheCountIsReached)
{
    Partner partner("dump-count");
    VerbRun dump({"dump", "-b", "virtual:dump-count", "-n", "2", "--time", "none"});
    partner.AwaitListener();
    partner.Send(RESPONSE, RESPONSE_DATA);
    partner.Send(0x0F800001, {0x20});
    EXPECT_EQ(dump.Wait(), 0);
    EXPECT_EQ(dump.out, "dump-count    9 -> 1         reg  17 (0x11)  READ  response  "
                        "OPERATING                    S16F0 1.5 -2\n"
                        "dump-count    1 -> 0         reg   0 (0x00)  READ  request   "
                        "POWERUP                      S16F0\n");
    EXPECT_THAT(dump.err,
                MatchesRegex("tarn dump: 2 shown, [0-9]+ not Tarn \\(.*remote.*\\); "
                             "dump-count: [0-9]+ received,( [0-9]+ not listened to,)? 0 dropped by "
                             "the kernel\n"));
}

TEST(Dump, StampsFramesThatHaveNoTime)
{
    Partner partner("dump-stamp");
    VerbRun dump({"dump", "-q", "-b", "virtual:dump-stamp", "-n", "1", "--json"});
    partner.AwaitListener();
    partner.Send(RESPONSE, RESPONSE_DATA);
    EXPECT_EQ(dump.Wait(), 0);
    // Seconds since 1970 that will have ten digits until the year 2286.
    EXPECT_THAT(dump.out, MatchesRegex("\\{\"time\":[0-9]{10}\\.[0-9]{6},\"interface\":"
                                       "\"dump-stamp\",\"frame\":\"0F044089#003000C050\",.*\n"));
    EXPECT_EQ(dump.err, "");
}

TEST(Dump, FiltersMessages)
{
    Partner partner("dump-filter");
    VerbRun dump({"dump", "-b", "virtual:dump-filter", "-n", "1", "--source", "9"});
    partner.AwaitListener();
    partner.Send(0x0F800001, {0x20});
    partner.Send(RESPONSE, RESPONSE_DATA);
    EXPECT_EQ(dump.Wait(), 0);
    EXPECT_THAT(dump.out, HasSubstr("  9 -> 1 "));
    EXPECT_THAT(dump.err, StartsWith("tarn dump: 1 shown, 1 filtered out, "));
}

TEST(Dump, PutsErrorFramesIntoWords)
{
    const std::string error = "(0.5) can0 20000004#0020000000000080\n";
    std::string log = "/tmp/dump-error-" + std::to_string(::getpid()) + ".log";
    const int file = ::open(log.c_str(), O_CREAT | O_WRONLY | O_TRUNC, 0600);
    ASSERT_EQ(::write(file, error.data(), error.size()), ssize_t(error.size()));
    ::close(file);
    const std::string bus = "log:" + log + "?speed=max";
    EXPECT_EQ(Tarn({"dump", "-q", "-b", bus}).out,
              "00:00:00.500000  ERROR FRAME  controller: transmit error-passive\n");
    EXPECT_EQ(Tarn({"dump", "-q", "-b", bus, "--json"}).out,
              R"({"time":0.500000,"frame":"20000004#0020000000000080",)"
              R"("error":"controller: transmit error-passive"})"
              "\n");
    EXPECT_THAT(Tarn({"dump", "-q", "-b", bus, "--csv"}).out,
                EndsWith("\n0.500000,,,20000004#0020000000000080,,,,,,,,,,,,,,,,,,,"
                         "controller: transmit error-passive\n"));
    EXPECT_EQ(Tarn({"dump", "-q", "-b", bus, "--short"}).out,
              "ERROR FRAME controller: transmit error-passive\n");
    ::unlink(log.c_str());
}

TEST(Dump, EndsAfterItsTime)
{
    const auto begin = std::chrono::steady_clock::now();
    VerbRun dump({"dump", "-b", "virtual:dump-time", "--duration", "150ms"});
    EXPECT_EQ(dump.Wait(), 0);
    EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(150));
    EXPECT_EQ(dump.err, "tarn dump: 0 shown, 0 not Tarn; dump-time: 0 received, "
                        "0 dropped by the kernel\n");
}

TEST(Dump, PlaysALogToItsEndWithoutLosingAFrame)
{
    const auto result =
        Tarn({"dump", "-b", "log:examples/logs/startup.log?speed=max", "--time", "relative"});
    EXPECT_EQ(result.exitStatus, 0);
    EXPECT_EQ(result.err, "tarn dump: 20 shown, 0 not Tarn; "
                          "log:examples/logs/startup.log?speed=max: 20 received, "
                          "0 dropped by the kernel\n");
    EXPECT_THAT(result.out, StartsWith("0.000000    5 -> g0 "));
    EXPECT_THAT(result.out, HasSubstr("\n0.001137    7 -> g0 "));
}

TEST(Dump, TimesCanBeDistances)
{
    EXPECT_THAT(Tarn({"dump", "-q", "-b", "log:examples/logs/startup.log?speed=max", "--time",
                      "delta", "-n", "3"})
                    .out,
                MatchesRegex("0\\.000000 .*\n0\\.001137 .*\n0\\.001274 .*\n"));
}

TEST(Dump, EndsOnASignalWithTheLedger)
{
    const std::string log = PROJECT_DIRECTORY "/examples/logs/startup.log";
    support::RunningCommand dump(
        {"/bin/sh", "-c", "exec " TARN_COMMAND " dump -b 'log:" + log + "?loop=1' 2>&1"});
    std::string line = dump.ReadLine();
    dump.Signal(SIGINT);
    for (std::string next = line; !next.empty(); next = dump.ReadLine())
        line = next;
    EXPECT_THAT(line, MatchesRegex("tarn dump: [0-9]+ shown, .* received, .*"));
    EXPECT_EQ(dump.Wait(), 128 + SIGINT);
}

TEST(Dump, ASignalEndsItEvenWhenNobodyReadsItsOutput)
{
    // A log without an end fills the pipe, which this test does not read.
    const TemporaryFolder folder;
    const std::string bus = PROJECT_DIRECTORY "/examples/logs/startup.log?speed=max&loop=1";
    support::RunningCommand dump(
        {"/bin/sh", "-c",
         "exec " TARN_COMMAND " dump -b 'log:" + bus + "' 2>" + folder.PathOf("errors")});
    EXPECT_NE(dump.ReadLine(), "");
    dump.Signal(SIGTERM);
    EXPECT_EQ(dump.Wait(), 128 + SIGTERM);
    EXPECT_THAT(folder.ContentOf("errors"),
                MatchesRegex("tarn dump: [0-9]+ shown, .*\n"
                             "(tarn dump: standard output: nobody reads it; [0-9]+ bytes were not "
                             "written\n)?"));
}

TEST(Dump, NamesWhatIsWrongWithTheBus)
{
    const auto none = Tarn({"dump"});
    EXPECT_EQ(none.exitStatus, 2);
    EXPECT_EQ(none.err, "tarn dump: no bus: none is named; add --bus can0, or set TARN_BUS=can0 "
                        "for all verbs\n");
    const auto unknown = Tarn({"dump", "--bus", "token:ring"});
    EXPECT_EQ(unknown.exitStatus, 1);
    EXPECT_THAT(unknown.err, HasSubstr("token"));
    EXPECT_THAT(unknown.err, HasSubstr("log:drive.log"));
}

TEST(Dump, TakesTheBusFromTheEnvironment)
{
    support::CommandSetup setup;
    setup.directory = PROJECT_DIRECTORY;
    setup.environment = {"TARN_BUS=log:examples/logs/startup.log?speed=max"};
    const auto result = support::RunCommand({TARN_COMMAND, "dump"}, setup);
    EXPECT_EQ(result.exitStatus, 0);
    EXPECT_THAT(result.err, StartsWith("tarn dump: 20 shown"));
}

} // namespace
