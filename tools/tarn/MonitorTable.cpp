#include "MonitorTable.h"

#include "MonitorText.h"
#include "Words.h"

#include <algorithm>
#include <array>

namespace tarn::tool
{

namespace
{

enum tColumn { ADDRESSES, REGISTER, KIND, STATUS, VALUES, COUNT, RATE, AGE, MINUTE, COLUMNS };

constexpr std::array<const char*, COLUMNS> TITLES = {
    "from -> to", "register", "kind", "status", "values", "count", "rate/s", "age", "minute"};
/// What goes first where there is little room.
constexpr std::array<tColumn, 7> DISPENSABLE = {MINUTE, AGE, COUNT, RATE, KIND, STATUS, REGISTER};
constexpr std::size_t LEAST_VALUES = 10;
/// "actual=120.5 rpm"
constexpr std::size_t GOOD_VALUES = 16;
constexpr std::size_t WIDE = 110;
/// "OPERATING"
constexpr std::size_t LEAST_STATUS = 9;
constexpr std::size_t GOOD_MINUTE = 10;
constexpr std::size_t LEAST_MINUTE = 6;
constexpr std::size_t LEAST_ADDRESSES = 18;
constexpr std::size_t LEAST_REGISTER = 9;
/// Rows that nobody has spoken about for so long are dim.
constexpr Duration STALE = std::chrono::minutes(1);

/// The widths of the columns; 0 for one that is not there.
using Widths = std::array<std::size_t, COLUMNS>;

bool IsOnTheRight(std::size_t column)
{
    return column == COUNT || column == RATE || column == AGE;
}

/// As wide as what is in them, so that most is left for the values.
Widths WishedWidths(const std::vector<const MonitorRow*>& rows, const MonitorView& view)
{
    Widths widths = {10, 8, 5, 6, 0, 0, 6, 4, 60};
    if (view.sort == MonitorView::SORT_COUNT || view.width >= WIDE)
        widths[COUNT] = 9;
    for (const MonitorRow* const row : rows) {
        widths[ADDRESSES] = std::max(widths[ADDRESSES], CellsOf(row->GetAddresses()));
        widths[REGISTER] = std::max(widths[REGISTER], CellsOf(row->GetRegister()));
        widths[STATUS] = std::max(widths[STATUS], STATUS_WORDS[row->GetFields().status].size());
    }
    widths[ADDRESSES] = std::min(widths[ADDRESSES], std::max<std::size_t>(10, view.width * 3 / 10));
    widths[REGISTER] = std::min(widths[REGISTER], std::max<std::size_t>(10, view.width / 5));
    return widths;
}

/// Of the values that can be seen; in steps, so that the columns do not move with every digit.
std::size_t WishedValues(const MonitorPicture& picture, const MonitorView& view,
                         const std::vector<const MonitorRow*>& rows)
{
    constexpr std::size_t STEP = 8;
    std::size_t wish = LEAST_VALUES;
    const std::size_t end = std::min(rows.size(), view.top + view.CountVisible());
    for (std::size_t at = view.top; at < end; ++at) {
        const auto parts = DataParts(rows[at]->GetFields(), picture.model.GetNames());
        wish = std::max(wish, CellsOf(JoinedParts(parts)));
    }
    return std::min((wish + STEP - 1) / STEP * STEP, view.width / 2);
}

/// All but the values, each with a gap.
std::size_t Taken(const Widths& widths)
{
    std::size_t taken = 0;
    for (const std::size_t width : widths)
        taken += width > 0 ? width + 1 : 0;
    return taken;
}

/// Makes a column as narrow as the others need it, but not narrower than least.
void Narrow(tColumn column, std::size_t least, std::size_t excess, Widths& widths)
{
    least = std::min(widths[column], least);
    widths[column] = std::max(least, widths[column] - std::min(widths[column], excess));
}

/// Gives way to the values, one column after the other.
void MakeRoom(std::size_t values, std::size_t width, Widths& widths)
{
    struct Step {
        tColumn column;
        std::size_t least;
        std::size_t values;
    };
    for (const Step& step :
         {Step{MINUTE, GOOD_MINUTE, values}, Step{STATUS, LEAST_STATUS, values},
          Step{ADDRESSES, LEAST_ADDRESSES, GOOD_VALUES},
          Step{REGISTER, LEAST_REGISTER, GOOD_VALUES}, Step{MINUTE, LEAST_MINUTE, GOOD_VALUES}}) {
        const std::size_t taken = Taken(widths) + step.values;
        Narrow(step.column, step.least, taken > width ? taken - width : 0, widths);
    }
}

Widths LayOut(const MonitorPicture& picture, const MonitorView& view,
              const std::vector<const MonitorRow*>& rows)
{
    Widths widths = WishedWidths(rows, view);
    MakeRoom(WishedValues(picture, view, rows), view.width, widths);
    for (const tColumn column : DISPENSABLE) {
        if (Taken(widths) + LEAST_VALUES <= view.width)
            break;
        widths[column] = 0;
    }
    const std::size_t taken = Taken(widths);
    widths[VALUES] = view.width > taken ? view.width - taken : 0;
    return widths;
}

/// One row on its line.
class RowLine
{
public:
    RowLine(const MonitorPicture& picture, const Widths& widths, std::size_t line, CellGrid& grid)
        : mPicture(picture),
          mWidths(widths),
          mLine(line),
          mGrid(grid)
    {
    }

