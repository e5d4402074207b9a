#ifndef TARN_TOOLS_RECORD_VERB_H
#define TARN_TOOLS_RECORD_VERB_H

#include "iVerb.h"

namespace tarn::tool
{

/// tarn record: the frames of a bus into log files.
std::unique_ptr<iVerb> MakeRecordVerb(CLI::App& command);

} // namespace tarn::tool

#endif
