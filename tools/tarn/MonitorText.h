#ifndef TARN_TOOLS_MONITOR_TEXT_H
#define TARN_TOOLS_MONITOR_TEXT_H

#include "CellGrid.h"
#include "MonitorRow.h"

#include <plexa_can/CandumpLine.h>

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tarn::tool
{

/// The values of a row one by one, as 'tarn dump' shows them; the bytes of a payload without
/// values, and the fields of a CHCP message, are one part.
std::vector<std::string> DataParts(const MessageFields& fields, const Installation* names);

/// The parts in a line.
std::string JoinedParts(const std::vector<std::string>& parts);

/// True when all that a row shows, in a line, has this text in it; upper and lower case are the
/// same.
bool Matches(const MonitorRow& row, const Installation* names, std::string_view text);

/// "0.2", "12.5", "812", "-" for none.
std::string RateText(std::optional<double> rate);

/// "0.3s", "42s", "17m", "3h", "12d".
std::string AgeText(Duration age);

/// What a sparkline of the row shows: its number, or its messages a second, the oldest first.
std::u32string SparklineOf(const MonitorRow& row, Duration now, std::size_t width, bool unicode);

/// Good, warning or bad.
CellGrid::tStyle StyleOf(unsigned int status);

/// "17:05:22.655421" in front of what the frame said: "OPERATING  U16 17".
std::string ChangeText(CanMessage frame, const Installation* names);

/// "17:05:22.655421  bus-off" of an error frame.
std::string ErrorText(const CanMessage& frame);

/// The lines of the long form of 'tarn dump --long'.
std::vector<std::string> LongForm(CanMessage frame);

} // namespace tarn::tool

#endif
