#ifndef TARN_TOOLS_SCAN_VERB_H
#define TARN_TOOLS_SCAN_VERB_H

#include "iVerb.h"

namespace tarn::tool
{

/// tarn scan: who is on a bus.
std::unique_ptr<iVerb> MakeScanVerb(CLI::App& command);

} // namespace tarn::tool

#endif
