#ifndef TARN_TOOLS_DEMO_VERB_H
#define TARN_TOOLS_DEMO_VERB_H

#include "Verb.h"

namespace tarn::tool
{

/// tarn demo: routing and requests, shown on a bus inside the process.
std::unique_ptr<Verb> MakeDemoVerb(CLI::App& command);

} // namespace tarn::tool

#endif
