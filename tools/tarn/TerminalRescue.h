#ifndef TARN_TOOLS_TERMINAL_RESCUE_H
#define TARN_TOOLS_TERMINAL_RESCUE_H

#include <string>
#include <termios.h>

namespace tarn::tool
{

/// Puts a terminal in order when a signal ends the process that nobody handles: a hang-up, the quit
/// key, a crash. The process still ends by that signal. One at a time.
class TerminalRescue
{
public:
    /// @param descriptor to write to, which must not block
    /// @param mode of the terminal at standard input
    /// @param farewell what the terminal is sent
    TerminalRescue(int descriptor, const termios& mode, const std::string& farewell);
    ~TerminalRescue();
    TerminalRescue(const TerminalRescue&) = delete;
    TerminalRescue& operator=(const TerminalRescue&) = delete;

    /// Whether there is something to put in order.
    static void SetArmed(bool armed);
};

} // namespace tarn::tool

#endif
