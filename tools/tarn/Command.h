#ifndef TARN_TOOLS_COMMAND_H
#define TARN_TOOLS_COMMAND_H

namespace tarn::tool
{

/// The whole command: reads its arguments, runs a verb, tells on standard error what failed.
/// @return the exit status
int RunTarn(int argc, const char* const* argv);

} // namespace tarn::tool

#endif
