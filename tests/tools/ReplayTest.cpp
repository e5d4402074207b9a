#include "Tarn.h"
#include "VerbRun.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <fstream>
#include <unistd.h>

namespace
{

using namespace tarn;
using namespace tarn::test;
using testing::HasSubstr;
using testing::StartsWith;

constexpr const char* STARTUP = PROJECT_DIRECTORY "/examples/logs/startup.log";

/// 1 ms, 50 ms and 2 ms lie between the four frames, of two interfaces.
constexpr const char* MIXED = "(1.000) can0 00000001#\n"
                              "(1.001) can1 00000002#\n"
                              "(1.051) can0 00000003#\n"
                              "(1.053) can1 00000004#\n";

class Replay : public testing::Test
{
protected:
    ~Replay() noexcept override { std::remove(mLog.c_str()); }

    void Log(const std::string& text) const { std::ofstream(mLog) << text; }

    const std::string mLog = "/tmp/replay-" + std::to_string(::getpid()) + ".log";
};

TEST_F(Replay, SendsEveryFrameInOrder)
{
    Log(MIXED);
    Partner partner("replay-all");
    VerbRun replay({"replay", "-b", "virtual:replay-all", "--speed", "max", mLog});
    EXPECT_EQ(replay.Wait(), 0);
    partner.GetBus().WaitUntilIdle(20000);
    EXPECT_EQ(partner.Heard(), " 00000001# 00000002# 00000003# 00000004#");
    EXPECT_EQ(replay.err, "tarn replay: 4 sent; virtual:replay-all: 0 received, "
                          "0 dropped by the kernel, 4 sent\n");
}

TEST_F(Replay, KeepsTheTimeOfTheLogDividedByTheSpeed)
{
    Log(MIXED);
    for (const auto& [speed, least] : {std::pair{"1", 53}, {"0.5", 106}}) {
        const auto begin = std::chrono::steady_clock::now();
        VerbRun replay({"replay", "-q", "-b", "virtual:replay-time", "--speed", speed, mLog});
        EXPECT_EQ(replay.Wait(), 0);
        EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(least));
        EXPECT_EQ(replay.err, "");
    }
}

TEST_F(Replay, SendsEachInterfaceToItsBus)
{
    Log(MIXED);
    Partner one("replay-one");
    Partner two("replay-two");
    VerbRun replay({"replay", "--map", "can0=virtual:replay-one", "--map",
                    "can1=virtual:replay-two", "--speed", "max", mLog});
    EXPECT_EQ(replay.Wait(), 0);
    one.GetBus().WaitUntilIdle(20000);
    two.GetBus().WaitUntilIdle(20000);
    EXPECT_EQ(one.Heard(), " 00000001# 00000003#");
    EXPECT_EQ(two.Heard(), " 00000002# 00000004#");
}

TEST_F(Replay, LeavesOutInterfacesThatHaveNoBus)
{
    Log(MIXED);
    Partner partner("replay-map");
    VerbRun replay({"replay", "--map", "can1=virtual:replay-map", "--speed", "max", mLog});
    EXPECT_EQ(replay.Wait(), 0);
    partner.GetBus().WaitUntilIdle(20000);
    EXPECT_EQ(partner.Heard(), " 00000002# 00000004#");
    EXPECT_THAT(replay.err, StartsWith("tarn replay: 2 sent, 2 of other interfaces; "));
}

TEST_F(Replay, TakesFilesBehindAMap)
{
    Log(MIXED);
    Partner partner("replay-files");
    VerbRun replay({"replay", "--speed", "max", "--map", "can1=virtual:replay-files", mLog, mLog});
    EXPECT_EQ(replay.Wait(), 0) << replay.err;
    partner.GetBus().WaitUntilIdle(20000);
    EXPECT_EQ(partner.Heard(), " 00000002# 00000004# 00000002# 00000004#");
}

TEST_F(Replay, CountsWhatCannotBeSent)
{
    Log("(1.0) can0 20000040#0000000000000000\n(1.0) can0 123#R\n(1.0) can0 123##1112233\n"
        "nonsense\n# remark\n");
    Partner partner("replay-odd");
    VerbRun replay({"replay", "-b", "virtual:replay-odd", mLog});
    EXPECT_EQ(replay.Wait(), 0);
    partner.GetBus().WaitUntilIdle(20000);
    EXPECT_EQ(partner.Heard(), " 123#R");
    EXPECT_THAT(replay.err, StartsWith("tarn replay: 1 sent, 1 error frames, 1 CAN FD frames, "
                                       "1 malformed; "));
}

TEST_F(Replay, PlaysAllLogsAsOftenAsTold)
{
    Log(MIXED);
    Partner partner("replay-loop");
    VerbRun replay(
        {"replay", "-b", "virtual:replay-loop", "--speed", "max", "--loop", "2", mLog, STARTUP});
    EXPECT_EQ(replay.Wait(), 0);
    EXPECT_THAT(replay.err, StartsWith("tarn replay: 48 sent; "));
}

TEST_F(Replay, ALogWithoutFramesEndsTheLoop)
{
    Log("# nothing\n");
    VerbRun replay({"replay", "-b", "virtual:replay-none", "--loop", "0", mLog});
    EXPECT_EQ(replay.Wait(), 0);
}

TEST_F(Replay, WhatIsRecordedIsPlayedAgain)
{
    // A log bus with a record takes what is sent to it.
    const std::string record = mLog + ".record";
    const auto replay = Tarn({"replay", "-b", "log:" + mLog + "?record=" + record, "--speed", "max",
                              "examples/logs/startup.pcap"});
    EXPECT_EQ(replay.exitStatus, 1) << "the log is not there yet";
    Log(MIXED);
    EXPECT_EQ(Tarn({"replay", "-b", "log:" + mLog + "?record=" + record, "--speed", "max",
                    "examples/logs/startup.pcap"})
                  .exitStatus,
              0);
    EXPECT_EQ(Tarn({"decode", "-q", "--time", "none", "--short", record}).out,
              Tarn({"decode", "-q", "--time", "none", "--short", "examples/logs/startup.log"}).out);
    std::remove(record.c_str());
}

TEST_F(Replay, TellsWhereTheBusFailed)
{
    Log(MIXED);
    const auto result = Tarn({"replay", "-b", "log:" + mLog, mLog});
    EXPECT_EQ(result.exitStatus, 1);
    EXPECT_THAT(result.err, StartsWith("tarn replay: " + mLog + ":1: "));
    EXPECT_THAT(result.err, HasSubstr("; sent before: 0\n"));
}

TEST_F(Replay, RefusesWrongUse)
{
    EXPECT_EQ(Tarn({"replay", STARTUP}).exitStatus, 2);
    EXPECT_THAT(Tarn({"replay", STARTUP}).err, HasSubstr("no bus: none is named"));
    EXPECT_EQ(Tarn({"replay", "-b", "virtual:x", "--speed", "0", STARTUP}).exitStatus, 2);
    EXPECT_EQ(Tarn({"replay", "-b", "virtual:x", "--speed", "nan", STARTUP}).exitStatus, 2);
    EXPECT_EQ(Tarn({"replay", "--map", "can0", STARTUP}).exitStatus, 2);
    EXPECT_EQ(
        Tarn({"replay", "--map", "can0=virtual:a", "--map", "can0=virtual:b", STARTUP}).exitStatus,
        2);
    EXPECT_EQ(Tarn({"replay", "-b", "virtual:x"}).exitStatus, 2);
    EXPECT_EQ(Tarn({"replay", "-b", "virtual:x", "/nowhere"}).exitStatus, 1);
}

} // namespace
