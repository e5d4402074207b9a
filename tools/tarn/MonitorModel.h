#ifndef TARN_TOOLS_MONITOR_MODEL_H
#define TARN_TOOLS_MONITOR_MODEL_H

#include "BusTraffic.h"
#include "LineAccount.h"
#include "MessageFilter.h"
#include "MonitorRow.h"

#include <cstdint>
#include <map>
#include <string>

namespace tarn::tool
{

/// What a bus says, in rows. Knows no terminal and no clock: each frame is given with the time
/// since the beginning of the listening.
///
/// Memory is bounded: a row takes up to 8 KB. Copies are independent.
class MonitorModel
{
public:
    static constexpr std::size_t MOST_ROWS = 10000;
    using Rows = std::map<MonitorRowKey, MonitorRow>;

    /// @param filter chooses the messages that get rows; outlives this object
    /// @param names may be null, otherwise they outlive this object
    MonitorModel(const MessageFilter& filter, const Installation* names,
                 std::size_t mostRows = MOST_ROWS);

    /// Takes what came next.
    void Take(CandumpLine& line, Duration now);

    /// Drops all rows. What was counted stays.
    void Clear() { mRows.clear(); }

    /// By source, target, register and module.
    const Rows& GetRows() const { return mRows; }
    const BusTraffic& GetTraffic() const { return mTraffic; }
    const Installation* GetNames() const { return mNames; }

    /// Messages that would have needed one row more than there may be.
    std::uint64_t CountWithoutRow() const { return mWithoutRow; }
    /// Messages in rows, those of rows that were dropped since included.
    std::uint64_t CountInRows() const { return mAccount[LINE_SHOWN]; }

    /// "120 messages in rows, 3 filtered out, 2 not Tarn (1 11-bit frame, 1 error frame)"
    std::string Summary() const;

private:
    void TakeMessage(const CanMessage& frame, const TarnMessage& message, Duration now);
    /// Null when there is no room for one more.
    MonitorRow* RowFor(const MessageFields& fields);

    const MessageFilter* mFilter;
    const Installation* mNames;
    std::size_t mMostRows;
    Rows mRows;
    BusTraffic mTraffic;
    LineAccount mAccount{"tarn monitor", true};
    std::uint64_t mWithoutRow = 0;
    MessageFields mFields;
};

} // namespace tarn::tool

#endif
