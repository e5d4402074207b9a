#ifndef TARN_TOOLS_MONITOR_KEYS_H
#define TARN_TOOLS_MONITOR_KEYS_H

#include "MonitorView.h"

namespace tarn::tool
{

struct MonitorKey {
    enum tCode {
        CHARACTER,
        UP,
        DOWN,
        PAGE_UP,
        PAGE_DOWN,
        HOME,
        END,
        ENTER,
        ESCAPE,
        TAB,
        BACKSPACE,
        REDRAW,
        OTHER
    };

    tCode code = OTHER;
    char32_t character = 0; ///< for CHARACTER
};

/// What is left to do for a key.
enum tMonitorAction { ACTION_NONE, ACTION_QUIT, ACTION_CLEAR, ACTION_PAUSE, ACTION_REDRAW };

/// Most characters of a filter.
constexpr std::size_t MOST_FILTER_SIZE = 60;

/// Changes the view as a key asks for.
tMonitorAction PressKey(const MonitorKey& key, const MonitorPicture& picture, MonitorView& view);

} // namespace tarn::tool

#endif
