#ifndef TARN_TOOLS_STOP_SIGNAL_H
#define TARN_TOOLS_STOP_SIGNAL_H

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

/// True when a read from the descriptor would not block now.
bool HasInput(int descriptor);

} // namespace tarn::tool

#endif
