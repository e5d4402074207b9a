#ifndef TARN_TOOLS_DECODE_VERB_H
#define TARN_TOOLS_DECODE_VERB_H

#include "iVerb.h"

namespace tarn::tool
{

/// tarn decode: candump logs to readable messages.
std::unique_ptr<iVerb> MakeDecodeVerb(CLI::App& command);

} // namespace tarn::tool

#endif
