#ifndef TARN_TOOLS_SEND_VERB_H
#define TARN_TOOLS_SEND_VERB_H

#include "iVerb.h"

namespace tarn::tool
{

/// tarn send: messages onto a bus.
std::unique_ptr<iVerb> MakeSendVerb(CLI::App& command);

} // namespace tarn::tool

#endif
