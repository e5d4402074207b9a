#include "support/CanFakes.h"
#include "support/LogCapture.h"
#include "support/TemporaryFolder.h"
#include "support/ThrowingChannel.h"

#include <plexa_can/CanException.h>
#include <plexa_can/CanLogReader.h>
#include <plexa_can/LogReplayDispatcher.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cmath>
#include <fcntl.h>
#include <limits>
#include <optional>
#include <stdexcept>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

namespace
{

using namespace tarn;
using namespace tarn::test;
using testing::ElementsAre;
using testing::HasSubstr;

constexpr unsigned int PATIENCE_MS = 20000;
constexpr double AT_ONCE = std::numeric_limits<double>::infinity();

using Replay = std::tr1::shared_ptr<LogReplayDispatcher>;
using Clock = std::chrono::steady_clock;

constexpr const char* THREE = "(1000000000.000000) can0 101#01\n"
                              "(1000000000.040000) can0 102#02\n"
                              "(1000000000.080000) can0 103#03\n";

class LogReplay : public testing::Test
{
protected:
    Replay Play(const std::string& log, double speed = AT_ONCE, bool loop = false) const
    {
        LogReplayDispatcher::Options options;
        options.speed = speed;
        options.loop = loop;
        return LogReplayDispatcher::Create(mFolder.File("replayed.log", log), options);
    }

    static void ExpectBalance(const Replay& replay)
    {
        const auto progress = replay->GetProgress();
        EXPECT_EQ(progress.read,
                  progress.played + progress.waiting + progress.notClassical + progress.malformed);
    }

