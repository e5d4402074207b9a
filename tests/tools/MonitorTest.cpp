#include "Tarn.h"
#include "support/Await.h"
#include "support/CaseName.h"
#include "support/Tmux.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <fcntl.h>
#include <fstream>
#include <poll.h>
#include <pty.h>
#include <sstream>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace
{

using namespace tarn::test;
using testing::HasSubstr;
using testing::MatchesRegex;
using testing::Not;
using testing::StartsWith;

const std::string ENDLESS = "log:examples/logs/startup.log?loop=1";

std::vector<std::string> Monitor(const std::string& bus, std::vector<std::string> options = {})
{
    options.insert(options.begin(), {TARN_COMMAND, "monitor", "-b", bus});
    return options;
}

/// A log that grows while it is played.
class GrowingLog
{
public:
    GrowingLog()
    {
        ::mkfifo(Path().c_str(), 0600);
        mPipe = ::open(Path().c_str(), O_RDWR | O_CLOEXEC);
    }
    ~GrowingLog() { ::close(mPipe); }
    GrowingLog(const GrowingLog&) = delete;
    GrowingLog& operator=(const GrowingLog&) = delete;

    std::string Bus() const { return "log:" + Path() + "?speed=max"; }

    void Add(const std::string& frame) const
    {
        const std::string line = "(1609779922.000000) can0 " + frame + '\n';
        EXPECT_EQ(::write(mPipe, line.data(), line.size()), ssize_t(line.size()));
    }

    void AddSome() const
    {
        Add("0F840281#20");
        Add("0F040085#B50459");
        Add("0F044089#003000C070");
        Add("1ABCDEF0#78563412050220");
    }

private:
    std::string Path() const { return mFolder.PathOf("log"); }

    TemporaryFolder mFolder;
    int mPipe;
};

/// The byte at which a column of a line begins.
std::size_t PlaceOf(std::size_t column, const std::string& line)
{
    std::size_t at = 0;
    for (; at < line.size(); ++at) {
        const bool isBeginning = (line[at] & 0xC0) != 0x80;
        if (isBeginning && column-- == 0)
            break;
    }
    return at;
}

/// The table without what depends on the moment: rates, ages and lines of the last minute.
std::string TableOf(const std::string& screen)
{
    std::istringstream lines(screen);
    std::string title;
    std::string heading;
    std::getline(lines, title);
    std::getline(lines, heading);
    const std::size_t column = heading.find("rate/s");
    std::string table = heading + '\n';
    for (std::string line; std::getline(lines, line);) {
        if (line.compare(0, 4, "q qu") != 0)
            line.resize(PlaceOf(column, line));
        table += line.erase(line.find_last_not_of(' ') + 1) + '\n';
    }
    return table;
}

TEST(Monitor, ShowsTheRowsOfABus)
{
    const GrowingLog log;
    const Tmux terminal(
        Monitor(log.Bus(), {"--names", "examples/installations/pump-station.json"}));
    log.AddSome();
    const std::string screen = terminal.AwaitText("4 rows");
    EXPECT_THAT(screen, StartsWith("tarn monitor log:"));
    EXPECT_EQ(TableOf(screen),
              R"(from -> to         register  kind  status    values           rate/s  age minute
controller -> pump speed     R req POWERUP
pump -> controller speed     R rsp OPERATING actual=120.5 rpm
valve -> controll… 17 (0x11) R rsp OPERATIN… 1.5 -2
ABCDEF0                      CHCP  POWERUP   device 12345678…
)" + std::string(17, '\n') +
                  "q quit  s sort  r reverse  / filter  p pause  Enter open  Tab bus  h help\n");
}

