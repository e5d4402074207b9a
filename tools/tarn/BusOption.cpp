#include "BusOption.h"

#include "Failure.h"

#include <plexa_can/BusName.h>
#include <plexa_can/CanBus.h>
#include <plexa_can/CandumpLine.h>

#include <CLI/CLI.hpp>

namespace tarn::tool
{

void BusOption::AddOption(CLI::App& verb)
{
    verb.add_option("-b,--bus", mName,
                    "The bus: an interface like can0 (short for socketcan:can0),\n"
                    "virtual:NAME (of this process; 'tarn serve' shares one), log:FILE or\n"
                    "socketcand:HOST:PORT/BUS (of a server), with ?key=value&... for\n"
                    "options. Default: TARN_BUS of the environment")
        ->type_name("BUS")
        ->envname("TARN_BUS")
        ->group("Bus");
}

std::string BusOption::GetName() const
{
    if (mName.empty())
        throw UsageFailure("no bus: none is named; add --bus can0, or set TARN_BUS=can0 for all "
                           "verbs");
    return mName.find(':') == std::string::npos ? "socketcan:" + mName : mName;
}

std::string BusOption::GetShortName() const
{
    std::string address = ParseBusName(GetName()).address;
    if (ParseBusName(GetName()).scheme == "socketcand")
        address.erase(0, address.find('/') + 1); // host and port stand ahead of the bus
    return IsLog() ? "" : address.substr(0, CandumpLine::INTERFACE_SIZE - 1);
}

bool BusOption::IsLog() const
{
    return ParseBusName(GetName()).scheme == "log";
}

std::tr1::shared_ptr<iCanBus> BusOption::Open() const
{
    return CanBus::Open(GetName());
}

} // namespace tarn::tool
