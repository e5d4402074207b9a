#include "Tarn.h"
#include "support/Tmux.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>

namespace
{

using support::CommandResult;

/// The lines that stand below a heading, without their indentation.
std::vector<std::string> LinesBelow(const std::string& heading, const std::string& text)
{
    std::istringstream stream(text);
    std::vector<std::string> lines;
    bool inside = false;
    for (std::string line; std::getline(stream, line);) {
        if (inside && line.compare(0, 2, "  ") == 0)
            lines.push_back(line.substr(2));
        inside = line == heading || (inside && line.compare(0, 2, "  ") == 0);
    }
    return lines;
}

std::vector<std::string> Verbs()
{
    std::vector<std::string> verbs;
    for (const std::string& line : LinesBelow("Subcommands:", Tarn({"--help"}).out)) {
        if (line.front() != ' ')
            verbs.push_back(line.substr(0, line.find(' ')));
    }
    return verbs;
}

std::string PathWithTarn()
{
    const std::string command = TARN_COMMAND;
    return "PATH=" + command.substr(0, command.rfind('/')) + ":/usr/bin:/bin";
}

CommandResult RunInShell(const std::string& line)
{
    support::CommandSetup setup;
    setup.directory = PROJECT_DIRECTORY;
    setup.environment = {PathWithTarn()};
    return RunCommand({"/bin/bash", "-c", "set -eo pipefail\n" + line}, setup);
}

CommandResult RunOnTerminal(const std::string& line)
{
    const tarn::test::Tmux terminal(PathWithTarn() + ' ' + line);
    CommandResult result;
    result.exitStatus = terminal.AwaitEnd();
    result.err = terminal.Errors();
    return result;
}

/// Such examples run where there is a CAN kernel.
bool NeedsInterface(const std::string& example)
{
    return example.find("can0 ") != std::string::npos &&
           example.find("') can0") == std::string::npos;
}

TEST(Help, NamesTheVerbs)
{
    EXPECT_THAT(Verbs(), testing::IsSupersetOf({"decode", "encode"}));
}

TEST(Help, EndsWithExamplesThatRun)
{
    for (const std::string& verb : Verbs()) {
        const CommandResult help = Tarn({verb, "--help"});
        EXPECT_EQ(help.exitStatus, 0);
        const std::vector<std::string> examples = LinesBelow("Examples:", help.out);
        EXPECT_GE(examples.size(), 2u) << verb;
        for (const std::string& example : examples) {
            SCOPED_TRACE(example);
            EXPECT_THAT(example, testing::HasSubstr("tarn " + verb));
            if (NeedsInterface(example))
                continue;
            const CommandResult result =
                verb == "monitor" ? RunOnTerminal(example) : RunInShell(example);
            EXPECT_EQ(result.exitStatus, 0) << result.err;
            EXPECT_NE(result.out + result.err, "");
        }
    }
}

TEST(Help, FitsATerminalOf100Columns)
{
    for (const std::string& verb : Verbs()) {
        std::istringstream stream(Tarn({verb, "--help"}).out);
        for (std::string line; std::getline(stream, line);)
            EXPECT_LE(line.size(), 100u) << line;
    }
}

TEST(Help, TellsTheVersion)
{
    EXPECT_THAT(Tarn({"--version"}).out, testing::MatchesRegex("tarn [0-9]+\\.[0-9]+\\.[0-9]+\n"));
}

TEST(SampleLogs, SayWhatTheirHeadingsPromise)
{
    EXPECT_EQ(RunInShell("tarn decode examples/logs/startup.log 2>&1 | tail -n 1").out,
              "tarn decode: 20 frames read: 20 decoded, 0 not Tarn; 0 lines malformed, "
              "2 comments\n");
    EXPECT_EQ(
        RunInShell("tarn decode -q --type CHCP examples/logs/chcp-configuration.log | wc -l").out,
        "7\n");
    EXPECT_EQ(RunInShell("tarn decode -q --csv examples/logs/data-types.log | cut -d, -f12 | sort "
                         "-u | tr '\\n' ' '")
                  .out,
              "FLOAT NOT A TYPE S16F0 S16F1 S16F2 S16F3 S16F4 S16F5 S16F6 S16F7 U16 U24 U32 U48 "
              "U8 dataType ");
}

} // namespace
