#include "support/Tmux.h"

#include "support/Await.h"
#include "support/RunCommand.h"

#include <chrono>
#include <csignal>
#include <stdexcept>
#include <thread>

namespace tarn::test
{

namespace
{

std::string Quoted(const std::string& text)
{
    std::string quoted = "'";
    for (const char character : text)
        quoted += character == '\'' ? std::string("'\\''") : std::string(1, character);
    return quoted + "'";
}

std::string LineOf(const std::vector<std::string>& arguments,
                   const std::vector<std::string>& environment)
{
    std::string line = "exec env";
    for (const std::string& variable : environment)
        line += ' ' + Quoted(variable);
    for (const std::string& argument : arguments)
        line += ' ' + Quoted(argument);
    return line;
}

/// Polls, since a terminal tells nobody when it changes.
bool AwaitTrue(const std::function<bool()>& condition)
{
    const auto end = std::chrono::steady_clock::now() + 3 * PATIENCE;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > end)
            return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    return true;
}

} // namespace

Tmux::Tmux(const std::vector<std::string>& arguments, const std::vector<std::string>& environment,
           int width, int height)
    : Tmux(LineOf(arguments, environment), width, height)
{
}

Tmux::Tmux(const std::string& line, int width, int height)
{
    const std::string script = mFolder.File(
        "script", "cd " + Quoted(mFolder.PathOf("")) +
                      "\n"
                      "unset LINES COLUMNS NO_COLOR TMUX TMUX_PANE\n"
                      "export LC_ALL=C.UTF-8\n"
                      "ulimit -c 0\n"
                      "trap : INT QUIT\n" // keys for the command reach this shell, too
                      "stty -a >before\n"
                      "sh -c " +
                      Quoted("echo $$ >process; cd " + Quoted(PROJECT_DIRECTORY) + "; " + line) +
                      " 2>errors\n"
                      "echo $? >ended\n"
                      "stty -a >after\n"
                      "mv ended status\n"
                      "exec sleep 1000\n");
    Run({"new-session", "-d", "-x", std::to_string(width), "-y", std::to_string(height), "sh",
         script});
    if (Run({"list-sessions"}).empty())
        throw std::runtime_error("tmux does not start; is it installed?");
}

Tmux::~Tmux()
{
    Run({"kill-server"});
}

std::string Tmux::Run(std::vector<std::string> arguments) const
{
    arguments.insert(arguments.begin(), {"/usr/bin/env", "tmux", "-u", "-f", "/dev/null", "-S",
                                         mFolder.PathOf("socket")});
    return support::RunCommand(arguments).out;
}

void Tmux::Press(const std::vector<std::string>& keys) const
{
    std::vector<std::string> arguments = {"send-keys"};
    arguments.insert(arguments.end(), keys.begin(), keys.end());
    Run(arguments);
}

void Tmux::Resize(int width, int height) const
{
    Run({"resize-window", "-x", std::to_string(width), "-y", std::to_string(height)});
}

void Tmux::Signal(int number) const
{
    ::kill(std::stoi(mFolder.ContentOf("process")), number);
}

std::string Tmux::Screen() const
{
    return Run({"capture-pane", "-p"});
}

std::string Tmux::ColouredScreen() const
{
    return Run({"capture-pane", "-p", "-e"});
}

std::string Tmux::Await(const std::function<bool(const std::string&)>& condition) const
{
    std::string screen;
    AwaitTrue([&] {
        screen = Screen();
        return condition(screen);
    });
    return screen;
}

std::string Tmux::AwaitText(const std::string& text) const
{
    return Await(
        [&text](const std::string& screen) { return screen.find(text) != std::string::npos; });
}

int Tmux::AwaitEnd() const
{
    std::string status;
    const bool hasEnded = AwaitTrue([&] {
        status = mFolder.ContentOf("status");
        return !status.empty();
    });
    return hasEnded ? std::stoi(status) : -1;
}

bool Tmux::IsAsBefore() const
{
    return !mFolder.ContentOf("before").empty() &&
           mFolder.ContentOf("before") == mFolder.ContentOf("after") &&
           Run({"display-message", "-p", "#{cursor_flag}#{alternate_on}#{keypad_flag}"}) == "100\n";
}

} // namespace tarn::test
