#include "support/RunCommand.h"

#include <array>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <stdexcept>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace support
{

namespace
{

/// Milliseconds after which a process that says nothing is taken for stuck.
constexpr int PATIENCE = 60000;

int Check(int result, const char* what)
{
    if (result < 0)
        throw std::runtime_error(std::string("test support: ") + what + " failed");
    return result;
}

/// A file without a name.
int MemoryFile(const std::string& content)
{
    const int file = Check(::memfd_create("test", MFD_CLOEXEC), "memfd_create");
    std::size_t done = 0;
    while (done < content.size())
        done += static_cast<std::size_t>(
            Check(static_cast<int>(::write(file, &content[done], content.size() - done)), "write"));
    ::lseek(file, 0, SEEK_SET);
    return file;
}

std::string ReadAll(int file)
{
    std::string content;
    std::array<char, 65536> block;
    for (;;) {
        const ssize_t count = ::read(file, block.data(), block.size());
        if (count <= 0) // a terminal whose other side is gone gives an error
            return content;
        content.append(block.data(), static_cast<std::size_t>(count));
    }
}

std::string ReadFile(int file)
{
    ::lseek(file, 0, SEEK_SET);
    std::string content = ReadAll(file);
    ::close(file);
    return content;
}

[[noreturn]] void Become(const std::vector<std::string>& arguments, int in, int out, int err,
                         const CommandSetup& setup)
{
    ::dup2(in, STDIN_FILENO);
    ::dup2(out, STDOUT_FILENO);
    ::dup2(err, STDERR_FILENO);
    for (const std::string& variable : setup.environment)
        ::putenv(const_cast<char*>(variable.c_str()));
    if (!setup.directory.empty() && ::chdir(setup.directory.c_str()) != 0)
        ::_exit(126);
    std::vector<char*> argv;
    for (const std::string& argument : arguments)
        argv.push_back(const_cast<char*>(argument.c_str()));
    argv.push_back(nullptr);
    ::execv(argv[0], argv.data());
    ::_exit(127);
}

} // namespace

CommandResult RunCommand(const std::vector<std::string>& arguments, const CommandSetup& setup)
{
    const int in = MemoryFile(setup.input);
    const int err = MemoryFile("");
    int out = -1;
    int terminal = -1;
    if (setup.outputIsTerminal)
        Check(::openpty(&terminal, &out, nullptr, nullptr, nullptr), "openpty");
    else
        out = MemoryFile("");
    const pid_t process = Check(::fork(), "fork");
    if (process == 0)
        Become(arguments, in, out, err, setup);
    CommandResult result;
    if (setup.outputIsTerminal) {
        ::close(out);
        result.out = ReadAll(terminal);
        ::close(terminal);
    }
    int status = 0;
    rusage usage = {};
    Check(::wait4(process, &status, 0, &usage), "wait4");
    result.exitStatus = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    result.signal = WIFSIGNALED(status) ? WTERMSIG(status) : 0;
    result.maxResidentKilobytes = usage.ru_maxrss;
    if (!setup.outputIsTerminal)
        result.out = ReadFile(out);
    result.err = ReadFile(err);
    ::close(in);
    return result;
}

RunningCommand::RunningCommand(const std::vector<std::string>& arguments)
{
    std::array<int, 2> in = {};
    std::array<int, 2> out = {};
    Check(::pipe2(in.data(), O_CLOEXEC), "pipe");
    Check(::pipe2(out.data(), O_CLOEXEC), "pipe");
    mProcess = Check(::fork(), "fork");
    if (mProcess == 0)
        Become(arguments, in[0], out[1], STDERR_FILENO, {});
    ::close(in[0]);
    ::close(out[1]);
    mInput = in[1];
    mOutput = out[0];
    std::signal(SIGPIPE, SIG_IGN);
}

RunningCommand::~RunningCommand()
{
    CloseInput();
    CloseOutput();
    if (mProcess > 0) {
        ::kill(mProcess, SIGKILL);
        Wait();
    }
}

void RunningCommand::Write(const std::string& text)
{
    Check(static_cast<int>(::write(mInput, text.data(), text.size())), "write");
}

void RunningCommand::CloseInput()
{
    if (mInput >= 0)
        ::close(mInput);
    mInput = -1;
}

void RunningCommand::CloseOutput()
{
    if (mOutput >= 0)
        ::close(mOutput);
    mOutput = -1;
}

void RunningCommand::Signal(int number)
{
    ::kill(mProcess, number);
}

std::string RunningCommand::ReadLine()
{
    std::string line;
    char character = 0;
    pollfd output = {mOutput, POLLIN, 0};
    while (::poll(&output, 1, PATIENCE) == 1 && ::read(mOutput, &character, 1) == 1 &&
           character != '\n')
        line += character;
    return line;
}

int RunningCommand::Wait()
{
    int status = 0;
    Check(::waitpid(mProcess, &status, 0), "waitpid");
    mProcess = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

} // namespace support