    const TemporaryFolder mFolder;
};

TEST_F(LogReplay, GivesAllFramesInTheOrderOfTheLogToAllHandlers)
{
    FrameRecorder first;
    FrameRecorder second;
    const Replay replay = Play(THREE, 1);
    replay->Start(&first);
    replay->Start(&second);
    ASSERT_TRUE(replay->WaitUntilFinished(PATIENCE_MS));
    EXPECT_TRUE(replay->IsFinished());
    EXPECT_EQ(replay->GetFailure(), "");
    EXPECT_THAT(first.Headers(), ElementsAre(0x101u, 0x102u, 0x103u));
    EXPECT_EQ(first.Frames()[1].ToString(), "102#02");
    EXPECT_EQ(first.Frames()[1].GetTimeStamp(), 1000000000040000000u);
    EXPECT_EQ(second.Headers().back(), 0x103u);
}

TEST_F(LogReplay, WaitsForItsFirstHandler)
{
    const Replay replay = Play(THREE);
    EXPECT_FALSE(replay->WaitUntilFinished(20));
    EXPECT_EQ(replay->GetProgress().read, 0u);
    FrameRecorder handler;
    replay->Start(&handler);
    ASSERT_TRUE(replay->WaitUntilFinished(PATIENCE_MS));
    EXPECT_EQ(handler.Headers().size(), 3u);
}

TEST_F(LogReplay, TakesItsTime)
{
    const auto duration = [this](double speed) {
        FrameRecorder handler;
        const auto begin = Clock::now();
        const Replay replay = Play(THREE, speed);
        replay->Start(&handler);
        EXPECT_TRUE(replay->WaitUntilFinished(PATIENCE_MS));
        EXPECT_EQ(handler.Frames().size(), 3u);
        return Clock::now() - begin;
    };
    EXPECT_GE(duration(1), std::chrono::milliseconds(80));
    EXPECT_GE(duration(0.5), std::chrono::milliseconds(160));
    EXPECT_GE(duration(4), std::chrono::milliseconds(20));
}

constexpr const char* CENTURIES = "(0000000000.000000) can0 101#\n(9999999999.000000) can0 102#\n";

TEST_F(LogReplay, PlaysCenturiesAtOnce)
{
    FrameRecorder handler;
    const Replay replay = Play(CENTURIES);
    replay->Start(&handler);
    EXPECT_TRUE(replay->WaitUntilFinished(PATIENCE_MS));
    EXPECT_EQ(handler.Frames().size(), 2u);
}

TEST_F(LogReplay, EndsAtOnceInTheMidstOfAWait)
{
    FrameRecorder handler;
    Replay replay = Play(CENTURIES, 1);
    replay->Start(&handler);
    ASSERT_TRUE(handler.AwaitCount(1));
    ExpectBalance(replay);
    replay->Stop(&handler);
    EXPECT_FALSE(replay->IsFinished());
    replay->Start(&handler);
    replay.reset();
    EXPECT_EQ(handler.Frames().size(), 1u);
}

TEST_F(LogReplay, StandsStillWithoutHandlersAndMissesNothing)
{
    const Replay replay = Play(THREE);
    FrameRecorder handler([&](CanMessage& frame) {
        if (frame.GetHeader() == 0x102)
            replay->Stop(&handler);
    });
    replay->Start(&handler);
    ASSERT_TRUE(handler.AwaitCount(2));
    EXPECT_FALSE(replay->WaitUntilFinished(20));
    EXPECT_THAT(handler.Headers(), ElementsAre(0x101u, 0x102u));
    ExpectBalance(replay);
    FrameRecorder next;
    replay->Start(&next);
    ASSERT_TRUE(replay->WaitUntilFinished(PATIENCE_MS));
    EXPECT_THAT(next.Headers(), ElementsAre(0x103u));
    EXPECT_EQ(replay->GetCounters().delivered, 3u);
}

TEST_F(LogReplay, StopWaitsForTheRunningCall)
{
    Gate entered;
    Gate leave;
    std::atomic<bool> left{false};
    FrameRecorder handler([&](CanMessage&) {
        entered.Open();
        leave.Pass();
        left = true;
    });
    const Replay replay = Play(CENTURIES, 1);
    replay->Start(&handler);
    ASSERT_TRUE(entered.Pass());
    std::thread opener([&] { leave.Open(); });
    replay->Stop(&handler);
    EXPECT_TRUE(left);
    opener.join();
    EXPECT_EQ(handler.Frames().size(), 1u);
}

TEST_F(LogReplay, MayGoInsideItsOwnHandler)
{
    Gate started;
    Gate gone;
    Replay replay = Play(THREE);
    FrameRecorder handler([&](CanMessage&) {
        started.Pass();
        replay.reset();
        gone.Open();
    });
    replay->Start(&handler);
    started.Open();
    ASSERT_TRUE(gone.Pass());
    EXPECT_EQ(handler.Frames().size(), 1u);
}

TEST_F(LogReplay, AnExceptionOfAHandlerStopsNothing)
{
    auto capture = Poco::AutoPtr<LogCapture>(new LogCapture);
    Poco::Logger::get("LogReplayDispatcher").setChannel(capture);
    Gate bothStarted;
    FrameRecorder throwing([&](CanMessage& frame) {
        bothStarted.Pass();
        if (frame.GetHeader() == 0x102)
            throw std::runtime_error("out of paper");
    });
    FrameRecorder other;
    const Replay replay = Play(THREE);
    replay->Start(&throwing);
    replay->Start(&other);
    bothStarted.Open();
    ASSERT_TRUE(replay->WaitUntilFinished(PATIENCE_MS));
    EXPECT_EQ(throwing.Headers().size(), 3u);
    EXPECT_EQ(other.Headers().back(), 0x103u);
    EXPECT_EQ(replay->GetCounters().handlerExceptions, 1u);
    EXPECT_EQ(capture->Take(), "3 LogReplayDispatcher A frame handler threw: out of paper\n");
}

TEST_F(LogReplay, ALogThatFailsStopsNothing)
{
    const BrokenLog log("LogReplayDispatcher");
    FrameRecorder throwing([](CanMessage&) { throw std::runtime_error("out of paper"); });
    const Replay replay = Play(THREE);
    replay->Start(&throwing);
    ASSERT_TRUE(replay->WaitUntilFinished(PATIENCE_MS));
    EXPECT_EQ(throwing.Headers().size(), 3u);
    EXPECT_EQ(log.Calls(), 1);
}

TEST_F(LogReplay, CountsWhatIsNotPlayed)
{
    FrameRecorder handler;
    const Replay replay = Play("# remark\n123#\nrubbish\n123##1AA\n20000004#00\n456#R\n");
    replay->Start(&handler);
    ASSERT_TRUE(replay->WaitUntilFinished(PATIENCE_MS));
    const auto progress = replay->GetProgress();
    EXPECT_EQ(progress.read, 5u);
    EXPECT_EQ(progress.played, 3u);
    EXPECT_EQ(progress.waiting, 0u);
    EXPECT_EQ(progress.notClassical, 1u);
    EXPECT_EQ(progress.malformed, 1u);
    EXPECT_TRUE(handler.Frames()[1].HasError());
}

TEST_F(LogReplay, BeginsAgainAtTheEndOfTheLogInALoop)
{
    FrameRecorder handler;
    const Replay replay = Play(THREE, AT_ONCE, true);
    replay->Start(&handler);
    ASSERT_TRUE(handler.AwaitCount(8));
    EXPECT_FALSE(replay->IsFinished());
    replay->Stop(&handler);
    auto headers = handler.Headers();
    headers.resize(7);
    EXPECT_THAT(headers, ElementsAre(0x101u, 0x102u, 0x103u, 0x101u, 0x102u, 0x103u, 0x101u));
}

TEST_F(LogReplay, FinishesALoopWithoutFrames)
{
    FrameRecorder handler;
    const Replay replay = Play("# nothing\n", AT_ONCE, true);
    replay->Start(&handler);
    EXPECT_TRUE(replay->WaitUntilFinished(PATIENCE_MS));
}

TEST_F(LogReplay, SaysWhyALogCouldNotBeReadToItsEnd)
{
    // The header of pcap and the first byte of a packet.
    std::string log("\xD4\xC3\xB2\xA1\x02\x00\x04\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x04"
                    "\x00\xE3\x00\x00\x00\x01",
                    25);
    auto capture = Poco::AutoPtr<LogCapture>(new LogCapture);
    Poco::Logger::get("LogReplayDispatcher").setChannel(capture);
    FrameRecorder handler;
    const Replay replay = Play(log);
    replay->Start(&handler);
    ASSERT_TRUE(replay->WaitUntilFinished(PATIENCE_MS));
    EXPECT_THAT(replay->GetFailure(), HasSubstr("damaged pcap file, behind packet 0: truncated"));
    EXPECT_THAT(capture->Take(), HasSubstr("The play of a log ended: "));
    const BrokenLog broken("LogReplayDispatcher");
    const Replay again = Play(log);
    again->Start(&handler);
    EXPECT_TRUE(again->WaitUntilFinished(PATIENCE_MS)) << "a broken log ends no process";
    EXPECT_EQ(broken.Calls(), 1);
}

TEST_F(LogReplay, RecordsWhatIsSent)
{
    LogReplayDispatcher::Options options;
    options.recordPath = mFolder.PathOf("sent.log");
    const Replay replay = LogReplayDispatcher::Create(mFolder.File("a.log", THREE), options);
    CanMessage frame = ExtendedFrame(0x0F800001, {0x20});
    replay->Send(frame);
    EXPECT_THAT(mFolder.ContentOf("sent.log"), testing::EndsWith(") can0 0F800001#20 T\n"));
    CanLogReader record(mFolder.PathOf("sent.log"));
    CandumpLine entry;
    ASSERT_TRUE(record.Next(entry));
    EXPECT_GT(entry.frame.GetTimeStamp(), 1700000000000000000u);
    EXPECT_EQ(replay->GetCounters().sent, 1u);
}

std::string FailureOf(const std::function<void()>& action)
{
    try {
        action();
    } catch (const CanException& failure) {
        return failure.message();
    }
    return "no exception";
}

TEST_F(LogReplay, RefusesFramesWithoutARecord)
{
    const Replay replay = Play(THREE);
    CanMessage frame;
    EXPECT_THAT(FailureOf([&] { replay->Send(frame); }), HasSubstr("which takes none"));
    EXPECT_EQ(replay->GetCounters().sent, 0u);
}

TEST_F(LogReplay, RefusesOptionsThatCannotBe)
{
    const std::string log = mFolder.File("a.log", THREE);
    const auto refusal = [](const std::string& path, double speed, bool loop,
                            const std::string& record) {
        LogReplayDispatcher::Options options;
        options.speed = speed;
        options.loop = loop;
        options.recordPath = record;
        return FailureOf([&] { LogReplayDispatcher::Create(path, options); });
    };
    for (const double speed : {0.0, -1.0, std::nan("")})
        EXPECT_THAT(refusal(log, speed, false, ""), HasSubstr("give a factor above 0"));
    EXPECT_THAT(refusal("/dev/null", 1, true, ""), HasSubstr("no regular file"));
    EXPECT_THAT(refusal(log, 1, false, log), HasSubstr("played and recorded"));
    EXPECT_EQ(mFolder.ContentOf("a.log"), THREE);
    EXPECT_THAT(refusal("/nowhere.log", 1, false, ""), HasSubstr("/nowhere.log: cannot open"));
    EXPECT_THAT(refusal(log, 1, false, "/nowhere/a"), HasSubstr("/nowhere/a: cannot create"));
}

TEST_F(LogReplay, PlaysAFifoAsItIsWrittenAndEndsWhileItWaitsForMore)
{
    const std::string path = mFolder.PathOf("fifo");
    ASSERT_EQ(::mkfifo(path.c_str(), 0600), 0);
    const int writer = ::open(path.c_str(), O_RDWR | O_CLOEXEC);
    ASSERT_GE(writer, 0);
    ASSERT_EQ(::write(writer, "123#\n", 5), 5);
    FrameRecorder handler;
    Replay replay = LogReplayDispatcher::Create(path);
    replay->Start(&handler);
    ASSERT_TRUE(handler.AwaitCount(1));
    ASSERT_EQ(::write(writer, "456#\n", 5), 5);
    ASSERT_TRUE(handler.AwaitCount(2));
    replay.reset();
    ::close(writer);
}

} // namespace
