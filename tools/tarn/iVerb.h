#ifndef TARN_TOOLS_VERB_H
#define TARN_TOOLS_VERB_H

#include <memory>

namespace CLI
{
class App;
}

namespace tarn::tool
{

/// One subcommand. Whoever makes it has added its options to the command.
class iVerb
{
public:
    virtual ~iVerb() = default;

    virtual const CLI::App& GetOptions() const = 0;

    /// Does the work once the options are read. Returns the exit status.
    /// @throws Failure, ReaderGone
    virtual int Run() = 0;
};

} // namespace tarn::tool

#endif
