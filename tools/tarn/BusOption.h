#ifndef TARN_TOOLS_BUS_OPTION_H
#define TARN_TOOLS_BUS_OPTION_H

#include <plexa_can/iCanBus.h>

#include <string>
#include <tr1/memory>
#include <utility>

namespace CLI
{
class App;
}

namespace tarn::tool
{

/// The bus that a verb works on.
class BusOption
{
public:
    BusOption() = default;
    /// A bus that was named otherwise.
    explicit BusOption(std::string name) : mName(std::move(name)) {}

    /// Adds -b and --bus, with TARN_BUS of the environment for a default.
    void AddOption(CLI::App& verb);

    bool IsGiven() const { return !mName.empty(); }

    /// The name with its scheme: "socketcan:" is put before the plain name of an interface.
    /// @throws Failure when no bus was named
    std::string GetName() const;

    /// What stands for the bus in a line of output, in at most 15 characters: the interface, the
    /// name of a virtual bus, of a bus over TCP that at its server; empty for a log.
    std::string GetShortName() const;

    /// True for a log, which has an end and can wait.
    bool IsLog() const;

    /// @throws CanException
    std::tr1::shared_ptr<iCanBus> Open() const;

private:
    std::string mName;
};

} // namespace tarn::tool

#endif
