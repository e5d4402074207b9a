#include "Tarn.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <sstream>

namespace
{

using testing::HasSubstr;
using testing::Not;

std::string Content(const std::string& path)
{
    std::ifstream file(path);
    std::ostringstream content;
    content << file.rdbuf();
    return content.str();
}

std::string DemoOnTerminal(std::vector<std::string> options, const std::string& environment)
{
    options.insert(options.begin(), {TARN_COMMAND, "demo"});
    support::CommandSetup setup;
    setup.environment = {environment};
    setup.outputIsTerminal = true;
    return RunCommand(options, setup).out;
}

TEST(Demo, TellsTheSameStoryEveryTime)
{
    const support::CommandResult result = Tarn({"demo"});
    EXPECT_EQ(result.exitStatus, 0);
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(result.out, Content(PROJECT_DIRECTORY "/docs/demo.txt"));
}

TEST(Demo, UsesColourOnATerminalOnly)
{
    const std::string green = "\x1b[32m";
    EXPECT_THAT(DemoOnTerminal({}, "NO_COLOR="), HasSubstr(green));
    EXPECT_THAT(DemoOnTerminal({}, "NO_COLOR=1"), Not(HasSubstr("\x1b")));
    EXPECT_THAT(Tarn({"demo", "--color", "always"}).out, HasSubstr(green));
}

TEST(Demo, EndsQuietlyWhenNobodyReadsOn)
{
    support::RunningCommand demo({TARN_COMMAND, "demo"});
    EXPECT_EQ(demo.ReadLine(), "Four nodes on a CAN bus that exists in this process only:");
    demo.CloseOutput();
    EXPECT_EQ(demo.Wait(), 0);
}

} // namespace
