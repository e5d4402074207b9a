#include "support/CallFaults.h"
#include "support/CaseName.h"
#include "support/DispatchFakes.h"
#include "support/EntriesOf.h"
#include "support/LoopbackServer.h"
#include "support/OwnProcess.h"
#include "support/TemporaryFolder.h"

#include <plexa_can/BusName.h>
#include <plexa_can/CanBus.h>
#include <plexa_can/CanException.h>
#include <plexa_can/CanLogReader.h>
#include <plexa_can/CanLogWriter.h>
#include <plexa_can/CanTiming.h>
#include <plexa_can/CandumpLine.h>
#include <plexa_can/LineReader.h>
#include <plexa_can/LogReplayDispatcher.h>
#include <plexa_can/ReplaySchedule.h>
#include <plexa_can/SocketCanDispatcher.h>
#include <plexa_can/SocketCandDispatcher.h>
#include <plexa_can/SocketCandText.h>
#include <plexa_can/VirtualCanBus.h>

#include <Poco/Logger.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstring>
#include <functional>
#include <memory>
#include <net/if.h>
#include <new>
#include <optional>
#include <ostream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <time.h>
#include <unistd.h>
#include <vector>

// Every operation of every bus is run again and again, each time in a process of its own, and the
// first, the second, ... of its allocations, locks, waits, threads and system calls is made to
// fail, on whatever thread, until it gets through untouched. Whatever fails: the operation ends
// with its result or a stated exception, the figures add up, the bus then works as ever, and when
// it has gone, no memory, thread or descriptor is left.

namespace
{

using namespace tarn;
using namespace tarn::test;
using support::CallFault;
using support::SparedThreads;

/// Without a lock or a wait that could be made to fail.
void Nap()
{
    const timespec time = {0, 500000};
    ::nanosleep(&time, nullptr);
}

bool Await(const std::function<bool()>& condition, std::chrono::milliseconds patience)
{
    const auto end = std::chrono::steady_clock::now() + patience;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > end)
            return false;
        Nap();
    }
    return true;
}

constexpr std::chrono::seconds LONG(10);

CanMessage AnyFrame()
{
    return DataFrame(5, 9);
}

/// What tells afterwards whether the bus works; what was sent before may still be under way.
constexpr unsigned int PROBE = 0x0F0000AA;

class Counting : public iCanMessageHandler
{
public:
    ~Counting() noexcept override {}
    void DispatchResponse(CanMessage& frame) override
    {
        if (frame.GetHeader() == PROBE)
            ++mProbes;
        else if (mThrows)
            throw std::runtime_error("a text that is too long to be kept without an allocation");
    }
    std::atomic<bool> mThrows{false};
    std::atomic<unsigned int> mProbes{0};
};

class Listener : public iCanBusStateListener
{
public:
    ~Listener() noexcept override {}
    void OnBusState(tCanBusState) override {}
};

/// A bus with a connection to try things on, and another one that nothing happens to.
struct World {
    std::tr1::shared_ptr<VirtualCanBus> bus; ///< of the virtual ones, and of the one served
    std::optional<LoopbackServer> server;
    std::string name;
    std::tr1::shared_ptr<iCanBus> subject;
    std::tr1::shared_ptr<iCanBus> peer;
    TemporaryFolder folder;
    Counting atSubject;
    Counting atPeer;
    Listener listener;
    CanMessage frame = AnyFrame();
    unsigned long long sends = 0; ///< calls of the subject's Send()
    bool threw = false;           ///< the operation
    bool losesConnection = false; ///< its thread of receiving failed
    std::string path;
    std::unique_ptr<CanLogReader> reader;
    std::unique_ptr<CanLogWriter> writer;
    CandumpLine line;
    std::optional<LineReader> lines;
    std::vector<unsigned char> bytes = {1, 2, 3};
    SocketCandElement element;

    template <typename Bus>
    Bus& As()
    {
        return dynamic_cast<Bus&>(*subject);
    }
};

void SendFromSubject(World& world, CanMessage& frame)
{
    ++world.sends;
    world.subject->Send(frame);
}

void SendFromSubject(World& world)
{
    SendFromSubject(world, world.frame);
}

