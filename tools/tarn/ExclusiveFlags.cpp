#include "ExclusiveFlags.h"

#include "Failure.h"

#include <CLI/CLI.hpp>

namespace tarn::tool
{

CLI::Option* ExclusiveFlags::Add(CLI::App& verb, const std::string& name,
                                 std::function<void()> choose, const std::string& help)
{
    return verb.add_flag_function(
        name,
        [this, name, choose = std::move(choose)](std::int64_t) {
            if (!mGiven.empty() && mGiven != name)
                throw UsageFailure(name + ": does not go with " + mGiven + "; give one of them");
            mGiven = name;
            choose();
        },
        help);
}

} // namespace tarn::tool
