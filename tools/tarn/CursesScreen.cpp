#include "CursesScreen.h"

#include "Failure.h"

#include <array>
#include <cwchar>
#include <sys/mman.h>
#include <unistd.h>

#define NCURSES_NOMACROS
#include <curses.h>
#include <term.h>

namespace tarn::tool
{

namespace
{

/// How long an Escape may be the beginning of the code of a key, in milliseconds.
constexpr int ESCAPE_DELAY = 100;
constexpr wint_t CODE_ESCAPE = 27;
constexpr wint_t CODE_REDRAW = 12;
constexpr wint_t CODE_DELETE = 127;

struct Look {
    attr_t colourful;
    short colour; ///< -1: that of the terminal
    attr_t colourless;
};

constexpr std::array<Look, CellGrid::STYLES> LOOKS = {{{A_NORMAL, -1, A_NORMAL},
                                                       {A_DIM, -1, A_DIM},
                                                       {A_BOLD, -1, A_BOLD},
                                                       {A_REVERSE, -1, A_REVERSE},
                                                       {A_BOLD, COLOR_CYAN, A_BOLD | A_UNDERLINE},
                                                       {A_NORMAL, COLOR_GREEN, A_NORMAL},
                                                       {A_NORMAL, COLOR_YELLOW, A_BOLD},
                                                       {A_BOLD, COLOR_RED, A_BOLD}}};

struct KeyCode {
    wint_t code;
    MonitorKey::tCode key;
};

constexpr KeyCode FUNCTION_KEYS[] = {
    {KEY_UP, MonitorKey::UP},         {KEY_DOWN, MonitorKey::DOWN},
    {KEY_PPAGE, MonitorKey::PAGE_UP}, {KEY_NPAGE, MonitorKey::PAGE_DOWN},
    {KEY_HOME, MonitorKey::HOME},     {KEY_END, MonitorKey::END},
    {KEY_ENTER, MonitorKey::ENTER},   {KEY_BACKSPACE, MonitorKey::BACKSPACE}};

constexpr KeyCode CONTROL_KEYS[] = {{L'\r', MonitorKey::ENTER},
                                    {L'\n', MonitorKey::ENTER},
                                    {L'\t', MonitorKey::TAB},
                                    {L'\b', MonitorKey::BACKSPACE},
                                    {CODE_DELETE, MonitorKey::BACKSPACE},
                                    {CODE_ESCAPE, MonitorKey::ESCAPE},
                                    {CODE_REDRAW, MonitorKey::REDRAW}};

template <std::size_t COUNT>
MonitorKey::tCode Find(wint_t code, const KeyCode (&keys)[COUNT])
{
    for (const KeyCode& known : keys) {
        if (known.code == code)
            return known.key;
    }
    return MonitorKey::OTHER;
}

MonitorKey CharacterKey(wint_t code)
{
    const MonitorKey::tCode control = Find(code, CONTROL_KEYS);
    if (control != MonitorKey::OTHER || code < L' ')
        return {control, 0};
    return {MonitorKey::CHARACTER, static_cast<char32_t>(code)};
}

/// As the locale has it, which is what the library counts by.
wchar_t Fitting(char32_t glyph, int cells)
{
    const auto character = static_cast<wchar_t>(glyph);
    return glyph < 0x80 || ::wcwidth(character) == cells ? character : L'?';
}

std::FILE* MakeMemoryFile()
{
    const int file = ::memfd_create("screen", MFD_CLOEXEC);
    std::FILE* const stream = file < 0 ? nullptr : ::fdopen(file, "w");
    if (stream == nullptr)
        throw Trouble("screen: no memory for it; close other programs");
    return stream;
}

Failure UnknownType()
{
    return Trouble("terminal: its type in TERM is unknown; set TERM=xterm, or install the package "
                   "ncurses-term");
}

} // namespace

void CursesScreen::RequireType()
{
    int error = 0;
    if (::setupterm(nullptr, STDOUT_FILENO, &error) != OK)
        throw UnknownType();
    const bool canPlace = ::tigetstr("cup") != nullptr;
    ::del_curterm(::cur_term);
    if (!canPlace)
        throw Trouble("terminal: its type in TERM cannot place the cursor; use another one, or "
                      "'tarn dump'");
}

CursesScreen::CursesScreen(bool colour)
    : mOutput(MakeMemoryFile()),
      mScreen(nullptr),
      mColour(false)
{
    mScreen = ::newterm(nullptr, mOutput, stdin);
    if (mScreen == nullptr) {
        std::fclose(mOutput);
        throw UnknownType();
    }
    ::set_escdelay(ESCAPE_DELAY);
    ::nodelay(stdscr, true);
    ::curs_set(0);
    mColour = colour && ::has_colors() && ::start_color() == OK;
    if (mColour) {
        ::use_default_colors();
        for (std::size_t style = 0; style < LOOKS.size(); ++style)
            ::init_pair(static_cast<short>(style + 1), LOOKS[style].colour, -1);
    }
    ::endwin();
    Take();
}

CursesScreen::~CursesScreen()
{
    ::delscreen(mScreen);
    std::fclose(mOutput);
}

std::string CursesScreen::Enter()
{
    ::clearok(curscr, true);
    ::wnoutrefresh(stdscr);
    ::doupdate();
    ::keypad(stdscr, true); // Leave() has turned it off
    return Take();
}

std::string CursesScreen::Leave()
{
    ::endwin();
    return Take();
}

void CursesScreen::PaintAnew()
{
    ::clearok(curscr, true);
}

std::string CursesScreen::Paint(const CellGrid& grid)
{
    const auto height = static_cast<int>(grid.GetHeight());
    const auto width = static_cast<int>(grid.GetWidth());
    if (height != LINES || width != COLS) {
        ::resizeterm(height, width);
        ::clearok(curscr, true);
    }
    for (std::size_t row = 0; row < grid.GetHeight(); ++row)
        PaintRow(grid, row);
    ::wnoutrefresh(stdscr);
    ::doupdate();
    return Take();
}

void CursesScreen::PaintRow(const CellGrid& grid, std::size_t row)
{
    for (std::size_t column = 0; column < grid.GetWidth(); ++column) {
        const CellGrid::Cell& cell = grid.At(column, row);
        if (cell.glyph == 0)
            continue;
        const bool isWide = column + 1 < grid.GetWidth() && grid.At(column + 1, row).glyph == 0;
        const Look& look = LOOKS[cell.style];
        const attr_t attributes =
            (mColour ? look.colourful : look.colourless) | (cell.isSelected ? A_REVERSE : A_NORMAL);
        const wchar_t text[] = {Fitting(cell.glyph, isWide ? 2 : 1), L'\0'};
        cchar_t glyph;
        ::setcchar(&glyph, text, attributes, static_cast<short>(mColour ? cell.style + 1 : 0),
                   nullptr);
        ::mvadd_wch(static_cast<int>(row), static_cast<int>(column), &glyph);
    }
}

std::optional<MonitorKey> CursesScreen::ReadKey()
{
    wint_t code = 0;
    const int kind = ::get_wch(&code);
    if (kind == ERR)
        return std::nullopt;
    if (kind == KEY_CODE_YES)
        return MonitorKey{Find(code, FUNCTION_KEYS), 0};
    return CharacterKey(code);
}

std::string CursesScreen::Take()
{
    std::fflush(mOutput);
    const int file = ::fileno(mOutput);
    const off_t size = ::lseek(file, 0, SEEK_END);
    std::string bytes(size > 0 ? static_cast<std::size_t>(size) : 0, '\0');
    const ssize_t count = ::pread(file, bytes.data(), bytes.size(), 0);
    bytes.resize(count > 0 ? static_cast<std::size_t>(count) : 0);
    if (::ftruncate(file, 0) == 0)
        ::lseek(file, 0, SEEK_SET);
    return bytes;
}

} // namespace tarn::tool
