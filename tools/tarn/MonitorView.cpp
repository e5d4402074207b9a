#include "MonitorView.h"

#include "MonitorText.h"

#include <algorithm>

namespace tarn::tool
{

namespace
{

/// What comes first has the higher rank.
double RankOf(const MonitorRow& row, MonitorView::tSort sort, Duration now)
{
    switch (sort) {
    case MonitorView::SORT_RATE:
        return row.GetRate(now).value_or(0);
    case MonitorView::SORT_AGE:
        return -static_cast<double>(row.GetAge(now).count());
    case MonitorView::SORT_COUNT:
        return static_cast<double>(row.GetCount());
    default:
        return 0;
    }
}

struct RankedRow {
    double rank;
    const MonitorRow* row;
};

} // namespace

const char* WordOf(MonitorView::tSort sort)
{
    static constexpr const char* WORDS[MonitorView::SORTS] = {"source", "rate", "age", "count"};
    return WORDS[sort];
}

std::vector<const MonitorRow*> RowsInView(const MonitorPicture& picture, const MonitorView& view)
{
    std::vector<RankedRow> ranked;
    for (const auto& [key, row] : picture.model.GetRows()) {
        if (Matches(row, picture.model.GetNames(), view.filter))
            ranked.push_back({RankOf(row, view.sort, picture.now), &row});
    }
    std::stable_sort(
        ranked.begin(), ranked.end(),
        [](const RankedRow& one, const RankedRow& other) { return one.rank > other.rank; });
    if (view.isReversed)
        std::reverse(ranked.begin(), ranked.end());
    std::vector<const MonitorRow*> rows;
    rows.reserve(ranked.size());
    for (const RankedRow& entry : ranked)
        rows.push_back(entry.row);
    return rows;
}

std::optional<std::size_t> PlaceOfSelected(const std::vector<const MonitorRow*>& rows,
                                           const MonitorView& view)
{
    const auto found = std::find_if(rows.begin(), rows.end(), [&view](const MonitorRow* row) {
        return view.selected == row->GetKey();
    });
    if (found == rows.end())
        return std::nullopt;
    return static_cast<std::size_t>(found - rows.begin());
}

} // namespace tarn::tool
