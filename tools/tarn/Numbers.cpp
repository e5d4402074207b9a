#include "Numbers.h"

#include <charconv>
#include <system_error>

namespace tarn::tool
{

std::optional<std::uint64_t> ParseWhole(std::string_view text, std::uint64_t max)
{
    int base = 10;
    if (text.substr(0, 2) == "0x" || text.substr(0, 2) == "0X") {
        text.remove_prefix(2);
        base = 16;
    }
    std::uint64_t value = 0;
    const char* const end = text.data() + text.size();
    const auto result = std::from_chars(text.data(), end, value, base);
    if (result.ec != std::errc() || result.ptr != end || value > max)
        return std::nullopt;
    return value;
}

std::optional<double> ParseReal(std::string_view text)
{
    if (text.substr(0, 1) == "+")
        text.remove_prefix(1);
    double value = 0;
    const char* const end = text.data() + text.size();
    const auto result = std::from_chars(text.data(), end, value);
    if (result.ec != std::errc() || result.ptr != end)
        return std::nullopt;
    return value;
}

} // namespace tarn::tool
