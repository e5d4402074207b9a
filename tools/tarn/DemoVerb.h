#ifndef TARN_TOOLS_DEMO_VERB_H
#define TARN_TOOLS_DEMO_VERB_H

#include "iVerb.h"

namespace tarn::tool
{

/// tarn demo: routing and requests, shown on a bus inside the process.
std::unique_ptr<iVerb> MakeDemoVerb(CLI::App& command);

} // namespace tarn::tool

#endif
