#ifndef TARN_TOOLS_MONITOR_SCREEN_H
#define TARN_TOOLS_MONITOR_SCREEN_H

#include "CellGrid.h"
#include "MonitorView.h"

namespace tarn::tool
{

/// Draws the page that is looked at, at any size. Brings top and scroll of the view to where there
/// is something to see.
CellGrid RenderMonitor(const MonitorPicture& picture, MonitorView& view);

} // namespace tarn::tool

#endif
