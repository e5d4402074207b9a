#ifndef TARN_TOOLS_NUMBERS_H
#define TARN_TOOLS_NUMBERS_H

#include <cstdint>
#include <optional>
#include <string_view>

namespace tarn::tool
{

/// A whole number as people write it, decimal or with 0x hexadecimal; nothing when the text is none
/// or the number is above max.
std::optional<std::uint64_t> ParseWhole(std::string_view text, std::uint64_t max);

/// A decimal number, "nan", "inf" or "-inf".
std::optional<double> ParseReal(std::string_view text);

} // namespace tarn::tool

#endif