void SendFromPeer(World& world, CanMessage& frame)
{
    const SparedThreads spared;
    world.peer->Send(frame);
}

void SendFromPeer(World& world)
{
    SendFromPeer(world, world.frame);
}

bool IsConnected(World& world)
{
    const auto tcp = std::tr1::dynamic_pointer_cast<SocketCandDispatcher>(world.subject);
    return tcp == nullptr || tcp->IsConnected();
}

/// A connection over TCP that cannot receive is lost, which shows a moment later.
void AwaitLoss(World& world)
{
    const auto tcp = std::tr1::dynamic_pointer_cast<SocketCandDispatcher>(world.subject);
    if (tcp != nullptr && world.losesConnection)
        Await([&] { return tcp->GetCounters().disconnections != 0; }, std::chrono::seconds(1));
}

/// True when frames go both ways, each once.
bool Works(World& world)
{
    AwaitLoss(world);
    if (!Await([&] { return IsConnected(world); }, LONG))
        return false;
    world.subject->Start(&world.atSubject);
    world.peer->Start(&world.atPeer);
    CanMessage probe = test::MakeFrame(PROBE, {1});
    for (int i = 0; i < 3; ++i) {
        SendFromSubject(world, probe);
        SendFromPeer(world, probe);
    }
    return Await([&] { return world.atSubject.mProbes == 3 && world.atPeer.mProbes == 3; }, LONG);
}

std::string LedgerComplaint(World& world)
{
    const auto adds = [&] {
        const CanBusCounters c = world.subject->GetCounters();
        return c.received == c.delivered + c.unheard + c.filtered &&
               c.sent + c.sendFailures == world.sends;
    };
    if (!Await(adds, std::chrono::seconds(2)))
        return " and the figures do not add up";
    if (!world.bus)
        return {};
    const VirtualCanBus::Counters c = world.bus->GetCounters();
    const bool right =
        c.sent == c.onBus + c.waitingToSend + c.unsent &&
        c.copies + c.duplicated + c.errorFrames == c.delivered + c.waiting + c.lost + c.unheard;
    return right ? std::string() : " and the figures of the whole bus do not add up";
}

struct Row {
    std::string name;
    std::function<void(World&)> prepare;
    std::function<void(World&)> run;
    std::function<std::string(World&)> complaint;
};

void PrintTo(const Row& row, std::ostream* out)
{
    *out << row.name;
}

// Buses.

/// A name of its own in the process.
void NameBus(World& world, const std::string& kind)
{
    if (kind == "SocketCan") {
        world.name = "socketcan:vcan0";
    } else if (kind == "SocketCand") {
        const SparedThreads spared;
        world.bus = VirtualCanBus::Create();
        world.server.emplace(world.bus->Connect());
        world.name = world.server->BusName() + "?reconnect=1";
    } else {
        const std::string query = kind == "Inline"  ? "?delivery=inline"
                                  : kind == "Paced" ? "?bitrate=1000000"
                                                    : "";
        world.name = "virtual:swept" + query;
    }
}

void OpenPeer(World& world)
{
    const SparedThreads spared;
    if (world.server) {
        world.peer = world.bus->Connect();
    } else {
        world.peer = CanBus::Open(world.name);
        if (world.name.rfind("virtual:", 0) == 0)
            world.bus = VirtualCanBus::Open("swept");
    }
    world.peer->Start(&world.atPeer);
}

void OpenSubject(World& world)
{
    world.subject = CanBus::Open(world.name);
}

std::string BusComplaint(World& world)
{
    if (!world.subject)
        OpenSubject(world);
    std::string text = Works(world) ? "" : " and the bus does not work";
    text += LedgerComplaint(world);
    return text;
}

