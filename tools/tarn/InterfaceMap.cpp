#include "InterfaceMap.h"

#include "Failure.h"

#include <CLI/CLI.hpp>

#include <string_view>
#include <vector>

namespace tarn::tool
{

void InterfaceMap::AddOptions(CLI::App& verb)
{
    mDefault.AddOption(verb);
    verb.add_option_function<std::vector<std::string>>(
            "--map",
            [this](const std::vector<std::string>& pairs) {
                for (const std::string& pair : pairs)
                    Add(pair);
            },
            "Frames of an interface of the log go to this bus, instead of\n"
            "--bus: can0=can1. May be given again; without --bus, frames of\n"
            "other interfaces are left out")
        ->allow_extra_args(false) // what follows the pair are files
        ->type_name("FROM=BUS")
        ->group("Bus");
}

void InterfaceMap::Add(const std::string& pair)
{
    const std::size_t sign = pair.find('=');
    if (sign == std::string::npos || sign == 0 || sign + 1 == pair.size())
        throw UsageFailure("--map " + pair +
                           ": is no pair; write the interface of the log, = and a bus: can0=can1");
    if (!mNames.emplace(pair.substr(0, sign), pair.substr(sign + 1)).second)
        throw UsageFailure("--map " + pair + ": " + pair.substr(0, sign) +
                           " has a bus already; give it one");
}

void InterfaceMap::Open()
{
    if (!mDefault.IsGiven() && mNames.empty())
        throw UsageFailure("no bus: none is named; add --bus can0, or --map can0=can1");
    for (const auto& [from, name] : mNames)
        mBuses[from] = OpenOnce(BusOption(name)).get();
    if (mDefault.IsGiven())
        mDefaultBus = OpenOnce(mDefault).get();
}

/// Two connections to one bus would hear each other.
std::tr1::shared_ptr<iCanBus> InterfaceMap::OpenOnce(const BusOption& option)
{
    auto& bus = mOpen[option.GetName()];
    if (!bus)
        bus = option.Open();
    return bus;
}

iCanBus* InterfaceMap::Find(const char* interface) const
{
    const auto found = mBuses.find(std::string_view(interface));
    return found == mBuses.end() ? mDefaultBus : found->second;
}

void InterfaceMap::ForEachBus(
    const std::function<void(const std::string&, const iCanBus&)>& use) const
{
    for (const auto& [name, bus] : mOpen)
        use(name, *bus);
}

} // namespace tarn::tool
