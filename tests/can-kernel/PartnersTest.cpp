#include "BareCan.h"
#include "support/CanFakes.h"
#include "support/RunCommand.h"
#include "support/TemporaryFolder.h"

#include <plexa_can/CanLogReader.h>
#include <plexa_can/CanLogWriter.h>
#include <plexa_can/LogReplayDispatcher.h>
#include <plexa_can/SocketCanDispatcher.h>
#include <tarn/TarnAsyncDispatcher.h>
#include <tarn/TarnMessage.h>
#include <tarn/iTarnMessageHandler.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <limits>
#include <string>
#include <vector>

// can-utils and python-can as partners. What is on the bus is written out by hand.

namespace
{

using namespace tarn;
using namespace tarn::test;
using support::RunCommand;
using support::RunningCommand;
using testing::ElementsAreArray;

using Texts = std::vector<std::string>;

const Texts EVERY_LENGTH = {
    "1F800000#",
    "1F800001#11",
    "1F800002#1122",
    "1F800003#112233",
    "1F800004#11223344",
    "1F800005#1122334455",
    "1F800006#112233445566",
    "1F800007#11223344556677",
    "1FFFFFFF#1122334455667788",
    "000#",
    "101#FF",
    "202#FFEE",
    "303#FFEEDD",
    "404#FFEEDDCC",
    "505#FFEEDDCCBB",
    "606#FFEEDDCCBBAA",
    "707#FFEEDDCCBBAA99",
    "7FF#FFEEDDCCBBAA9988",
    "00000000#",
    "0ABCDEF1#R",
    "321#R",
};

struct TarnRow {
    const char* frame;
    std::function<TarnMessage()> message;
};

/// A request to address 9 for register 18. The identifier is 0F848481, of
///     0F800001  priority DATA, addressing DEVICE, READ, REQUEST, source address 1
///     00048000  register 18 in bits 14 to 21
///     00000480  target address 9 in bits 7 to 13
/// and 00400000 more in EXTENDED mode.
TarnMessage Request(unsigned char module)
{
    TarnMessage message;
    message.SetRegister(18);
    message.SetTargetAddr(9);
    message.SetModule(module);
    return message;
}

template <typename Value>
TarnMessage With(unsigned char module, std::vector<Value> values)
{
    TarnMessage message = Request(module);
    EXPECT_TRUE(message.SetData(values));
    return message;
}

using Bytes = std::vector<unsigned char>;

TarnMessage ExtendedWithoutModule()
{
    TarnMessage message = With<unsigned char>(0, Bytes{0x11, 0x22, 0x33, 0x44, 0x55, 0x66});
    message.SetAddressingMode(TarnMessage::ADDRESSING_MODE_EXTENDED);
    return message;
}

TarnMessage Chcp()
{
    TarnMessage message;
    message.SetChcpMacID(0xABCDEF1);
    message.SetChcpDeviceCode(static_cast<TarnMessage::tTarnDeviceCode>(0x44332211));
    message.SetChcpID(0x45);
    message.SetChcpCommand(TarnMessage::CHCP_COMMAND_3);
    return message;
}

/// The payload, then a byte of the status, which is 2 here, and the data type, then the module.
const std::vector<TarnRow> TARN_ROWS = {
    {"0F848481#20", [] { return Request(0); }},
    {"0F848481#1128", [] { return With(0, Bytes{0x11}); }},
    {"0F848481#112228",
     [] {
         return With(0, Bytes{0x11, 0x22});
     }},
    {"0F848481#11223328",
     [] {
         return With(0, Bytes{0x11, 0x22, 0x33});
     }},
    {"0F848481#1122334428",
     [] {
         return With(0, Bytes{0x11, 0x22, 0x33, 0x44});
     }},
    {"0F848481#112233445528",
     [] {
         return With(0, Bytes{0x11, 0x22, 0x33, 0x44, 0x55});
     }},
    {"0F848481#11223344556628",
     [] {
         return With(0, Bytes{0x11, 0x22, 0x33, 0x44, 0x55, 0x66});
     }},
    {"0FC48481#2005", [] { return Request(5); }},
    {"0FC48481#112805", [] { return With(5, Bytes{0x11}); }},
    {"0FC48481#11222805",
     [] {
         return With(5, Bytes{0x11, 0x22});
     }},
    {"0FC48481#1122332805",
     [] {
         return With(5, Bytes{0x11, 0x22, 0x33});
     }},
    {"0FC48481#112233442805",
     [] {
         return With(5, Bytes{0x11, 0x22, 0x33, 0x44});
     }},
    {"0FC48481#11223344552805",
     [] {
         return With(5, Bytes{0x11, 0x22, 0x33, 0x44, 0x55});
     }},
    {"0FC48481#11223344556628FF",
     [] {
         return With(255, Bytes{0x11, 0x22, 0x33, 0x44, 0x55, 0x66});
     }},
    {"0FC48481#1122334455662800", ExtendedWithoutModule},
    {"0F848481#11223344556629",
     [] {
         return With<unsigned short>(0, {0x2211, 0x4433, 0x6655});
     }},
    {"0F848481#1122334455662A",
     [] {
         return With<tarn_u24_t>(0, {{0x332211}, {0x665544}});
     }},
    {"0F848481#112233442B", [] { return With<unsigned int>(0, {0x44332211}); }},
    {"0F848481#1122334455662C", [] { return With<unsigned long long>(0, {0x665544332211}); }},
    {"0FC48481#0000803F2D05", [] { return With<double>(5, {1.0}); }}, // binary32 3F800000
    {"0F848481#002020", [] { return With<float>(0, {1.0F}); }},       // 8192 steps of 2^-13
    {"0F848481#009C23", [] { return With<float>(0, {-200.0F}); }},    // -25600 steps of 2^-7
    {"1ABCDEF1#11223344450320", Chcp},
};

Texts TarnFrames()
{
    Texts frames;
    for (const TarnRow& row : TARN_ROWS)
        frames.emplace_back(row.frame);
    return frames;
}

/// Of "(1609779922.655421) vcan0 0F800001#20" the frame.
std::string FrameOf(const std::string& logLine)
{
    return logLine.substr(logLine.rfind(' ') + 1);
}

Texts ReadFrames(RunningCommand& program, std::size_t count)
{
    Texts frames;
    for (std::size_t i = 0; i < count; ++i)
        frames.push_back(FrameOf(program.ReadLine()));
    return frames;
}

Texts TextsOf(FrameRecorder& recorder)
{
    Texts frames;
    for (const CanMessage& frame : recorder.Frames())
        frames.push_back(frame.ToString());
    return frames;
}

CanMessage FrameFrom(const std::string& text)
{
    CandumpLine line;
    EXPECT_TRUE(ParseCandumpLine(text.data(), text.size(), line)) << text;
    return line.frame;
}

void CanSend(const Texts& frames)
{
    std::string commands;
    for (const std::string& frame : frames)
        commands += (commands.empty() ? "cansend vcan0 " : " && cansend vcan0 ") + frame;
    Shell(commands);
}

std::tr1::shared_ptr<SocketCanDispatcher> OpenForAllFrames()
{
    SocketCanDispatcher::Options options;
    options.filters = {{0, 0}};
    return SocketCanDispatcher::Create("vcan0", options);
}

/// Lines of candump -L; listens when made.
class Candump
{
public:
    explicit Candump(std::size_t frames)
        : mCount(frames),
          mProgram({"/usr/bin/candump", "-L", "-n", std::to_string(frames), "vcan0"})
    {
        EXPECT_TRUE(AwaitListener("vcan0"));
    }

