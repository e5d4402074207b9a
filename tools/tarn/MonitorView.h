#ifndef TARN_TOOLS_MONITOR_VIEW_H
#define TARN_TOOLS_MONITOR_VIEW_H

#include "MonitorModel.h"

#include <plexa_can/iCanBus.h>

#include <optional>
#include <string>
#include <vector>

namespace tarn::tool
{

/// What is known of the bus beside its frames.
struct MonitorBus {
    std::string name;
    /// "error-active"; empty where the bus does not tell.
    std::string state;
    CanBusCounters counters;
    /// Frames that came faster than they were worked with.
    std::uint64_t overflows = 0;
    unsigned int bitRate = 125000;
    /// True when nobody said the bit rate.
    bool isBitRateAssumed = false;
};

/// All that is shown, of one moment.
struct MonitorPicture {
    const MonitorModel& model;
    const MonitorBus& bus;
    Duration now;
};

/// What of it is looked at, and how.
struct MonitorView {
    enum tPage { PAGE_ROWS, PAGE_ROW, PAGE_BUS, PAGE_HELP };
    enum tSort { SORT_SOURCE, SORT_RATE, SORT_AGE, SORT_COUNT, SORTS };

    std::size_t width = 80;
    std::size_t height = 24;
    bool unicode = true;

    tPage page = PAGE_ROWS;
    tSort sort = SORT_SOURCE;
    bool isReversed = false;
    std::string filter;    ///< UTF-8
    bool isTyping = false; ///< the filter
    bool isPaused = false;
    std::optional<MonitorRowKey> selected;
    /// The first row that is shown.
    std::size_t top = 0;
    /// The first line that is shown of another page.
    std::size_t scroll = 0;

    /// Rows that have room.
    std::size_t CountVisible() const { return height > 3 ? height - 3 : 0; }
};

/// "source", "rate", "age", "count".
const char* WordOf(MonitorView::tSort sort);

/// The rows that pass the filter, in their order.
std::vector<const MonitorRow*> RowsInView(const MonitorPicture& picture, const MonitorView& view);

/// Where the selected row stands; nothing when it is not among them.
std::optional<std::size_t> PlaceOfSelected(const std::vector<const MonitorRow*>& rows,
                                           const MonitorView& view);

} // namespace tarn::tool

#endif