TEST(Monitor, FollowsTheKeys)
{
    const GrowingLog log;
    const Tmux terminal(Monitor(log.Bus()));
    log.AddSome();
    terminal.AwaitText("4 rows");
    terminal.Press({"s"});
    EXPECT_THAT(terminal.AwaitText("by rate"), HasSubstr("by rate"));
    terminal.Press({"r"});
    EXPECT_THAT(terminal.AwaitText("by rate, reversed"), HasSubstr("by rate, reversed"));
    terminal.Press({"/", "1", "7", " ", "("});
    EXPECT_THAT(terminal.AwaitText("1 of 4 rows"), HasSubstr("filter: 17 (_"));
    terminal.Press({"Escape"});
    EXPECT_THAT(terminal.AwaitText("  4 rows"), Not(HasSubstr("filter:")));
    terminal.Press({"r", "Down", "Down", "Enter"});
    EXPECT_THAT(terminal.AwaitText("Raw-Header"), HasSubstr("17:05:22.000000  "));
    terminal.Press({"Tab"});
    EXPECT_THAT(terminal.AwaitText("error counters"), HasSubstr("4 messages in rows, 0 not Tarn"));
    terminal.Press({"h"});
    EXPECT_THAT(terminal.AwaitText("columns"), HasSubstr("ends the monitor"));
    terminal.Press({"Escape", "c"});
    EXPECT_THAT(terminal.AwaitText("0 rows"), HasSubstr("no message yet"));
    terminal.Press({"q"});
    EXPECT_EQ(terminal.AwaitEnd(), 0);
    EXPECT_TRUE(terminal.IsAsBefore());
    EXPECT_THAT(terminal.Errors(), MatchesRegex("tarn monitor: 4 messages in rows, 0 not Tarn; "
                                                "log:.*: 4 received, 0 dropped by the kernel\n"));
}

TEST(Monitor, StandsStillWhileItIsPausedAndCountsOn)
{
    const GrowingLog log;
    const Tmux terminal(Monitor(log.Bus()));
    log.Add("0F040085#B50459");
    terminal.AwaitText(" 1205 ");
    terminal.Press({"p"});
    const std::string paused = terminal.AwaitText("PAUSED");
    log.Add("0F040085#0A0059");
    log.Add("0F840281#20");
    terminal.Press({"Tab"});
    EXPECT_THAT(terminal.AwaitText("ledger"), HasSubstr("1 messages in rows"));
    terminal.Press({"Tab"});
    EXPECT_EQ(terminal.AwaitText("from -> to"), paused);
    terminal.Press({"p"});
    EXPECT_THAT(terminal.AwaitText("2 rows"), HasSubstr(" 10 "));
}

TEST(Monitor, FollowsTheSizeOfTheTerminal)
{
    const Tmux terminal(Monitor(ENDLESS));
    terminal.AwaitText("20 rows");
    const auto endsInKeys = [](const std::string& screen) {
        const std::size_t last = screen.rfind('\n', screen.size() - 2);
        return screen.substr(last + 1, 6) == "q quit";
    };
    terminal.Resize(50, 10);
    const std::string small = terminal.Await([&](const std::string& screen) {
        return std::count(screen.begin(), screen.end(), '\n') == 10 && endsInKeys(screen);
    });
    EXPECT_THAT(small, HasSubstr("\n1 -> 5 "));
    EXPECT_TRUE(endsInKeys(small)) << small;
    terminal.Resize(160, 40);
    EXPECT_THAT(terminal.AwaitText("OPERATING WITH WARNING"), HasSubstr("9 -> g0"));
    terminal.Resize(1, 1);
    terminal.Await([](const std::string& screen) { return screen.size() < 5; });
    terminal.Resize(80, 24);
    EXPECT_THAT(terminal.AwaitText("20 rows"), HasSubstr("\n1 -> 5 "));
    terminal.Press({"q"});
    EXPECT_EQ(terminal.AwaitEnd(), 0);
}

/// Ways to an end, and the exit status.
struct Ending {
    std::string name;
    int signal;
    std::string key;
    int status;
};

void PrintTo(const Ending& ending, std::ostream* out)
{
    *out << ending.name;
}

class MonitorEnding : public testing::TestWithParam<Ending>
{
};

TEST_P(MonitorEnding, LeavesTheTerminalAsItWas)
{
    const Tmux terminal(Monitor(ENDLESS));
    terminal.AwaitText("20 rows");
    if (GetParam().key.empty())
        terminal.Signal(GetParam().signal);
    else
        terminal.Press({GetParam().key});
    EXPECT_EQ(terminal.AwaitEnd(), GetParam().status);
    EXPECT_TRUE(terminal.IsAsBefore());
    EXPECT_THAT(terminal.Screen(), Not(HasSubstr("from -> to")));
}