std::vector<Row> RowsOf(const std::string& kind)
{
    const auto named = [kind](World& world) { NameBus(world, kind); };
    const auto opened = [kind](World& world) {
        NameBus(world, kind);
        OpenPeer(world);
        OpenSubject(world);
    };
    const auto started = [opened](World& world) {
        opened(world);
        world.subject->Start(&world.atSubject);
    };
    const auto bus = [](World& world) { return BusComplaint(world); };
    // A frame is sent or refused, and the figures say which.
    const auto sent = [](World& world) {
        const CanBusCounters c = world.subject->GetCounters();
        const bool right =
            world.threw ? c.sent == 0 && c.sendFailures == 1 : c.sent == 1 && c.sendFailures == 0;
        return (right ? "" : " and it counts otherwise") + BusComplaint(world);
    };
    const auto first = [](World& world) {
        if (!world.subject)
            OpenSubject(world);
        OpenPeer(world);
        return BusComplaint(world);
    };
    std::vector<Row> rows = {
        {"Open", named, OpenSubject, first},
        {"Start", opened, [](World& w) { w.subject->Start(&w.atSubject); }, bus},
        {"StartAgain", started, [](World& w) { w.subject->Start(&w.atSubject); }, bus},
        {"Stop", started, [](World& w) { w.subject->Stop(&w.atSubject); }, bus},
        {"Send", opened, [](World& w) { SendFromSubject(w); }, sent},
        {"SendStarted", started, [](World& w) { SendFromSubject(w); }, sent},
        {"Receive", started,
         [](World& w) {
             SendFromPeer(w);
             Await([&] { return w.subject->GetCounters().delivered == 1; },
                   std::chrono::milliseconds(300));
         },
         bus},
        {"ReceiveThrowing", started,
         [](World& w) {
             w.atSubject.mThrows = true;
             SendFromPeer(w);
             Await([&] { return w.subject->GetCounters().handlerExceptions == 1; },
                   std::chrono::milliseconds(300));
         },
         bus},
        {"GetCounters", started, [](World& w) { w.subject->GetCounters(); }, bus},
        {"Close", started,
         [](World& w) {
             w.sends = 0;
             w.subject.reset();
         },
         bus}};
    for (Row& row : rows)
        row.name = kind + row.name;
    return rows;
}

[[maybe_unused]] std::vector<Row> VirtualRows()
{
    const auto started = [](World& world) {
        NameBus(world, "Threaded");
        OpenPeer(world);
        OpenSubject(world);
        world.subject->Start(&world.atSubject);
    };
    const auto bus = [](World& world) {
        world.As<VirtualCanNode>().SetBusOff(false);
        return BusComplaint(world);
    };
    VirtualCanBus::Faults faults;
    faults.delay = 1;
    return {
        {"BusSetFaults", started, [faults](World& w) { w.bus->SetFaults(faults); }, bus},
        {"BusGetCounters", started, [](World& w) { w.bus->GetCounters(); }, bus},
        {"BusWaitUntilIdle", started, [](World& w) { w.bus->WaitUntilIdle(1000); }, bus},
        {"BusConnect", started, [](World& w) { w.bus->Connect(); }, bus},
        {"BusCreate", started, [](World&) { VirtualCanBus::Create(); }, bus},
        {"NodeSetBusOff", started, [](World& w) { w.As<VirtualCanNode>().SetBusOff(true); }, bus},
    };
}

[[maybe_unused]] std::vector<Row> SocketCandRows()
{
    const auto started = [](World& world) {
        NameBus(world, "SocketCand");
        OpenPeer(world);
        OpenSubject(world);
        world.subject->Start(&world.atSubject);
    };
    const auto bus = [](World& world) { return BusComplaint(world); };
    return {{"SocketCandIsConnected", started,
             [](World& w) { w.As<SocketCandDispatcher>().IsConnected(); }, bus},
            {"SocketCandGetFailure", started,
             [](World& w) { w.As<SocketCandDispatcher>().GetFailure(); }, bus},
            {"SocketCandParseAddress", started,
             [](World&) { ParseSocketCandAddress("[::1]:29536/can0"); }, bus}};
}

