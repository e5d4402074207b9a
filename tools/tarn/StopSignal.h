#ifndef TARN_TOOLS_STOP_SIGNAL_H
#define TARN_TOOLS_STOP_SIGNAL_H

#include <chrono>

namespace tarn::tool
{

/// Turns SIGINT and SIGTERM from a sudden end into a request to finish, and SIGPIPE into an error
/// of write(). To be called once, before the first wait.
void CatchStopSignals();

/// The signal that asked for the end, 0 while none did.
int CaughtStopSignal();

/// Waits until a read from the descriptor would not block. Returns false when a stop signal came
/// instead, also when it came before.
bool WaitForInput(int descriptor);

/// The same, at most until a time; then returns true too.
bool WaitForInput(int descriptor, std::chrono::steady_clock::time_point until);

/// The same, for either of two descriptors; a negative one is left out.
bool WaitForInput(int descriptor, int other, std::chrono::steady_clock::time_point until);

/// Waits until a write to the descriptor would not block. Once a stop signal has come, it waits one
/// more second and then returns false.
bool WaitForRoom(int descriptor);

/// Waits for a time. Returns false when a stop signal came instead, also when it came before.
bool SleepUntil(std::chrono::steady_clock::time_point until);

/// True when a read from the descriptor would not block now.
bool HasInput(int descriptor);

} // namespace tarn::tool

#endif