INSTANTIATE_TEST_SUITE_P(Ways, MonitorEnding,
                         testing::ValuesIn(std::vector<Ending>{{"QuitKey", 0, "q", 0},
                                                               {"InterruptKey", 0, "C-c", 130},
                                                               {"Terminate", SIGTERM, "", 143},
                                                               {"Interrupt", SIGINT, "", 130},
                                                               // Nobody handles these.
                                                               {"QuitSignalKey", 0, "C-\\", 131},
                                                               {"HangUp", SIGHUP, "", 129},
                                                               {"Abort", SIGABRT, "", 134},
                                                               {"User", SIGUSR1, "", 138}}),
                         support::CaseName());

TEST(Monitor, EndsWithALog)
{
    const Tmux terminal(Monitor("log:examples/logs/startup.log", {"--bitrate", "250000"}));
    EXPECT_EQ(terminal.AwaitEnd(), 0);
    EXPECT_TRUE(terminal.IsAsBefore());
    EXPECT_EQ(terminal.Errors(), "tarn monitor: 20 messages in rows, 0 not Tarn; "
                                 "log:examples/logs/startup.log: 20 received, 0 dropped by the "
                                 "kernel\n");
}

TEST(Monitor, LeavesTheTerminalAsItWasWhenTheBusFails)
{
    const TemporaryFolder folder;
    std::ifstream log(PROJECT_DIRECTORY "/examples/logs/startup.pcap", std::ios::binary);
    const std::string whole{std::istreambuf_iterator<char>(log), {}};
    const std::string damaged = folder.File("damaged.pcap", whole.substr(0, whole.size() - 5));
    const Tmux terminal(Monitor("log:" + damaged));
    EXPECT_EQ(terminal.AwaitEnd(), 1);
    EXPECT_TRUE(terminal.IsAsBefore());
    EXPECT_THAT(terminal.Errors(),
                MatchesRegex("tarn monitor: 19 messages in rows, .*\ntarn monitor: .*damaged.*\n"));
}

TEST(Monitor, GivesTheTerminalBackWhileItIsSuspended)
{
    const Tmux terminal("set -m; " TARN_COMMAND " monitor -b '" + ENDLESS +
                        "'; echo has stopped; read key; fg; echo $?");
    terminal.AwaitText("20 rows");
    terminal.Press({"C-z"});
    EXPECT_THAT(terminal.AwaitText("has stopped"), Not(HasSubstr("from -> to")));
    terminal.Press({"Enter"});
    EXPECT_THAT(terminal.AwaitText("from -> to"), HasSubstr("\n1 -> 5 "));
    terminal.Press({"Down", "Down", "Enter"}); // the keys still have their meaning
    EXPECT_THAT(terminal.AwaitText("Raw-Header"), HasSubstr("\n1 -> 5  16 (0x10) "));
    terminal.Press({"q"});
    EXPECT_EQ(terminal.AwaitEnd(), 0);
    EXPECT_TRUE(terminal.IsAsBefore());
}

TEST(Monitor, RefusesWhatIsNoTerminal)
{
    const auto result = Tarn({"monitor", "-b", ENDLESS});
    EXPECT_EQ(result.exitStatus, 1);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err, "tarn monitor: standard input: no terminal, so there are no keys; start "
                          "this in a terminal, or use 'tarn dump'\n");
    const Tmux terminal(TARN_COMMAND " monitor -b '" + ENDLESS + "' | cat");
    terminal.AwaitEnd();
    EXPECT_EQ(terminal.Errors(), "tarn monitor: standard output: no terminal to draw on; start "
                                 "this in a terminal, or use 'tarn dump'\n");
}