[[maybe_unused]] std::vector<Row> SocketCanRows()
{
    const auto started = [](World& world) {
        NameBus(world, "SocketCan");
        OpenPeer(world);
        OpenSubject(world);
        world.subject->Start(&world.atSubject);
    };
    const auto bus = [](World& world) { return BusComplaint(world); };
    return {
        {"SocketCanGetBusState", started,
         [](World& w) { w.As<SocketCanDispatcher>().GetBusState(); }, bus},
        {"SocketCanAddStateListener", started,
         [](World& w) { w.As<SocketCanDispatcher>().AddStateListener(&w.listener); },
         [bus](World& w) {
             w.As<SocketCanDispatcher>().RemoveStateListener(&w.listener);
             return bus(w);
         }},
        {"SocketCanRemoveStateListener",
         [started](World& w) {
             started(w);
             w.As<SocketCanDispatcher>().AddStateListener(&w.listener);
         },
         [](World& w) { w.As<SocketCanDispatcher>().RemoveStateListener(&w.listener); }, bus},
        {"SocketCanIsRealTime", started, [](World& w) { w.As<SocketCanDispatcher>().IsRealTime(); },
         bus},
    };
}

// Logs.

constexpr const char* LOG = "(1.000000) can0 0F000102#50\n"
                            "(1.000100) can0 10000005#01020304050010\n"
                            "(1.000200) can0 0F000102#51\n";

void WriteLog(World& world)
{
    world.path = world.folder.File("a.log", LOG);
    world.name = "log:" + world.path + "?speed=max&record=" + world.folder.PathOf("record.log");
}

LogReplayDispatcher& Replay(World& world)
{
    return world.As<LogReplayDispatcher>();
}

/// Plays to the end, or says why it did not; all that was read is accounted for.
std::string ReplayComplaint(World& world)
{
    if (!world.subject)
        OpenSubject(world);
    world.subject->Start(&world.atSubject);
    if (!Await([&] { return Replay(world).IsFinished(); }, LONG))
        return " and the play has no end";
    const LogReplayDispatcher::Progress p = Replay(world).GetProgress();
    const std::string failure = Replay(world).GetFailure();
    if (failure.empty() && p.played != 3)
        return " and frames are missing without a word";
    if (p.read != p.played + p.waiting + p.notClassical + p.malformed)
        return " and the progress does not add up";
    const CanBusCounters c = world.subject->GetCounters();
    if (c.sent + c.sendFailures != world.sends)
        return " and the frames sent are not accounted for";
    try {
        SendFromSubject(world);
    } catch (const CanException&) {
        return c.sendFailures != 0 ? "" : " and the record takes no frame";
    }
    return {};
}

[[maybe_unused]] std::vector<Row> ReplayRows()
{
    const auto opened = [](World& world) {
        WriteLog(world);
        OpenSubject(world);
    };
    const auto played = [opened](World& world) {
        opened(world);
        world.subject->Start(&world.atSubject);
        Await([&] { return Replay(world).IsFinished(); }, LONG);
    };
    return {
        {"ReplayCreate", WriteLog, OpenSubject, ReplayComplaint},
        {"ReplayStart", opened,
         [](World& w) {
             w.subject->Start(&w.atSubject);
             Await([&] { return Replay(w).IsFinished(); }, LONG);
         },
         ReplayComplaint},
        {"ReplayStop", played, [](World& w) { w.subject->Stop(&w.atSubject); }, ReplayComplaint},
        {"ReplaySend", opened, [](World& w) { SendFromSubject(w); }, ReplayComplaint},
        {"ReplayIsFinished", played, [](World& w) { Replay(w).IsFinished(); }, ReplayComplaint},
        {"ReplayWaitUntilFinished", opened, [](World& w) { Replay(w).WaitUntilFinished(2); },
         ReplayComplaint},
        {"ReplayGetFailure", played, [](World& w) { Replay(w).GetFailure(); }, ReplayComplaint},
        {"ReplayGetProgress", played, [](World& w) { Replay(w).GetProgress(); }, ReplayComplaint},
        {"ReplayGetCounters", played, [](World& w) { w.subject->GetCounters(); }, ReplayComplaint},
        {"ReplayClose", opened,
         [](World& w) {
             w.subject->Start(&w.atSubject);
             w.subject.reset();
         },
         ReplayComplaint}};
}

void OpenReader(World& world)
{
    world.reader = std::make_unique<CanLogReader>(world.path);
}

