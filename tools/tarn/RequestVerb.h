#ifndef TARN_TOOLS_REQUEST_VERB_H
#define TARN_TOOLS_REQUEST_VERB_H

#include "iVerb.h"

namespace tarn::tool
{

/// tarn request: asks devices and waits for their answers.
std::unique_ptr<iVerb> MakeRequestVerb(CLI::App& command);

} // namespace tarn::tool

#endif
