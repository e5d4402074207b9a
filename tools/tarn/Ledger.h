#ifndef TARN_TOOLS_LEDGER_H
#define TARN_TOOLS_LEDGER_H

#include <plexa_can/iCanBus.h>

#include <string>

namespace tarn::tool
{

/// "6 received, 5 delivered, 1 filtered; 2 sent": the counters of a bus in words. What is 0 is left
/// out, but for the number of frames received and for those that were lost.
std::string DescribeLedger(const CanBusCounters& counters);

/// Tells at once when the kernel drops frames, or the connection to a server breaks.
class DropWatch
{
public:
    /// @param verb and the bus begin every remark
    DropWatch(std::string verb, std::string bus) : mVerb(std::move(verb)), mBus(std::move(bus)) {}

    /// Says on standard error what was lost since the last call.
    void Look(const CanBusCounters& counters);

private:
    std::string mVerb;
    std::string mBus;
    unsigned long long mTold = 0;
    unsigned long long mDisconnections = 0;
};

} // namespace tarn::tool

#endif
