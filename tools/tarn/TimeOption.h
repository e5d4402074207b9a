#ifndef TARN_TOOLS_TIME_OPTION_H
#define TARN_TOOLS_TIME_OPTION_H

#include <plexa_can/CandumpLine.h>

#include <cstdint>
#include <optional>
#include <string>

namespace CLI
{
class App;
}

namespace tarn::tool
{

/// From where times are counted in the output.
class TimeOption
{
public:
    /// Adds --time to a verb.
    void AddOption(CLI::App& verb);

    /// Replaces an absolute time of the entry by what was asked for. To be called once for every
    /// entry that is shown, in their order.
    void Apply(CandumpLine& entry);

private:
    std::string mForm = "absolute";
    /// What times are counted from: the first entry, or the one before.
    std::optional<std::uint64_t> mReference;
};

} // namespace tarn::tool

#endif
