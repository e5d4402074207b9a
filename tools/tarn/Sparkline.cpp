#include "Sparkline.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace tarn::tool
{

namespace
{

constexpr std::u32string_view BLOCKS = U"\u2581\u2582\u2583\u2584\u2585\u2586\u2587\u2588";
constexpr std::u32string_view ASCII_BLOCKS = U"_.-~=+*#";

double MeanOf(const std::vector<double>& numbers, std::size_t first, std::size_t end)
{
    double sum = 0;
    double count = 0;
    for (std::size_t at = first; at < end; ++at) {
        if (std::isfinite(numbers[at])) {
            sum += numbers[at];
            ++count;
        }
    }
    return count > 0 ? sum / count : std::numeric_limits<double>::quiet_NaN();
}

double LargestOf(const std::vector<double>& numbers)
{
    double largest = -std::numeric_limits<double>::infinity();
    for (const double number : numbers) {
        if (std::isfinite(number))
            largest = std::max(largest, number);
    }
    return largest;
}

char32_t BlockFor(double number, double lowest, double largest, std::u32string_view blocks)
{
    if (!std::isfinite(number))
        return U' ';
    // Halves, so that the difference of two large numbers stays finite.
    const double range = largest / 2 - lowest / 2;
    const double share = range > 0 ? (number / 2 - lowest / 2) / range : 0;
    const double height = std::clamp(share, 0.0, 1.0) * static_cast<double>(blocks.size() - 1);
    return blocks[static_cast<std::size_t>(std::lround(height))];
}

} // namespace

double SmallestOf(const std::vector<double>& numbers)
{
    double smallest = std::numeric_limits<double>::infinity();
    for (const double number : numbers) {
        if (std::isfinite(number))
            smallest = std::min(smallest, number);
    }
    return std::isfinite(smallest) ? smallest : 0;
}

std::u32string DrawSparkline(const std::vector<double>& numbers, double lowest, std::size_t width,
                             bool unicode)
{
    const std::size_t cells = std::min(width, numbers.size());
    const double largest = LargestOf(numbers);
    std::u32string line;
    for (std::size_t cell = 0; cell < cells; ++cell) {
        const double mean =
            MeanOf(numbers, cell * numbers.size() / cells, (cell + 1) * numbers.size() / cells);
        line += BlockFor(mean, lowest, largest, unicode ? BLOCKS : ASCII_BLOCKS);
    }
    return line;
}

} // namespace tarn::tool
