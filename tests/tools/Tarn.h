#ifndef TESTS_TOOLS_TARN_H
#define TESTS_TOOLS_TARN_H

#include "support/RunCommand.h"

#include <string>
#include <utility>
#include <vector>

/// Runs the tarn command as a user would, in the directory of the project.
inline support::CommandResult Tarn(std::vector<std::string> arguments,
                                   const std::string& input = "")
{
    arguments.insert(arguments.begin(), TARN_COMMAND);
    support::CommandSetup setup;
    setup.input = input;
    setup.directory = PROJECT_DIRECTORY;
    return RunCommand(arguments, setup);
}

#endif
