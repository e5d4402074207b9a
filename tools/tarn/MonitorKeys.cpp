#include "MonitorKeys.h"

#include "CellGrid.h"

#include <algorithm>

namespace tarn::tool
{

namespace
{

/// Takes the last character away, all of its bytes.
void DropLast(std::string& text)
{
    while (!text.empty() && (text.back() & 0xC0) == 0x80)
        text.pop_back();
    if (!text.empty())
        text.pop_back();
}

void TypeFilter(const MonitorKey& key, MonitorView& view)
{
    switch (key.code) {
    case MonitorKey::CHARACTER:
        if (CellsOf(view.filter) < MOST_FILTER_SIZE)
            AppendUtf8(key.character, view.filter);
        return;
    case MonitorKey::BACKSPACE:
        return DropLast(view.filter);
    case MonitorKey::ESCAPE:
        view.filter.clear();
        view.isTyping = false;
        return;
    case MonitorKey::ENTER:
        view.isTyping = false;
        return;
    default:
        return;
    }
}

/// Where a key moves from a place among count, which are more than none.
std::size_t Moved(std::size_t place, MonitorKey::tCode code, std::size_t count, std::size_t page)
{
    const std::size_t last = count - 1;
    switch (code) {
    case MonitorKey::UP:
        return place - std::min<std::size_t>(place, 1);
    case MonitorKey::DOWN:
        return std::min(last, place + 1);
    case MonitorKey::PAGE_UP:
        return place - std::min(place, page);
    case MonitorKey::PAGE_DOWN:
        return std::min(last, place + page);
    case MonitorKey::HOME:
        return 0;
    default:
        return last;
    }
}

bool IsMove(MonitorKey::tCode code)
{
    return code >= MonitorKey::UP && code <= MonitorKey::END;
}

void MoveSelection(MonitorKey::tCode code, const MonitorPicture& picture, MonitorView& view)
{
    const auto rows = RowsInView(picture, view);
    if (rows.empty())
        return;
    const auto selected = PlaceOfSelected(rows, view);
    const bool isFirst = !selected && (code == MonitorKey::UP || code == MonitorKey::DOWN);
    const std::size_t from = selected.value_or(std::min(view.top, rows.size() - 1));
    const std::size_t page = std::max<std::size_t>(view.CountVisible(), 1);
    view.selected = rows[isFirst ? from : Moved(from, code, rows.size(), page)]->GetKey();
}

void Scroll(MonitorKey::tCode code, MonitorView& view)
{
    // Drawing takes it back to where there is something.
    constexpr std::size_t FAR = 1000000;
    view.scroll = Moved(view.scroll, code, FAR, std::max<std::size_t>(view.CountVisible(), 1));
}

void TurnTo(MonitorView::tPage page, MonitorView& view)
{
    view.page = page;
    view.scroll = 0;
}

void GoBack(MonitorView& view)
{
    if (view.page == MonitorView::PAGE_ROWS)
        view.filter.clear();
    TurnTo(MonitorView::PAGE_ROWS, view);
}

void OpenRow(const MonitorPicture& picture, MonitorView& view)
{
    const auto rows = RowsInView(picture, view);
    if (rows.empty() || view.page != MonitorView::PAGE_ROWS)
        return;
    if (!PlaceOfSelected(rows, view))
        view.selected = rows[std::min(view.top, rows.size() - 1)]->GetKey();
    TurnTo(MonitorView::PAGE_ROW, view);
}

tMonitorAction PressCharacter(char32_t character, MonitorView& view)
{
    switch (character) {
    case U'q':
        return ACTION_QUIT;
    case U's':
        view.sort = static_cast<MonitorView::tSort>((view.sort + 1) % MonitorView::SORTS);
        return ACTION_NONE;
    case U'r':
        view.isReversed = !view.isReversed;
        return ACTION_NONE;
    case U'f':
    case U'/':
        TurnTo(MonitorView::PAGE_ROWS, view);
        view.isTyping = true;
        return ACTION_NONE;
    case U'p':
    case U' ':
        view.isPaused = !view.isPaused;
        return ACTION_PAUSE;
    case U'c':
        return ACTION_CLEAR;
    case U'h':
    case U'?':
        TurnTo(MonitorView::PAGE_HELP, view);
        return ACTION_NONE;
    default:
        return ACTION_NONE;
    }
}

} // namespace

tMonitorAction PressKey(const MonitorKey& key, const MonitorPicture& picture, MonitorView& view)
{
    if (key.code == MonitorKey::REDRAW)
        return ACTION_REDRAW;
    if (view.isTyping && !IsMove(key.code)) {
        TypeFilter(key, view);
        return ACTION_NONE;
    }
    if (key.code == MonitorKey::CHARACTER)
        return PressCharacter(key.character, view);
    if (key.code == MonitorKey::ENTER)
        OpenRow(picture, view);
    else if (key.code == MonitorKey::ESCAPE)
        GoBack(view);
    else if (key.code == MonitorKey::TAB)
        TurnTo(view.page == MonitorView::PAGE_BUS ? MonitorView::PAGE_ROWS : MonitorView::PAGE_BUS,
               view);
    else if (IsMove(key.code) && view.page == MonitorView::PAGE_ROWS)
        MoveSelection(key.code, picture, view);
    else if (IsMove(key.code))
        Scroll(key.code, view);
    return ACTION_NONE;
}

} // namespace tarn::tool