/// The rest of the log, from a reader that is still usable or a new one.
std::string ReaderComplaint(World& world)
{
    OpenReader(world);
    int frames = 0;
    while (world.reader->NextFrame(world.line))
        ++frames;
    return frames == 3 ? "" : " and the log cannot be read";
}

CanLogWriter::Options AtOnce()
{
    CanLogWriter::Options options;
    options.flush = CanLogWriter::FLUSH_EVERY_FRAME;
    return options;
}

void OpenWriter(World& world)
{
    world.writer = std::make_unique<CanLogWriter>(world.path, AtOnce());
}

void WriteFrame(World& world)
{
    world.writer->Write(world.frame);
}

/// What was written by a call that returned is in the file.
std::string WriterComplaint(World& world)
{
    unsigned long long written = 0;
    if (world.writer) {
        written = world.writer->GetFrames();
        try {
            WriteFrame(world);
            ++written;
            world.writer->Close();
        } catch (const CanException&) { // damaged by the fault, or closed; says so
        }
        world.writer.reset();
    } else {
        OpenWriter(world);
        world.writer.reset();
    }
    CanLogReader reader(world.path);
    unsigned long long frames = 0;
    try {
        while (reader.NextFrame(world.line))
            ++frames;
    } catch (const CanException&) { // a packet was written in part, as the writer said
        if (!world.threw)
            throw;
    }
    return frames >= written ? "" : " and frames that were written are missing";
}

[[maybe_unused]] std::vector<Row> FileRows()
{
    std::vector<Row> rows;
    for (const char* form : {"a.log", "a.pcap"}) {
        const std::string text = std::string(form) == "a.log" ? "Candump" : "Pcap";
        const auto named = [form](World& world) { world.path = world.folder.PathOf(form); };
        const auto opened = [named](World& world) {
            named(world);
            OpenWriter(world);
            WriteFrame(world);
        };
        const auto kept = [named](World& world) {
            named(world);
            OpenWriter(world);
            for (int i = 0; i < 3; ++i)
                WriteFrame(world);
            world.writer.reset();
        };
        const auto reading = [kept](World& world) {
            kept(world);
            OpenReader(world);
        };
        rows.push_back({text + "ReaderNew", kept, OpenReader, ReaderComplaint});
        rows.push_back({text + "ReaderNext", reading, [](World& w) { w.reader->Next(w.line); },
                        ReaderComplaint});
        rows.push_back({text + "ReaderNextFrame", reading,
                        [](World& w) { w.reader->NextFrame(w.line); }, ReaderComplaint});
        rows.push_back({text + "ReaderGetText", reading, [](World& w) { w.reader->GetText(); },
                        ReaderComplaint});
        rows.push_back({text + "WriterNew", named, OpenWriter, WriterComplaint});
        rows.push_back({text + "WriterWrite", opened, WriteFrame, WriterComplaint});
        rows.push_back(
            {text + "WriterFlush", opened, [](World& w) { w.writer->Flush(); }, WriterComplaint});
        rows.push_back(
            {text + "WriterClose", opened, [](World& w) { w.writer->Close(); }, WriterComplaint});
        rows.push_back(
            {text + "WriterDelete", opened, [](World& w) { w.writer.reset(); }, WriterComplaint});
    }
    return rows;
}

// Values and texts.

std::string Nothing(World&)
{
    return {};
}

void Prepare(World& world)
{
    world.path = world.folder.File("a.log", LOG);
    world.name = "0123456789012345678901234567890123456789"; // more than a string keeps within
}

void OpenLines(World& world)
{
    Prepare(world);
    world.lines.emplace(world.path);
}