    void Draw(const MonitorRow& row)
    {
        const Duration age = row.GetAge(mPicture.now);
        const auto style = age > STALE ? CellGrid::STYLE_DIM : CellGrid::STYLE_PLAIN;
        std::size_t column = 0;
        for (std::size_t at = 0; at < COLUMNS; ++at) {
            if (mWidths[at] == 0)
                continue;
            DrawColumn(row, static_cast<tColumn>(at), column, style);
            column += mWidths[at] + 1;
        }
    }

private:
    void DrawColumn(const MonitorRow& row, tColumn which, std::size_t column,
                    CellGrid::tStyle style)
    {
        switch (which) {
        case ADDRESSES:
            return Text(column, which, row.GetAddresses(), style);
        case REGISTER:
            return Text(column, which, row.GetRegister(), style);
        case KIND:
            return Text(column, which, row.GetKind(), style);
        case STATUS:
            return Text(column, which, STATUS_WORDS[row.GetFields().status], StatusStyle(row));
        case VALUES:
            return DrawValues(row, column, style);
        case COUNT:
            return Number(column, which, std::to_string(row.GetCount()), style);
        case RATE:
            return Number(column, which, RateText(row.GetRate(mPicture.now)), style);
        case AGE:
            return Number(column, which, AgeText(row.GetAge(mPicture.now)), style);
        default:
            return DrawMinute(row, column, style);
        }
    }

    CellGrid::tStyle StatusStyle(const MonitorRow& row) const
    {
        if (row.IsStatusNew(mPicture.now))
            return CellGrid::STYLE_CHANGED;
        return row.GetAge(mPicture.now) > STALE ? CellGrid::STYLE_DIM
                                                : StyleOf(row.GetFields().status);
    }

    void DrawValues(const MonitorRow& row, std::size_t column, CellGrid::tStyle style)
    {
        const std::size_t end = column + mWidths[VALUES];
        const auto parts = DataParts(row.GetFields(), mPicture.model.GetNames());
        for (std::size_t at = 0; at < parts.size() && column < end; ++at) {
            const bool isNew = row.IsValueNew(at, mPicture.now);
            column = 1 + mGrid.Put(column, mLine, parts[at],
                                   isNew ? CellGrid::STYLE_CHANGED : style, end - column);
        }
    }

    void DrawMinute(const MonitorRow& row, std::size_t column, CellGrid::tStyle style)
    {
        for (const char32_t glyph :
             SparklineOf(row, mPicture.now, mWidths[MINUTE], mGrid.IsUnicode()))
            mGrid.PutGlyph(column++, mLine, glyph, style);
    }

    void Text(std::size_t column, tColumn which, std::string_view text, CellGrid::tStyle style)
    {
        mGrid.Put(column, mLine, text, style, mWidths[which]);
    }

    void Number(std::size_t column, tColumn which, const std::string& text, CellGrid::tStyle style)
    {
        mGrid.PutRight(column + mWidths[which], mLine, text, style);
    }

    const MonitorPicture& mPicture;
    const Widths& mWidths;
    std::size_t mLine;
    CellGrid& mGrid;
};

void DrawTitles(const Widths& widths, CellGrid& grid)
{
    grid.FillRow(1, CellGrid::STYLE_HEADING);
    std::size_t column = 0;
    for (std::size_t at = 0; at < COLUMNS; ++at) {
        if (widths[at] == 0)
            continue;
        if (IsOnTheRight(at))
            grid.PutRight(column + widths[at], 1, TITLES[at], CellGrid::STYLE_HEADING);
        else
            grid.Put(column, 1, TITLES[at], CellGrid::STYLE_HEADING, widths[at]);
        column += widths[at] + 1;
    }
}

} // namespace

void DrawTable(const MonitorPicture& picture, const MonitorView& view,
               const std::vector<const MonitorRow*>& rows, CellGrid& grid)
{
    const Widths widths = LayOut(picture, view, rows);
    if (view.CountVisible() > 0)
        DrawTitles(widths, grid);
    const std::size_t end = std::min(rows.size(), view.top + view.CountVisible());
    for (std::size_t at = view.top; at < end; ++at) {
        const std::size_t line = 2 + at - view.top;
        RowLine(picture, widths, line, grid).Draw(*rows[at]);
        if (view.selected == rows[at]->GetKey())
            grid.SelectRow(line);
    }
    if (rows.empty() && view.CountVisible() > 0)
        grid.Put(0, 2,
                 picture.model.GetRows().empty() ? "no message yet"
                                                 : "no row has the filter's text",
                 CellGrid::STYLE_DIM);
}

} // namespace tarn::tool
