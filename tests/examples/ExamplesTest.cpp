#include "support/RunCommand.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace
{

std::string Content(const std::string& path)
{
    std::ifstream file(path);
    EXPECT_TRUE(file.is_open()) << path;
    std::ostringstream content;
    content << file.rdbuf();
    return content.str();
}

class Example : public testing::TestWithParam<std::string>
{
};

TEST_P(Example, PrintsWhatIsWrittenBesideIt)
{
    const auto result = support::RunCommand(
        {EXAMPLE_PROGRAMS "/example_" + GetParam(), EXAMPLES_DIRECTORY "/logging.properties"});
    EXPECT_EQ(result.exitStatus, 0);
    EXPECT_EQ(result.out, Content(EXAMPLES_DIRECTORY "/" + GetParam() + ".txt"));
    EXPECT_EQ(result.err, "");
}

TEST_P(Example, FitsAPage)
{
    const std::string text = Content(EXAMPLES_DIRECTORY "/" + GetParam() + ".cpp");
    EXPECT_LT(std::count(text.begin(), text.end(), '\n'), 60);
}

const auto NAMES = testing::Values("logging", "mock_device", "request_response", "subscribe");

INSTANTIATE_TEST_SUITE_P(All, Example, NAMES, [](const auto& name) { return name.param; });

TEST(Examples, AreAllRun)
{
    int programs = 0;
    for (const auto& file : std::filesystem::directory_iterator(EXAMPLES_DIRECTORY))
        programs += file.path().extension() == ".cpp" ? 1 : 0;
    EXPECT_EQ(programs, 4);
}

} // namespace
