#ifndef TARN_TESTS_SUPPORT_TMUX_H
#define TARN_TESTS_SUPPORT_TMUX_H

#include "support/TemporaryFolder.h"

#include <functional>
#include <string>
#include <vector>

namespace tarn::test
{

/// A command on a terminal of its own, in a server of tmux that nobody else has; both end with the
/// object. What a user of that name has configured plays no part.
class Tmux
{
public:
    /// @param arguments of the command, the first is its path
    /// @param environment "NAME=value", beside a locale with UTF-8
    explicit Tmux(const std::vector<std::string>& arguments,
                  const std::vector<std::string>& environment = {}, int width = 80,
                  int height = 24);
    /// A line for the shell.
    explicit Tmux(const std::string& line, int width = 80, int height = 24);
    ~Tmux();
    Tmux(const Tmux&) = delete;
    Tmux& operator=(const Tmux&) = delete;

    /// Presses keys, by the names that tmux has for them: "q", "Enter", "Down", "C-c".
    void Press(const std::vector<std::string>& keys) const;
    void Resize(int width, int height) const;
    void Signal(int number) const;

    /// The lines of the screen.
    std::string Screen() const;
    /// The same with the escape sequences of its colours.
    std::string ColouredScreen() const;

    /// Waits until the screen fulfills a condition, and returns it; after long enough as it is
    /// then.
    std::string Await(const std::function<bool(const std::string&)>& condition) const;
    /// Waits for a text.
    std::string AwaitText(const std::string& text) const;

    /// Waits for the end of the command. Returns its exit status, as a shell has it.
    int AwaitEnd() const;
    /// What the command wrote to standard error, once it has ended.
    std::string Errors() const { return mFolder.ContentOf("errors"); }

    /// True when the terminal has the modes that it had before the command, shows its cursor and is
    /// on its usual screen. To be asked after the end.
    bool IsAsBefore() const;

private:
    std::string Run(std::vector<std::string> arguments) const;

    TemporaryFolder mFolder;
};

} // namespace tarn::test

#endif
