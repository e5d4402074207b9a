#include "NamesOption.h"

#include <CLI/CLI.hpp>

namespace tarn::tool
{

void NamesOption::AddOption(CLI::App& verb)
{
    mOption = verb.add_option("--names",
                              "Installation file with the names, units and scales of devices,\n"
                              "registers and values; options then take names too.\n"
                              "Default: TARN_NAMES of the environment");
    mOption->type_name("FILE")->envname("TARN_NAMES")->group("Names");
}

const Installation* NamesOption::Get() const
{
    if (mOption == nullptr || mOption->empty() || mOption->results().front().empty())
        return nullptr;
    if (!mInstallation)
        mInstallation = ReadInstallation(mOption->results().front());
    return &*mInstallation;
}

} // namespace tarn::tool
