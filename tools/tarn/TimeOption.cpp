#include "TimeOption.h"

#include <CLI/CLI.hpp>

namespace tarn::tool
{

void TimeOption::AddOption(CLI::App& verb)
{
    verb.add_option("--time", mForm,
                    "Times shown: absolute (default), relative (since the first\n"
                    "that is shown), delta (since the one before) or none")
        ->type_name("FORM")
        ->check(CLI::IsMember({"absolute", "relative", "delta", "none"}).name(""))
        ->group("Output");
}

void TimeOption::Apply(CandumpLine& entry)
{
    if (mForm == "none")
        entry.timeForm = CandumpLine::TIME_NONE;
    if (mForm == "absolute" || entry.timeForm == CandumpLine::TIME_NONE)
        return;
    const std::uint64_t time = entry.frame.GetTimeStamp();
    const std::uint64_t reference = mReference.value_or(time);
    if (!mReference || mForm == "delta")
        mReference = time;
    entry.timeForm = CandumpLine::TIME_RELATIVE;
    // Time stamps may run backwards where clocks are set or several interfaces are mixed.
    entry.frame.SetTimeStamp(time > reference ? time - reference : 0);
}

} // namespace tarn::tool
