#include "TerminalRescue.h"

#include <algorithm>
#include <array>
#include <csignal>
#include <unistd.h>

namespace tarn::tool
{

namespace
{

constexpr std::array<int, 11> FATAL = {SIGHUP,  SIGQUIT, SIGILL,  SIGABRT, SIGBUS, SIGFPE,
                                       SIGSEGV, SIGUSR1, SIGUSR2, SIGALRM, SIGXCPU};

// What a signal handler may use: plain memory that was filled before.
volatile std::sig_atomic_t isArmed = 0;
int output = -1;
termios inputMode = {};
std::array<char, 512> farewellText = {};
std::size_t farewellSize = 0;

void Rescue(int number)
{
    if (isArmed != 0) {
        isArmed = 0;
        const ssize_t ignored = ::write(output, farewellText.data(), farewellSize);
        static_cast<void>(ignored);
        ::tcsetattr(STDIN_FILENO, TCSANOW, &inputMode);
    }
    ::raise(number); // handled by nobody this time, once this handler has returned
}

bool IsDefault(const struct sigaction& action)
{
    return (action.sa_flags & SA_SIGINFO) == 0 && action.sa_handler == SIG_DFL;
}

} // namespace

TerminalRescue::TerminalRescue(int descriptor, const termios& mode, const std::string& farewell)
{
    output = descriptor;
    inputMode = mode;
    farewellSize = farewell.copy(farewellText.data(), farewellText.size());
    struct sigaction rescue = {};
    rescue.sa_handler = Rescue;
    rescue.sa_flags = static_cast<int>(SA_RESETHAND);
    for (const int number : FATAL) {
        struct sigaction present = {};
        if (::sigaction(number, nullptr, &present) == 0 && IsDefault(present))
            ::sigaction(number, &rescue, nullptr);
    }
}

TerminalRescue::~TerminalRescue()
{
    isArmed = 0;
    for (const int number : FATAL) {
        struct sigaction present = {};
        if (::sigaction(number, nullptr, &present) == 0 && present.sa_handler == Rescue)
            std::signal(number, SIG_DFL);
    }
}

void TerminalRescue::SetArmed(bool armed)
{
    isArmed = armed ? 1 : 0;
}

} // namespace tarn::tool
