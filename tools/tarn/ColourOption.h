#ifndef TARN_TOOLS_COLOUR_OPTION_H
#define TARN_TOOLS_COLOUR_OPTION_H

#include <string>

namespace CLI
{
class App;
}

namespace tarn::tool
{

/// Whether standard output is coloured.
class ColourOption
{
public:
    /// Adds --color to a verb.
    /// @param where what is coloured, for the help
    void AddOption(CLI::App& verb, const std::string& where);

    bool IsOn() const;

private:
    std::string mWhen = "auto";
};

} // namespace tarn::tool

#endif
