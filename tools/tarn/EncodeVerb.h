#ifndef TARN_TOOLS_ENCODE_VERB_H
#define TARN_TOOLS_ENCODE_VERB_H

#include "Verb.h"

namespace tarn::tool
{

/// tarn encode: fields and values to frames.
std::unique_ptr<Verb> MakeEncodeVerb(CLI::App& command);

} // namespace tarn::tool

#endif
