#ifndef TARN_TOOLS_MONITOR_VERB_H
#define TARN_TOOLS_MONITOR_VERB_H

#include "iVerb.h"

namespace tarn::tool
{

/// tarn monitor: a bus on a full screen, as it is now.
std::unique_ptr<iVerb> MakeMonitorVerb(CLI::App& command);

} // namespace tarn::tool

#endif