[[maybe_unused]] std::vector<Row> ValueRows()
{
    return {
        {"FrameToString", Prepare, [](World& w) { w.frame.ToString(); }, Nothing},
        {"FrameGetData", Prepare, [](World& w) { w.frame.GetData(); }, Nothing},
        {"FrameSetData", Prepare, [](World& w) { w.frame.SetData(w.bytes); }, Nothing},
        {"FrameSetBytes", Prepare,
         [](World& w) { w.frame.SetBytes(w.bytes.data(), w.bytes.size()); }, Nothing},
        {"FrameNew", Prepare, [](World& w) { w.frame = CanMessage(); }, Nothing},
        {"FrameBits", Prepare, [](World& w) { FrameBits(w.frame); }, Nothing},
        {"ArbitrationRank", Prepare, [](World& w) { ArbitrationRank(w.frame); }, Nothing},
        {"ParseBusName", Prepare, [](World& w) { ParseBusName("virtual:" + w.name + "?queue=5"); },
         Nothing},
        {"ParseCandumpLine", Prepare,
         [](World& w) { ParseCandumpLine(LOG, std::strlen(LOG) / 3, w.line); }, Nothing},
        {"IsSocketCandBusName", Prepare, [](World& w) { IsSocketCandBusName(w.name); }, Nothing},
        {"AppendSocketCandFrame", Prepare, [](World& w) { AppendSocketCandFrame(w.frame, w.name); },
         Nothing},
        {"AppendSocketCandSend", Prepare, [](World& w) { AppendSocketCandSend(w.frame, w.name); },
         Nothing},
        {"AppendSocketCandError", Prepare,
         [](World& w) {
             AppendSocketCandError("the bus is off, and stays so for a while", w.name);
         },
         Nothing},
        {"ParseSocketCandElement", Prepare,
         [](World& w) { ParseSocketCandElement("< send 123 1 ff >", 17, w.element); }, Nothing},
        {"SocketCandReaderNext", Prepare,
         [](World& w) {
             SocketCandReader reader;
             const char* at = "< frame 123 23.4 ff >";
             reader.Next(at, at + 21, w.element);
             reader.Reset();
         },
         Nothing},
        {"Schedule", Prepare,
         [](World& w) {
             ReplaySchedule schedule(1);
             const auto now = std::chrono::steady_clock::now();
             schedule.DueTime(w.line, now);
             schedule.Played(w.line);
             schedule.Resume(now);
             schedule.Restart();
         },
         Nothing},
        {"LinesNew", Prepare, [](World& w) { w.lines.emplace(w.path); }, Nothing},
        {"LinesNext", OpenLines,
         [](World& w) {
             InputLine line;
             w.lines->Next(line);
         },
         Nothing},
        {"LinesPeek", OpenLines, [](World& w) { w.lines->Peek(40); }, Nothing},
        {"LinesRead", OpenLines,
         [](World& w) {
             char bytes[10];
             w.lines->Read(bytes, sizeof bytes);
         },
         Nothing},
        {"ExceptionNew", Prepare, [](World& w) { const CanException made(w.name, 5); }, Nothing},
        {"ExceptionClone", Prepare, [](World& w) { delete CanException(w.name, 5).clone(); },
         Nothing},
    };
}

// Running them.

template <typename Operation>
char OutcomeOf(const Operation& operation)
{
    try {
        operation();
    } catch (const CanException&) {
        return 'C';
    } catch (const std::bad_alloc&) {
        return 'A';
    } catch (const std::exception& other) {
        std::fprintf(stderr, "%s\n", other.what());
        return '?';
    }
    return '.';
}

void RunOnce(const Row& row, const char* fault, unsigned int nth, std::string& text)
{
    World world;
    row.prepare(world);
    const iCanBus* const before = world.subject.get();
    {
        const CallFault armed(fault, nth);
        text = OutcomeOf([&] { row.run(world); });
    }
    const bool hit = CallFault::WasHit();
    world.threw = text != ".";
    world.losesConnection = hit && fault == std::string("recv") && world.subject.get() == before;
    text += hit ? "" : " untouched";
    try {
        text += row.complaint(world);
    } catch (const std::exception& other) {
        text += std::string(" and afterwards: ") + other.what();
    }
}

constexpr unsigned int NEVER = 1000000; ///< as the number of the call that fails

/// What loggers, streams and the like keep for good is there before anything is counted.
void WarmUp(const Row& row)
{
    std::string text;
    RunOnce(row, "operator new", NEVER, text);
    for (const char* name : {"VirtualCanBus", "SocketCanDispatcher", "SocketCandDispatcher",
                             "LogReplayDispatcher", "CanLogWriter"})
        Poco::Logger::get(name);
}

