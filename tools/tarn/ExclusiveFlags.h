#ifndef TARN_TOOLS_EXCLUSIVE_FLAGS_H
#define TARN_TOOLS_EXCLUSIVE_FLAGS_H

#include <functional>
#include <string>

namespace CLI
{
class App;
class Option;
} // namespace CLI

namespace tarn::tool
{

/// Flags of which at most one may be given.
class ExclusiveFlags
{
public:
    /// @param choose called when the flag is given
    CLI::Option* Add(CLI::App& verb, const std::string& name, std::function<void()> choose,
                     const std::string& help);

private:
    std::string mGiven;
};

} // namespace tarn::tool

#endif
