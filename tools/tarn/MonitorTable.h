#ifndef TARN_TOOLS_MONITOR_TABLE_H
#define TARN_TOOLS_MONITOR_TABLE_H

#include "CellGrid.h"
#include "MonitorView.h"

#include <vector>

namespace tarn::tool
{

/// Draws the rows as a table between the first and the last line of the grid. What has no room is
/// left out: first the last minute, then age, rate, kind, status and register.
void DrawTable(const MonitorPicture& picture, const MonitorView& view,
               const std::vector<const MonitorRow*>& rows, CellGrid& grid);

} // namespace tarn::tool

#endif
