#ifndef TARN_TOOLS_DURATION_H
#define TARN_TOOLS_DURATION_H

#include <chrono>
#include <string>

namespace CLI
{
class App;
class Option;
} // namespace CLI

namespace tarn::tool
{

using Duration = std::chrono::nanoseconds;

/// Reads "250ms", "1.5s", "10us", "2min" or "1h". The unit is never left out, except of 0: a guess
/// that is wrong by a thousand would do harm on a bus.
/// @param option begins the message of a refusal
/// @throws Failure for anything else, and for more than ten years
Duration ParseDuration(const std::string& option, const std::string& text);

/// Adds an option that reads a duration.
CLI::Option* AddDuration(CLI::App& verb, const std::string& name, Duration& value,
                         const std::string& help);

/// The time that an option --duration says: so long from now, and never where it was not given (0).
std::chrono::steady_clock::time_point EndAfter(Duration duration);

/// "850 ns", "12.3 us", "1.25 ms", "2.5 s": three digits that count.
std::string DescribeDuration(Duration duration);

} // namespace tarn::tool

#endif
