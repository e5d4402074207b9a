#ifndef TARN_TOOLS_SPARKLINE_H
#define TARN_TOOLS_SPARKLINE_H

#include <cstddef>
#include <string>
#include <vector>

namespace tarn::tool
{

/// Draws numbers, the oldest first, as a line of blocks of eight heights; in ASCII "_.-~=+*#".
/// Where there are fewer cells than numbers, each shows the mean of several. A NaN is nothing, and
/// a cell of nothing is blank.
/// @param lowest what the lowest block stands for; the highest stands for the largest number
std::u32string DrawSparkline(const std::vector<double>& numbers, double lowest, std::size_t width,
                             bool unicode);

/// The smallest of the numbers that are none of NaN and infinity; 0 for none.
double SmallestOf(const std::vector<double>& numbers);

} // namespace tarn::tool

#endif
