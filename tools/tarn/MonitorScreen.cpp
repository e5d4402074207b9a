#include "MonitorScreen.h"

#include "MonitorPages.h"
#include "MonitorTable.h"
#include "MonitorText.h"

#include <algorithm>
#include <string>
#include <vector>

namespace tarn::tool
{

namespace
{

/// Least width of a screen that shows message and history side by side.
constexpr std::size_t TWO_COLUMNS = 78;
constexpr std::size_t LEFT_COLUMN = 38;

constexpr const char* GAP = "  ";

/// The first line: what stands further right may have no room.
class TitleLine
{
public:
    explicit TitleLine(CellGrid& grid) : mGrid(grid) { mGrid.FillRow(0, CellGrid::STYLE_BAR); }

    void Add(const std::string& text, CellGrid::tStyle style = CellGrid::STYLE_BAR,
             std::size_t width = SIZE_MAX)
    {
        if (text.empty())
            return;
        if (mColumn > 0)
            mColumn = mGrid.Put(mColumn, 0, GAP, CellGrid::STYLE_BAR);
        mColumn = mGrid.Put(mColumn, 0, text, style, width);
    }

private:
    CellGrid& mGrid;
    std::size_t mColumn = 0;
};

std::string CountText(std::uint64_t count, const char* what)
{
    return count == 0 ? "" : std::to_string(count) + ' ' + what;
}

std::string RowsText(std::size_t shown, std::size_t all)
{
    const std::string rows = std::to_string(all) + (all == 1 ? " row" : " rows");
    return shown == all ? rows : std::to_string(shown) + " of " + rows;
}

void DrawTitle(const MonitorPicture& picture, const MonitorView& view, std::size_t shown,
               CellGrid& grid)
{
    const BusTraffic& traffic = picture.model.GetTraffic();
    const auto rates = traffic.GetRates(picture.now);
    TitleLine title(grid);
    title.Add("tarn monitor " + picture.bus.name, CellGrid::STYLE_BAR,
              std::max<std::size_t>(view.width * 2 / 5, 20));
    title.Add(view.isPaused ? "PAUSED" : "", CellGrid::STYLE_WARNING);
    title.Add(CountText(picture.bus.overflows, "LOST"), CellGrid::STYLE_BAD);
    title.Add(CountText(picture.bus.counters.droppedByKernel, "DROPPED BY THE KERNEL"),
              CellGrid::STYLE_BAD);
    title.Add(CountText(picture.model.CountWithoutRow(), "WITHOUT A ROW"), CellGrid::STYLE_BAD);
    title.Add(RowsText(shown, picture.model.GetRows().size()));
    title.Add(rates ? RateText(rates->frames) + "/s" : "");
    title.Add(LoadText(picture));
    title.Add(CountText(traffic.CountErrors(), "error frame") +
              (traffic.CountErrors() > 1 ? "s" : ""));
    title.Add(std::string("by ") + WordOf(view.sort) + (view.isReversed ? ", reversed" : ""));
}

const char* KeysOf(MonitorView::tPage page)
{
    switch (page) {
    case MonitorView::PAGE_ROWS:
        return "q quit  s sort  r reverse  / filter  p pause  Enter open  Tab bus  h help";
    case MonitorView::PAGE_BUS:
        return "q quit  p pause  Tab or Esc rows  h help";
    default:
        return "q quit  p pause  Esc back  Tab bus  h help";
    }
}

void DrawKeys(const MonitorView& view, CellGrid& grid)
{
    if (view.height < 2)
        return;
    const std::size_t line = view.height - 1;
    grid.FillRow(line, CellGrid::STYLE_BAR);
    std::string text = KeysOf(view.page);
    if (view.page == MonitorView::PAGE_ROWS && view.isTyping)
        text = "filter: " + view.filter + "_  Enter keeps it  Esc drops it";
    else if (view.page == MonitorView::PAGE_ROWS && !view.filter.empty())
        text = "filter: " + view.filter + "  Esc drops it  " + text;
    grid.Put(0, line, text, CellGrid::STYLE_BAR);
}

/// Lines of a page that have room.
std::size_t RoomOf(const MonitorView& view)
{
    return view.height > 2 ? view.height - 2 : 0;
}

void DrawLines(const std::vector<PageLine>& lines, std::size_t first, std::size_t column,
               std::size_t width, CellGrid& grid, const MonitorView& view)
{
    const std::size_t end = std::min(lines.size(), first + RoomOf(view));
    for (std::size_t at = first; at < end; ++at) {
        const std::size_t row = 1 + at - first;
        std::size_t behind = grid.Put(column, row, lines[at].text, lines[at].style, width);
        for (const char32_t glyph : lines[at].sparkline) {
            if (behind < column + width)
                grid.PutGlyph(behind++, row, glyph, lines[at].style);
        }
    }
}

/// @return the lines above those that there is room for
std::size_t MostScroll(std::size_t lines, const MonitorView& view)
{
    return lines > RoomOf(view) ? lines - RoomOf(view) : 0;
}

void DrawPage(const std::vector<PageLine>& page, MonitorView& view, CellGrid& grid)
{
    const std::vector<PageLine> lines = Wrapped(page, view.width);
    view.scroll = std::min(view.scroll, MostScroll(lines.size(), view));
    DrawLines(lines, view.scroll, 0, view.width, grid, view);
}

void DrawRowPage(const MonitorPicture& picture, MonitorView& view, CellGrid& grid)
{
    std::vector<PageLine> message = RowPage(picture, view);
    std::vector<PageLine> history = HistoryPage(picture, view);
    if (view.width < TWO_COLUMNS) {
        message.insert(message.end(), history.begin(), history.end());
        return DrawPage(message, view, grid);
    }
    message = Wrapped(message, LEFT_COLUMN);
    history = Wrapped(history, view.width - LEFT_COLUMN - 1);
    const std::size_t most =
        std::max(MostScroll(history.size(), view), MostScroll(message.size(), view));
    view.scroll = std::min(view.scroll, most);
    DrawLines(message, std::min(view.scroll, MostScroll(message.size(), view)), 0, LEFT_COLUMN,
              grid, view);
    DrawLines(history, std::min(view.scroll, MostScroll(history.size(), view)), LEFT_COLUMN + 1,
              view.width - LEFT_COLUMN - 1, grid, view);
}

/// Moves the rows so that the selected one can be seen, and the last line is in use.
void SettleTop(const std::vector<const MonitorRow*>& rows, MonitorView& view)
{
    const std::size_t visible = view.CountVisible();
    if (const auto selected = PlaceOfSelected(rows, view)) {
        view.top = std::min(view.top, *selected);
        if (*selected >= view.top + visible)
            view.top = *selected + 1 - visible;
    }
    view.top = std::min(view.top, rows.size() > visible ? rows.size() - visible : 0);
}

} // namespace

CellGrid RenderMonitor(const MonitorPicture& picture, MonitorView& view)
{
    CellGrid grid(view.width, view.height, view.unicode);
    const auto rows = RowsInView(picture, view);
    SettleTop(rows, view);
    switch (view.page) {
    case MonitorView::PAGE_ROW:
        DrawRowPage(picture, view, grid);
        break;
    case MonitorView::PAGE_BUS:
        DrawPage(BusPage(picture, view), view, grid);
        break;
    case MonitorView::PAGE_HELP:
        DrawPage(HelpPage(), view, grid);
        break;
    default:
        DrawTable(picture, view, rows, grid);
    }
    DrawTitle(picture, view, rows.size(), grid);
    DrawKeys(view, grid);
    return grid;
}

} // namespace tarn::tool
