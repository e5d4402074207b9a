#ifndef TARN_TOOLS_CURSES_SCREEN_H
#define TARN_TOOLS_CURSES_SCREEN_H

#include "CellGrid.h"
#include "MonitorKeys.h"

#include <cstdio>
#include <optional>
#include <string>

struct screen;

namespace tarn::tool
{

/// What a terminal of the type TERM has to be sent so that it shows a grid, and the keys that it
/// sends. Reads from standard input; what is to be written comes as bytes, so that a slow terminal
/// holds up nobody. One object at a time.
class CursesScreen
{
public:
    /// Whether the type of the terminal is known and can place its cursor.
    /// @throws Failure
    static void RequireType();

    /// @throws Failure
    explicit CursesScreen(bool colour);
    ~CursesScreen();
    CursesScreen(const CursesScreen&) = delete;
    CursesScreen& operator=(const CursesScreen&) = delete;

    /// Begins the full screen, empty; also after Leave().
    std::string Enter();
    /// Ends it.
    std::string Leave();

    /// The cells that differ from what was painted before.
    std::string Paint(const CellGrid& grid);
    /// The next time all are painted.
    void PaintAnew();

    /// Nothing when no key waits.
    std::optional<MonitorKey> ReadKey();

private:
    /// What was written since the last time.
    std::string Take();
    void PaintRow(const CellGrid& grid, std::size_t row);

    std::FILE* mOutput;
    ::screen* mScreen;
    bool mColour;
};

} // namespace tarn::tool

#endif
