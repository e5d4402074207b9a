#ifndef TESTS_SUPPORT_RUN_COMMAND_H
#define TESTS_SUPPORT_RUN_COMMAND_H

#include <string>
#include <vector>

namespace support
{

/// What a finished process left behind.
struct CommandResult {
    int exitStatus = -1; ///< -1 when a signal ended it
    int signal = 0;
    std::string out;
    std::string err;
    long maxResidentKilobytes = 0;
};

struct CommandSetup {
    std::string input;
    std::string directory;                ///< to run in; empty for here
    std::vector<std::string> environment; ///< "NAME=value", beside what there is
    bool outputIsTerminal = false;
};

/// Runs a program to its end, as a shell would; arguments[0] is its path.
CommandResult RunCommand(const std::vector<std::string>& arguments, const CommandSetup& setup = {});

/// A program that runs while the test feeds it and reads from it.
class RunningCommand
{
public:
    explicit RunningCommand(const std::vector<std::string>& arguments);
    ~RunningCommand();
    RunningCommand(const RunningCommand&) = delete;
    RunningCommand& operator=(const RunningCommand&) = delete;

    void Write(const std::string& text);
    void CloseInput();
    void CloseOutput();
    void Signal(int number);
    /// Waits for a whole line; cut short at the end of the output, or when nothing comes for long.
    std::string ReadLine();
    /// Waits for the end. 128 + n for the end by signal n.
    int Wait();

private:
    int mProcess = -1;
    int mInput = -1;
    int mOutput = -1;
};

} // namespace support

#endif
