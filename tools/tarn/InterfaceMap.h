#ifndef TARN_TOOLS_INTERFACE_MAP_H
#define TARN_TOOLS_INTERFACE_MAP_H

#include "BusOption.h"

#include <plexa_can/iCanBus.h>

#include <functional>
#include <map>
#include <string>
#include <tr1/memory>

namespace CLI
{
class App;
}

namespace tarn::tool
{

/// Which bus the frames of an interface of a log go to.
class InterfaceMap
{
public:
    /// Adds --bus and --map to a verb.
    void AddOptions(CLI::App& verb);

    /// Opens all buses that are named.
    /// @throws Failure when none is, CanException when one cannot be opened
    void Open();

    /// The bus for an interface; null for one that was given no bus.
    iCanBus* Find(const char* interface) const;

    /// Hands every bus with its name to a function.
    void ForEachBus(const std::function<void(const std::string&, const iCanBus&)>& use) const;

private:
    void Add(const std::string& pair);
    std::tr1::shared_ptr<iCanBus> OpenOnce(const BusOption& option);

    BusOption mDefault;
    std::map<std::string, std::string, std::less<>> mNames;
    std::map<std::string, std::tr1::shared_ptr<iCanBus>> mOpen;
    std::map<std::string, iCanBus*, std::less<>> mBuses;
    iCanBus* mDefaultBus = nullptr;
};

} // namespace tarn::tool

#endif