    Texts Lines()
    {
        Texts lines;
        for (std::size_t i = 0; i < mCount; ++i)
            lines.push_back(mProgram.ReadLine());
        EXPECT_EQ(mProgram.Wait(), 0);
        return lines;
    }

    Texts Frames()
    {
        Texts frames;
        for (const std::string& line : Lines())
            frames.push_back(FrameOf(line));
        return frames;
    }

private:
    std::size_t mCount;
    RunningCommand mProgram;
};

class MessageRecorder : public iTarnMessageHandler
{
public:
    ~MessageRecorder() noexcept override {}

    bool DispatchResponse(TarnMessage& message) override
    {
        const std::lock_guard<std::mutex> lock(mMutex);
        mMessages.push_back(message);
        mChanged.notify_all();
        return false;
    }

    std::vector<TarnMessage> Await(std::size_t count)
    {
        std::unique_lock<std::mutex> lock(mMutex);
        EXPECT_TRUE(mChanged.wait_for(lock, PATIENCE, [&] { return mMessages.size() >= count; }));
        return mMessages;
    }

private:
    std::mutex mMutex;
    std::condition_variable mChanged;
    std::vector<TarnMessage> mMessages;
};

TEST(CanUtils, CandumpSeesEveryLengthByteForByte)
{
    const auto dispatcher = SocketCanDispatcher::Create("vcan0");
    Candump candump(EVERY_LENGTH.size());
    for (const std::string& text : EVERY_LENGTH) {
        CanMessage frame = FrameFrom(text);
        dispatcher->Send(frame);
    }
    EXPECT_THAT(candump.Frames(), ElementsAreArray(EVERY_LENGTH));
}

TEST(CanUtils, CansendIsHeardInEveryLengthByteForByte)
{
    const auto dispatcher = OpenForAllFrames();
    FrameRecorder recorder;
    dispatcher->Start(&recorder);
    CanSend(EVERY_LENGTH);
    EXPECT_TRUE(recorder.AwaitCount(EVERY_LENGTH.size()));
    dispatcher->Stop(&recorder);
    EXPECT_THAT(TextsOf(recorder), ElementsAreArray(EVERY_LENGTH));
}

TEST(CanUtils, CandumpSeesMessagesOfEveryLengthModeAndType)
{
    const auto dispatcher = TarnAsyncDispatcher::Create(SocketCanDispatcher::Create("vcan0"));
    Candump candump(TARN_ROWS.size());
    for (const TarnRow& row : TARN_ROWS) {
        TarnMessage message = row.message();
        dispatcher->Send(message);
    }
    EXPECT_THAT(candump.Frames(), ElementsAreArray(TarnFrames()));
}

TEST(CanUtils, CansendReachesHandlersAsMessagesOfEveryLengthModeAndType)
{
    const auto dispatcher = TarnAsyncDispatcher::Create(SocketCanDispatcher::Create("vcan0"));
    MessageRecorder all;
    MessageRecorder target;
    MessageRecorder chcp;
    dispatcher->SubscribeAll(&all);
    dispatcher->SubscribeTarget(9, &target);
    dispatcher->SubscribeChcp(&chcp);
    dispatcher->Start();
    CanSend(TarnFrames());
    const auto messages = all.Await(TARN_ROWS.size());
    dispatcher->Stop();
    ASSERT_EQ(messages.size(), TARN_ROWS.size());
    for (std::size_t i = 0; i < messages.size(); ++i)
        EXPECT_TRUE(messages[i] == TARN_ROWS[i].message()) << TARN_ROWS[i].frame << " came as\n"
                                                           << messages[i].ToString();
    EXPECT_EQ(target.Await(22).size(), 22u);
    EXPECT_EQ(chcp.Await(1).size(), 1u);
}

TEST(PythonCan, ReceivesAndSendsEveryLengthRemoteRequestsAndErrorFrames)
{
    const auto dispatcher = OpenForAllFrames();
    FrameRecorder recorder;
    dispatcher->Start(&recorder);
    Texts frames = EVERY_LENGTH;
    frames.emplace_back("20000040#0000000000000000");
    frames.emplace_back("20000004#0010000000000000");
    std::vector<std::string> command = {"/usr/bin/python3", PYTHON_PARTNER,
                                        std::to_string(frames.size())};
    command.insert(command.end(), frames.begin(), frames.end());
    RunningCommand python(command);
    ASSERT_EQ(python.ReadLine(), "ready");
    for (const std::string& text : frames) {
        CanMessage frame = FrameFrom(text);
        dispatcher->Send(frame);
    }
    EXPECT_THAT(ReadFrames(python, frames.size()), ElementsAreArray(frames));
    EXPECT_EQ(python.Wait(), 0);
    EXPECT_TRUE(recorder.AwaitCount(frames.size()));
    dispatcher->Stop(&recorder);
    EXPECT_THAT(TextsOf(recorder), ElementsAreArray(frames));
    EXPECT_EQ(dispatcher->GetCounters().errorFrames, 2u);
}

// Logs.

/// The frames a millisecond apart, as candump -l writes them.
std::string LogOf(const Texts& frames)
{
    std::string log;
    unsigned int time = 100000;
    for (const std::string& frame : frames)
        log += "(1609779922." + std::to_string(time += 1000) + ") vcan0 " + frame + "\n";
    return log;
}

Texts FramesOfLog(const std::string& path)
{
    CanLogReader reader(path);
    CandumpLine entry;
    Texts frames;
    while (reader.NextFrame(entry))
        frames.push_back(entry.frame.ToString());
    EXPECT_EQ(reader.GetCounters().malformed, 0u);
    return frames;
}

Texts Replay(const std::string& path, const std::string& recordPath)
{
    LogReplayDispatcher::Options options;
    options.speed = std::numeric_limits<double>::infinity();
    options.recordPath = recordPath;
    const auto replay = LogReplayDispatcher::Create(path, options);
    FrameRecorder recorder([&](CanMessage& frame) { replay->Send(frame); });
    replay->Start(&recorder);
    EXPECT_TRUE(replay->WaitUntilFinished(20000));
    replay->Stop(&recorder);
    return TextsOf(recorder);
}

Texts HearCanplayer(const std::string& path, std::size_t count)
{
    const auto dispatcher = OpenForAllFrames();
    FrameRecorder recorder;
    dispatcher->Start(&recorder);
    // The record names the interface can0.
    Shell("canplayer -I " + path + " vcan0=vcan0 vcan0=can0");
    EXPECT_TRUE(recorder.AwaitCount(count));
    dispatcher->Stop(&recorder);
    return TextsOf(recorder);
}

TEST(CanLogs, CanplayerAndReplayBringTheSameFrames)
{
    const TemporaryFolder folder;
    const std::string log = folder.File("drive.log", LogOf(EVERY_LENGTH));
    const std::string record = folder.PathOf("record.log");
    EXPECT_THAT(Replay(log, record), ElementsAreArray(EVERY_LENGTH));
    EXPECT_THAT(HearCanplayer(log, EVERY_LENGTH.size()), ElementsAreArray(EVERY_LENGTH));
    EXPECT_THAT(HearCanplayer(record, EVERY_LENGTH.size()), ElementsAreArray(EVERY_LENGTH));
}

TEST(CanLogs, WhatCandumpLoggedIsReadFrameByFrameWithItsTimes)
{
    Candump candump(EVERY_LENGTH.size());
    CanSend(EVERY_LENGTH);
    std::string log;
    for (const std::string& line : candump.Lines())
        log += line + "\n";
    const TemporaryFolder folder;
    const std::string path = folder.File("candump.log", log);
    EXPECT_THAT(FramesOfLog(path), ElementsAreArray(EVERY_LENGTH));
    // Written again, it is the same log byte by byte.
    CanLogReader reader(path);
    CanLogWriter writer(folder.PathOf("again.log"));
    CandumpLine entry;
    while (reader.NextFrame(entry))
        writer.Write(entry);
    writer.Close();
    EXPECT_EQ(folder.ContentOf("again.log"), log);
}

TEST(CanLogs, CanplayerAndLog2ascReadWhatCanLogWriterWrote)
{
    const TemporaryFolder folder;
    const std::string path = folder.PathOf("written.log");
    CanLogWriter::Options options;
    options.interfaceName = "vcan0";
    CanLogWriter writer(path, options);
    const Texts frames = {"0F848481#1128", "1ABCDEF1#11223344450320", "7FF#FFEEDDCCBBAA9988"};
    unsigned long long time = 1609779922000000000ull;
    for (const std::string& text : frames) {
        CanMessage frame = FrameFrom(text);
        frame.SetTimeStamp(time += 250000000);
        writer.Write(frame);
    }
    writer.Close();

    Candump candump(frames.size());
    Shell("canplayer -t -I " + path);
    EXPECT_THAT(candump.Frames(), ElementsAreArray(frames));

    const auto asc = RunCommand({"/usr/bin/log2asc", "-I", path, "vcan0"});
    EXPECT_EQ(asc.exitStatus, 0);
    // Behind two lines with date and base.
    EXPECT_THAT(asc.out, testing::HasSubstr(
                             "   0.000000 1  F848481x        Rx   d 2 11 28\n"
                             "   0.250000 1  1ABCDEF1x       Rx   d 7 11 22 33 44 45 03 20\n"
                             "   0.500000 1  7FF             Rx   d 8 FF EE DD CC BB AA 99 88\n"));
}

} // namespace
