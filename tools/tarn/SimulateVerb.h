#ifndef TARN_TOOLS_SIMULATE_VERB_H
#define TARN_TOOLS_SIMULATE_VERB_H

#include "iVerb.h"

namespace tarn::tool
{

/// tarn simulate: devices of an installation file on a bus.
std::unique_ptr<iVerb> MakeSimulateVerb(CLI::App& command);

} // namespace tarn::tool

#endif
