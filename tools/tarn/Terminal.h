#ifndef TARN_TOOLS_TERMINAL_H
#define TARN_TOOLS_TERMINAL_H

#include "CursesScreen.h"
#include "TerminalRescue.h"

#include <csignal>
#include <optional>
#include <string>
#include <termios.h>

namespace tarn::tool
{

/// A signal that is handled otherwise for as long as this object lives.
class TakenSignal
{
public:
    TakenSignal(int number, void (*handler)(int));
    ~TakenSignal();
    TakenSignal(const TakenSignal&) = delete;
    TakenSignal& operator=(const TakenSignal&) = delete;

private:
    int mNumber;
    struct sigaction mBefore = {};
};

/// The terminal at standard input and output, as a full screen; at the end it is as before, also
/// when a fatal signal ends the process.
///
/// Writing never blocks: what the terminal does not take at once waits here, and nothing new should
/// be shown meanwhile. One object at a time.
class Terminal
{
public:
    struct Size {
        std::size_t width;
        std::size_t height;
    };

    /// Whether there is a terminal that can be drawn on.
    /// @throws Failure
    static void Require();

    /// CatchStopSignals() was called before.
    /// @throws Failure
    explicit Terminal(bool colour);
    ~Terminal();
    Terminal(const Terminal&) = delete;
    Terminal& operator=(const Terminal&) = delete;

    /// True when the locale says that the terminal takes UTF-8.
    bool IsUnicode() const { return mUnicode; }

    /// Of this moment, within bounds.
    Size GetSize() const;

    /// Hands over what waits. True when nothing waits any more, here or on the line.
    bool IsReady();

    /// Draws the cells that differ from what is there.
    void Show(const CellGrid& grid);

    /// The next time all are drawn.
    void DrawAnew() { mScreen.PaintAnew(); }

    /// Nothing when no key was pressed.
    /// @throws Failure when the terminal is gone
    std::optional<MonitorKey> ReadKey();

    /// Stops the process when the suspend key asked for that, with the terminal as before; draws
    /// the screen anew when it goes on.
    void SuspendIfAsked();

private:
    void Enter();
    void Leave();
    void WriteOn();
    void WriteAll();

    const bool mUnicode;
    const termios mMode;
    const int mOutput;
    // Handled before there is a screen, which would handle them otherwise.
    TakenSignal mNewSize;
    TakenSignal mSuspension;
    CursesScreen mScreen;
    TerminalRescue mRescue;
    std::string mWaiting;
};

} // namespace tarn::tool

#endif
