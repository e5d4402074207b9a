#ifndef TARN_TOOLS_SERVE_VERB_H
#define TARN_TOOLS_SERVE_VERB_H

#include "iVerb.h"

namespace tarn::tool
{

/// tarn serve: a bus for clients over TCP.
std::unique_ptr<iVerb> MakeServeVerb(CLI::App& command);

} // namespace tarn::tool

#endif
