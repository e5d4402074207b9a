#include "ColourOption.h"

#include <CLI/CLI.hpp>

#include <cstdlib>
#include <unistd.h>

namespace tarn::tool
{

void ColourOption::AddOption(CLI::App& verb, const std::string& where)
{
    verb.add_option("--color", mWhen,
                    "Colour" + where +
                        ": auto, always or never. auto (default)\n"
                        "is on a terminal unless NO_COLOR is set")
        ->type_name("WHEN")
        ->check(CLI::IsMember({"auto", "always", "never"}).name(""))
        ->group("Output");
}

bool ColourOption::IsOn() const
{
    if (mWhen != "auto")
        return mWhen == "always";
    // NOLINTNEXTLINE(concurrency-mt-unsafe): nobody changes the environment
    const char* const noColour = std::getenv("NO_COLOR");
    return (noColour == nullptr || *noColour == '\0') && ::isatty(STDOUT_FILENO) != 0;
}

} // namespace tarn::tool
