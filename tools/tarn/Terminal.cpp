#include "Terminal.h"

#include "Failure.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <clocale>
#include <cstring>
#include <fcntl.h>
#include <langinfo.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <unistd.h>

namespace tarn::tool
{

namespace
{

constexpr std::size_t MOST_COLUMNS = 1000;
constexpr std::size_t MOST_LINES = 500;
/// How long a terminal that takes nothing is waited for at the end, in milliseconds.
constexpr int LAST_WAIT = 1000;

volatile std::sig_atomic_t suspendAsked = 0;

void AskForSuspension(int)
{
    suspendAsked = 1;
}

/// Ends a wait, so that a new size is seen at once.
void Notice(int) {}

bool TakeLocale()
{
    // NOLINTNEXTLINE(concurrency-mt-unsafe): other threads ask for no characters
    std::setlocale(LC_CTYPE, "");
    // NOLINTNEXTLINE(concurrency-mt-unsafe)
    return std::strcmp(::nl_langinfo(CODESET), "UTF-8") == 0;
}

termios ModeOfInput()
{
    termios mode = {};
    if (::tcgetattr(STDIN_FILENO, &mode) != 0)
        throw Trouble("terminal: cannot read its mode; start this in another one");
    return mode;
}

/// A description of its own, so that not to block does not befall others that have the terminal.
int OpenOutput()
{
    std::array<char, 256> name = {};
    int descriptor = -1;
    if (::ttyname_r(STDOUT_FILENO, name.data(), name.size()) == 0)
        descriptor = ::open(name.data(), O_WRONLY | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
    if (descriptor < 0)
        descriptor = ::fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 0);
    if (descriptor < 0)
        throw Trouble("terminal: cannot be opened once more; see 'ulimit -n'");
    return descriptor;
}

/// What ends a full screen.
std::string FarewellOf(CursesScreen& screen)
{
    screen.Enter();
    return screen.Leave();
}

} // namespace

TakenSignal::TakenSignal(int number, void (*handler)(int)) : mNumber(number)
{
    struct sigaction action = {};
    action.sa_handler = handler;
    ::sigaction(number, &action, &mBefore);
}

TakenSignal::~TakenSignal()
{
    ::sigaction(mNumber, &mBefore, nullptr);
}

void Terminal::Require()
{
    if (::isatty(STDIN_FILENO) == 0)
        throw Trouble(
            "standard input: no terminal, so there are no keys; start this in a terminal, "
            "or use 'tarn dump'");
    if (::isatty(STDOUT_FILENO) == 0)
        throw Trouble("standard output: no terminal to draw on; start this in a terminal, or use "
                      "'tarn dump'");
    CursesScreen::RequireType();
}

Terminal::Terminal(bool colour)
    : mUnicode(TakeLocale()),
      mMode(ModeOfInput()),
      mOutput(OpenOutput()),
      mNewSize(SIGWINCH, Notice),
      mSuspension(SIGTSTP, AskForSuspension),
      mScreen(colour),
      mRescue(mOutput, mMode, FarewellOf(mScreen))
{
    Enter();
}

Terminal::~Terminal()
{
    Leave();
    ::close(mOutput);
}

void Terminal::Enter()
{
    termios mode = mMode;
    mode.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO | IEXTEN);
    mode.c_cc[VMIN] = 1;
    mode.c_cc[VTIME] = 0;
    TerminalRescue::SetArmed(true);
    ::tcsetattr(STDIN_FILENO, TCSANOW, &mode);
    mWaiting += mScreen.Enter();
    WriteOn();
}

void Terminal::Leave()
{
    mWaiting += mScreen.Leave();
    WriteAll();
    ::tcsetattr(STDIN_FILENO, TCSANOW, &mMode);
    TerminalRescue::SetArmed(false);
}

Terminal::Size Terminal::GetSize() const
{
    winsize size = {};
    if (::ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) != 0 || size.ws_col == 0 || size.ws_row == 0)
        return {80, 24};
    return {std::min<std::size_t>(size.ws_col, MOST_COLUMNS),
            std::min<std::size_t>(size.ws_row, MOST_LINES)};
}

bool Terminal::IsReady()
{
    WriteOn();
    int onTheLine = 0;
    ::ioctl(mOutput, TIOCOUTQ, &onTheLine);
    return mWaiting.empty() && onTheLine == 0;
}

void Terminal::Show(const CellGrid& grid)
{
    mWaiting += mScreen.Paint(grid);
    WriteOn();
}

void Terminal::WriteOn()
{
    while (!mWaiting.empty()) {
        const ssize_t count = ::write(mOutput, mWaiting.data(), mWaiting.size());
        if (count < 0 && errno == EINTR)
            continue;
        if (count <= 0)
            return;
        mWaiting.erase(0, static_cast<std::size_t>(count));
    }
}

void Terminal::WriteAll()
{
    pollfd output = {mOutput, POLLOUT, 0};
    WriteOn();
    while (!mWaiting.empty() && ::poll(&output, 1, LAST_WAIT) > 0 &&
           (output.revents & (POLLERR | POLLHUP)) == 0)
        WriteOn();
    mWaiting.clear();
}

std::optional<MonitorKey> Terminal::ReadKey()
{
    pollfd input = {STDIN_FILENO, POLLIN, 0};
    if (::poll(&input, 1, 0) > 0 && (input.revents & (POLLHUP | POLLERR | POLLNVAL)) != 0)
        throw Trouble("terminal: it is gone; start this in another one");
    return mScreen.ReadKey();
}

void Terminal::SuspendIfAsked()
{
    if (suspendAsked == 0)
        return;
    suspendAsked = 0;
    Leave();
    {
        const TakenSignal untaken(SIGTSTP, SIG_DFL);
        ::raise(SIGTSTP);
    }
    Enter();
}

} // namespace tarn::tool
