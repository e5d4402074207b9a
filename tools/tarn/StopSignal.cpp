#include "StopSignal.h"

#include <algorithm>
#include <array>
#include <csignal>
#include <cstdint>
#include <initializer_list>
#include <limits>
#include <poll.h>

namespace tarn::tool
{

namespace
{

volatile std::sig_atomic_t caughtSignal = 0;

/// What the process blocked before; in force only while it waits, so that no signal is missed.
sigset_t outsideMask;

void Remember(int number)
{
    caughtSignal = number;
}

/// At most the 68 years that a time of 32 bits holds.
timespec TimeLeft(std::chrono::steady_clock::time_point until)
{
    using namespace std::chrono;
    constexpr seconds LONGEST{std::numeric_limits<std::int32_t>::max()};
    const nanoseconds left = std::clamp<nanoseconds>(
        duration_cast<nanoseconds>(until - steady_clock::now()), nanoseconds::zero(), LONGEST);
    const auto whole = duration_cast<seconds>(left);
    timespec time = {};
    time.tv_sec = static_cast<time_t>(whole.count());
    time.tv_nsec = static_cast<decltype(time.tv_nsec)>((left - whole).count());
    return time;
}

} // namespace

void CatchStopSignals()
{
    std::signal(SIGPIPE, SIG_IGN);
    struct sigaction action = {};
    action.sa_handler = Remember;
    sigset_t stopSignals;
    sigemptyset(&stopSignals);
    for (const int number : {SIGINT, SIGTERM}) {
        sigaddset(&stopSignals, number);
        sigaction(number, &action, nullptr);
    }
    pthread_sigmask(SIG_BLOCK, &stopSignals, &outsideMask);
}

int CaughtStopSignal()
{
    return caughtSignal;
}

bool WaitForInput(int descriptor)
{
    pollfd input = {descriptor, POLLIN, 0};
    ::ppoll(&input, 1, nullptr, &outsideMask);
    return caughtSignal == 0;
}

bool WaitForInput(int descriptor, std::chrono::steady_clock::time_point until)
{
    return WaitForInput(descriptor, -1, until);
}

bool WaitForInput(int descriptor, int other, std::chrono::steady_clock::time_point until)
{
    std::array<pollfd, 2> inputs = {{{descriptor, POLLIN, 0}, {other, POLLIN, 0}}};
    const timespec left = TimeLeft(until);
    ::ppoll(inputs.data(), inputs.size(), &left, &outsideMask);
    return caughtSignal == 0;
}

bool WaitForRoom(int descriptor)
{
    pollfd output = {descriptor, POLLOUT, 0};
    constexpr int LAST_WAIT = 1000;
    if (::ppoll(&output, 1, nullptr, &outsideMask) > 0)
        return true;
    return ::poll(&output, 1, LAST_WAIT) > 0;
}

bool SleepUntil(std::chrono::steady_clock::time_point until)
{
    const timespec left = TimeLeft(until);
    ::ppoll(nullptr, 0, &left, &outsideMask);
    return caughtSignal == 0;
}

bool HasInput(int descriptor)
{
    pollfd input = {descriptor, POLLIN, 0};
    return ::poll(&input, 1, 0) > 0;
}

} // namespace tarn::tool
