#ifndef TARN_TOOLS_NAMES_OPTION_H
#define TARN_TOOLS_NAMES_OPTION_H

#include "Installation.h"

#include <optional>

namespace CLI
{
class App;
class Option;
} // namespace CLI

namespace tarn::tool
{

/// The installation file whose names are shown and understood.
class NamesOption
{
public:
    /// Adds --names, with TARN_NAMES of the environment for a default.
    void AddOption(CLI::App& verb);

    /// Null without a file. Reads it the first time, also while the options are still being read.
    /// @throws Failure for a file that is not in order
    const Installation* Get() const;

private:
    CLI::Option* mOption = nullptr;
    mutable std::optional<Installation> mInstallation;
};

} // namespace tarn::tool

#endif