TEST(Monitor, RefusesATerminalThatItCannotDrawOn)
{
    const Tmux unknown(Monitor(ENDLESS), {"TERM=no-such-terminal"});
    EXPECT_EQ(unknown.AwaitEnd(), 1);
    EXPECT_EQ(unknown.Errors(), "tarn monitor: terminal: its type in TERM is unknown; set "
                                "TERM=xterm, or install the package ncurses-term\n");
    EXPECT_TRUE(unknown.IsAsBefore());
    const Tmux dumb(Monitor(ENDLESS), {"TERM=dumb"});
    EXPECT_EQ(dumb.AwaitEnd(), 1);
    EXPECT_EQ(dumb.Errors(), "tarn monitor: terminal: its type in TERM cannot place the cursor; "
                             "use another one, or 'tarn dump'\n");
    EXPECT_TRUE(dumb.IsAsBefore());
}

TEST(Monitor, NamesWhatIsWrongWithTheBus)
{
    const auto none = Tarn({"monitor"});
    EXPECT_EQ(none.exitStatus, 2);
    EXPECT_THAT(none.err, StartsWith("tarn monitor: no bus: none is named; "));
    const Tmux missing(Monitor("log:/no/such/file"));
    EXPECT_EQ(missing.AwaitEnd(), 1);
    EXPECT_TRUE(missing.IsAsBefore());
    EXPECT_THAT(missing.Errors(), HasSubstr("/no/such/file"));
    const auto rate = Tarn({"monitor", "-b", ENDLESS, "--bitrate", "0"});
    EXPECT_EQ(rate.exitStatus, 2);
}

TEST(Monitor, TakesTheBitRateFromTheBusUnlessItIsTold)
{
    const Tmux ofTheBus(Monitor("virtual:monitor?bitrate=250000"));
    ofTheBus.AwaitText("no message yet");
    ofTheBus.Press({"Tab"});
    EXPECT_THAT(ofTheBus.AwaitText("bit rate"), HasSubstr("250 kbit/s\n"));
    const Tmux told(Monitor("virtual:monitor?bitrate=250000", {"--bitrate", "83333"}));
    told.AwaitText("no message yet");
    told.Press({"Tab"});
    EXPECT_THAT(told.AwaitText("bit rate"), HasSubstr("83.333 kbit/s\n"));
    const Tmux assumed(Monitor("virtual:monitor"));
    assumed.AwaitText("no message yet");
    assumed.Press({"Tab"});
    EXPECT_THAT(assumed.AwaitText("bit rate"), HasSubstr("125 kbit/s, assumed"));
}

TEST(Monitor, HasColoursUnlessTheyAreNotWanted)
{
    const auto hasColours = [](const std::string& screen) {
        const std::vector<std::string> foregrounds = {"\x1b[31m", "\x1b[32m", "\x1b[33m",
                                                      "\x1b[36m"};
        return std::any_of(foregrounds.begin(), foregrounds.end(), [&](const std::string& code) {
            return screen.find(code) != std::string::npos;
        });
    };
    const auto screenOf = [](const Tmux& terminal) {
        terminal.AwaitText("20 rows");
        return terminal.ColouredScreen();
    };
    EXPECT_TRUE(hasColours(screenOf(Tmux(Monitor(ENDLESS)))));
    EXPECT_FALSE(hasColours(screenOf(Tmux(Monitor(ENDLESS), {"NO_COLOR=1"}))));
    EXPECT_FALSE(hasColours(screenOf(Tmux(Monitor(ENDLESS, {"--color", "never"})))));
    EXPECT_TRUE(
        hasColours(screenOf(Tmux(Monitor(ENDLESS, {"--color", "always"}), {"NO_COLOR=1"}))));
    EXPECT_FALSE(hasColours(screenOf(Tmux(Monitor(ENDLESS), {"TERM=vt100"}))));
}

TEST(Monitor, DrawsInAsciiWhereTheLocaleDoes)
{
    const Tmux terminal(Monitor(ENDLESS), {"LC_ALL=C"});
    const auto hasLine = [](const std::string& screen) {
        return screen.find(" #") != std::string::npos;
    };
    const std::string screen = terminal.Await(hasLine);
    EXPECT_TRUE(hasLine(screen));
    EXPECT_TRUE(std::all_of(screen.begin(), screen.end(), [](char byte) { return byte > 0; }));
}

