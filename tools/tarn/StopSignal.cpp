#include "StopSignal.h"

#include <csignal>
#include <initializer_list>
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

bool HasInput(int descriptor)
{
    pollfd input = {descriptor, POLLIN, 0};
    return ::poll(&input, 1, 0) > 0;
}

} // namespace tarn::tool
