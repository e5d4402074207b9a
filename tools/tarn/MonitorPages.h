#ifndef TARN_TOOLS_MONITOR_PAGES_H
#define TARN_TOOLS_MONITOR_PAGES_H

#include "CellGrid.h"
#include "MonitorView.h"

#include <string>
#include <vector>

namespace tarn::tool
{

/// One line of a page that is scrolled.
struct PageLine {
    std::string text;
    CellGrid::tStyle style = CellGrid::STYLE_PLAIN;
    /// A sparkline behind the text.
    std::u32string sparkline = {};
};

/// The long form of the selected row and how it comes; one line when there is no such row.
std::vector<PageLine> RowPage(const MonitorPicture& picture, const MonitorView& view);

/// Its last changes.
std::vector<PageLine> HistoryPage(const MonitorPicture& picture, const MonitorView& view);

/// State, load, error counters, ledger and error frames of the bus.
std::vector<PageLine> BusPage(const MonitorPicture& picture, const MonitorView& view);

std::vector<PageLine> HelpPage();

/// Goes on in further lines where one is wider than there is room.
std::vector<PageLine> Wrapped(const std::vector<PageLine>& lines, std::size_t width);

/// "load 12.3%": of the bit rate; empty within the first second.
std::string LoadText(const MonitorPicture& picture);

} // namespace tarn::tool

#endif
