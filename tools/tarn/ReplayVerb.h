#ifndef TARN_TOOLS_REPLAY_VERB_H
#define TARN_TOOLS_REPLAY_VERB_H

#include "iVerb.h"

namespace tarn::tool
{

/// tarn replay: log files onto buses.
std::unique_ptr<iVerb> MakeReplayVerb(CLI::App& command);

} // namespace tarn::tool

#endif