/// The command on a terminal whose other side this test is.
class BareTerminal
{
public:
    explicit BareTerminal(const std::string& bus)
    {
        winsize size = {24, 80, 0, 0};
        mProcess = ::forkpty(&mTerminal, nullptr, nullptr, &size);
        if (mProcess != 0)
            return;
        ::dup2(::open(mFolder.PathOf("errors").c_str(), O_CREAT | O_WRONLY, 0600), STDERR_FILENO);
        ::setenv("TERM", "xterm-256color", 1);
        ::setenv("LC_ALL", "C.UTF-8", 1);
        ::execl(TARN_COMMAND, "tarn", "monitor", "-b", bus.c_str(), nullptr);
        ::_exit(127);
    }
    ~BareTerminal()
    {
        if (mProcess > 0)
            ::kill(mProcess, SIGKILL);
        Wait();
        ::close(mTerminal);
    }
    BareTerminal(const BareTerminal&) = delete;
    BareTerminal& operator=(const BareTerminal&) = delete;

    /// Reads what is drawn until a time. Returns how many bytes that is.
    std::size_t ReadUntil(std::chrono::steady_clock::time_point end)
    {
        std::size_t bytes = 0;
        pollfd input = {mTerminal, POLLIN, 0};
        std::array<char, 4096> block = {};
        while (std::chrono::steady_clock::now() < end) {
            if (::poll(&input, 1, 10) == 1)
                bytes += static_cast<std::size_t>(
                    std::max<ssize_t>(0, ::read(mTerminal, block.data(), block.size())));
        }
        return bytes;
    }

    void Signal(int number) const { ::kill(mProcess, number); }

    /// Returns the exit status.
    int Wait()
    {
        int status = 0;
        const auto end = std::chrono::steady_clock::now() + 3 * PATIENCE;
        while (mProcess > 0 && ::waitpid(mProcess, &status, WNOHANG) == 0) {
            if (std::chrono::steady_clock::now() > end)
                Signal(SIGKILL);
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
        mProcess = -1;
        return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    }

    std::string Errors() const { return mFolder.ContentOf("errors"); }

private:
    TemporaryFolder mFolder;
    pid_t mProcess = -1;
    int mTerminal = -1;
};

/// 5000 frames a second for three seconds, of 100 registers whose values change all the time.
std::string BusyLog(const TemporaryFolder& folder)
{
    std::string text;
    for (unsigned int at = 0; at < 15000; ++at) {
        std::array<char, 80> line = {};
        std::snprintf(line.data(), line.size(), "(%u.%06u) can0 %08X#%04X59\n",
                      1609779922 + at / 5000, at % 5000 * 200, 0x0F000085u | (at % 100 << 14),
                      at * 13 & 0xFFFFu);
        text += line.data();
    }
    return "log:" + folder.File("busy.log", text);
}

TEST(Monitor, WritesLittleHoweverMuchComes)
{
    const TemporaryFolder folder;
    BareTerminal terminal(BusyLog(folder) + "?loop=1");
    const auto begin = std::chrono::steady_clock::now();
    terminal.ReadUntil(begin + std::chrono::seconds(2));
    EXPECT_LT(terminal.ReadUntil(begin + std::chrono::seconds(5)), 3 * 20000u);
    terminal.Signal(SIGTERM);
    terminal.ReadUntil(std::chrono::steady_clock::now() + std::chrono::milliseconds(500));
    EXPECT_EQ(terminal.Wait(), 143);
    EXPECT_THAT(terminal.Errors(), Not(HasSubstr("lost")));
}

TEST(Monitor, ATerminalThatTakesNothingHoldsUpNothing)
{
    const TemporaryFolder folder;
    BareTerminal terminal(BusyLog(folder)); // nobody reads what is drawn
    EXPECT_EQ(terminal.Wait(), 0);
    EXPECT_THAT(terminal.Errors(),
                StartsWith("tarn monitor: 15000 messages in rows, 0 not Tarn; "));
}

TEST(Monitor, ASignalEndsItAlsoWhenTheTerminalTakesNothing)
{
    const TemporaryFolder folder;
    BareTerminal terminal(BusyLog(folder) + "?loop=1");
    std::this_thread::sleep_for(std::chrono::seconds(3)); // until no more fits into the terminal
    terminal.Signal(SIGTERM);
    EXPECT_EQ(terminal.Wait(), 143);
}

} // namespace
