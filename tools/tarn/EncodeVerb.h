#ifndef TARN_TOOLS_ENCODE_VERB_H
#define TARN_TOOLS_ENCODE_VERB_H

#include "iVerb.h"

namespace tarn::tool
{

/// tarn encode: fields and values to frames.
std::unique_ptr<iVerb> MakeEncodeVerb(CLI::App& command);

} // namespace tarn::tool

#endif