void AddLeftovers(std::size_t descriptors, long blocks, std::string& text)
{
    if (!Await([&] { return EntriesOf("/proc/self/task") == 1; }, LONG))
        text += " and a thread is left";
    if (EntriesOf("/proc/self/fd") != descriptors)
        text += " and a descriptor is left";
    if (support::LiveBlocks() != blocks)
        text += " and memory is leaked";
}

void PrepareProcess(const Row& row)
{
    ::alarm(60); // an operation without an end
    Poco::Logger::root().setLevel(Poco::Message::PRIO_FATAL);
    WarmUp(row);
}

std::string Observe(const Row& row, const char* fault, unsigned int nth)
{
    return InOwnProcess([&] {
        PrepareProcess(row);
        std::string text;
        text.reserve(1000);
        const std::size_t descriptors = EntriesOf("/proc/self/fd");
        const long blocks = support::LiveBlocks();
        RunOnce(row, fault, nth, text);
        AddLeftovers(descriptors, blocks, text);
        return text;
    });
}

/// A line each.
std::string KindsCalledBy(const Row& row)
{
    return InOwnProcess([&] {
        PrepareProcess(row);
        std::string text;
        for (const std::string& kind : CallFault::KindsSeen())
            text += kind + '\n';
        return text;
    });
}

constexpr unsigned int ENOUGH = 500;

void ExpectSweep(const Row& row, const char* fault, const std::string& allowed)
{
    for (unsigned int nth = 1; nth < ENOUGH && !testing::Test::HasFailure(); ++nth) {
        const std::string text = Observe(row, fault, nth);
        const bool untouched = text.size() > 1 && text.substr(1) == " untouched";
        if ((!untouched && text.size() != 1) || allowed.find(text[0]) == std::string::npos)
            ADD_FAILURE() << row.name << " with failing " << fault << " " << nth << ": " << text;
        if (untouched || text.find(" untouched") != std::string::npos)
            return;
    }
    EXPECT_TRUE(testing::Test::HasFailure()) << row.name << " makes too many calls of " << fault;
}

class BusFaultSweep : public testing::TestWithParam<Row>
{
};

TEST_P(BusFaultSweep, RunningOutOfMemory)
{
    ExpectSweep(GetParam(), "operator new", ".AC");
}

TEST_P(BusFaultSweep, FailingLocksAndWaits)
{
    for (const char* fault : {"pthread_mutex_lock", "pthread_cond_wait"})
        ExpectSweep(GetParam(), fault, ".");
}

TEST_P(BusFaultSweep, FailingSystemCalls)
{
    std::istringstream kinds(KindsCalledBy(GetParam()));
    for (std::string kind; std::getline(kinds, kind);) {
        if (kind != "operator new" && kind != "pthread_mutex_lock" && kind != "pthread_cond_wait")
            ExpectSweep(GetParam(), kind.c_str(), ".C");
    }
}

std::vector<Row> operator+(std::vector<Row> rows, const std::vector<Row>& more)
{
    rows.insert(rows.end(), more.begin(), more.end());
    return rows;
}

#ifdef SWEEP_OF_AN_INTERFACE
INSTANTIATE_TEST_SUITE_P(SocketCan, BusFaultSweep,
                         testing::ValuesIn(RowsOf("SocketCan") + SocketCanRows()),
                         support::CaseName());
#else
INSTANTIATE_TEST_SUITE_P(Virtual, BusFaultSweep,
                         testing::ValuesIn(RowsOf("Threaded") + RowsOf("Inline") + RowsOf("Paced") +
                                           VirtualRows()),
                         support::CaseName());
INSTANTIATE_TEST_SUITE_P(SocketCand, BusFaultSweep,
                         testing::ValuesIn(RowsOf("SocketCand") + SocketCandRows()),
                         support::CaseName());
INSTANTIATE_TEST_SUITE_P(Log, BusFaultSweep, testing::ValuesIn(ReplayRows() + FileRows()),
                         support::CaseName());
INSTANTIATE_TEST_SUITE_P(Value, BusFaultSweep, testing::ValuesIn(ValueRows()), support::CaseName());
#endif

} // namespace
