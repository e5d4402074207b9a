#include "Duration.h"

#include "Failure.h"
#include "Numbers.h"

#include <CLI/CLI.hpp>

#include <array>
#include <cmath>
#include <cstdio>
#include <string_view>

namespace tarn::tool
{

namespace
{

struct Unit {
    std::string_view name;
    double nanoseconds;
};

constexpr Unit UNITS[] = {{"us", 1e3}, {"ms", 1e6}, {"s", 1e9}, {"min", 60e9}, {"h", 3600e9}};

constexpr double TEN_YEARS = 10 * 365.25 * 24 * 3600e9;

/// 0 for a unit that is none.
double NanosecondsOf(std::string_view unit)
{
    for (const Unit& known : UNITS) {
        if (known.name == unit)
            return known.nanoseconds;
    }
    return 0;
}

} // namespace

Duration ParseDuration(const std::string& option, const std::string& text)
{
    const std::size_t end = std::min(text.find_first_not_of("0123456789."), text.size());
    const auto number = ParseReal(std::string_view(text).substr(0, end));
    const double unit = NanosecondsOf(std::string_view(text).substr(end));
    if (number && *number == 0 && end == text.size())
        return Duration::zero();
    if (!number || unit == 0 || *number * unit > TEN_YEARS)
        throw UsageFailure(option + ' ' + text +
                           ": no duration; write a number with its unit, like 250ms, 1.5s, 10us, "
                           "2min or 1h");
    return Duration(std::llround(*number * unit));
}

CLI::Option* AddDuration(CLI::App& verb, const std::string& name, Duration& value,
                         const std::string& help)
{
    return verb
        .add_option_function<std::string>(
            name, [name, &value](const std::string& text) { value = ParseDuration(name, text); },
            help)
        ->type_name("TIME");
}

std::chrono::steady_clock::time_point EndAfter(Duration duration)
{
    using Clock = std::chrono::steady_clock;
    return duration == Duration::zero() ? Clock::time_point::max() : Clock::now() + duration;
}

std::string DescribeDuration(Duration duration)
{
    const auto nanoseconds = static_cast<double>(duration.count());
    std::string_view unit = "ns";
    double value = nanoseconds;
    for (const Unit& larger : {UNITS[0], UNITS[1], UNITS[2]}) {
        if (nanoseconds >= larger.nanoseconds) {
            unit = larger.name;
            value = nanoseconds / larger.nanoseconds;
        }
    }
    std::array<char, 40> text = {};
    std::snprintf(text.data(), text.size(), value < 999.5 ? "%.3g " : "%.0f ", value);
    return text.data() + std::string(unit);
}

} // namespace tarn::tool
