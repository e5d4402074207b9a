#ifndef TARN_TESTS_SUPPORT_OWN_PROCESS_H
#define TARN_TESTS_SUPPORT_OWN_PROCESS_H

#include <gtest/gtest.h>

#include <cstdlib>
#include <functional>
#include <string>
#include <sys/wait.h>
#include <unistd.h>

namespace tarn::test
{

/// Runs the function in a process of its own and returns the text that it returns: for what is
/// decided once in the life of a process, as the gates of log statements are. The calling process
/// must not have decided it yet.
inline std::string InOwnProcess(const std::function<std::string()>& function)
{
    int ends[2] = {};
    if (pipe(ends) != 0)
        return "no pipe";
    const pid_t child = fork();
    if (child == 0) {
        std::string text;
        try {
            text = function();
        } catch (...) {
            text = "an exception left the process";
        }
        const bool written =
            write(ends[1], text.data(), text.size()) == static_cast<ssize_t>(text.size());
        std::exit(written && !testing::Test::HasFailure() ? 0 : 1);
    }
    close(ends[1]);
    std::string text;
    char block[4096];
    for (ssize_t size = 0; (size = read(ends[0], block, sizeof block)) > 0;)
        text.append(block, static_cast<std::size_t>(size));
    close(ends[0]);
    int status = -1;
    waitpid(child, &status, 0);
    return status == 0 ? text : text + "\nthe process failed\n";
}

} // namespace tarn::test

#endif
