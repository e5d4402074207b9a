#ifndef TARN_TOOLS_DUMP_VERB_H
#define TARN_TOOLS_DUMP_VERB_H

#include "iVerb.h"

namespace tarn::tool
{

/// tarn dump: the messages of a bus as they come.
std::unique_ptr<iVerb> MakeDumpVerb(CLI::App& command);

} // namespace tarn::tool

#endif
