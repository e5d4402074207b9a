#include "Tarn.h"
#include "VerbRun.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <unistd.h>

namespace
{

using namespace tarn;
using namespace tarn::test;
using testing::HasSubstr;

TEST(Send, PutsTheMessageOfItsOptionsOntoTheBus)
{
    Partner partner("send-one");
    VerbRun send({"send", "-b", "virtual:send-one", "--target", "9", "--register", "0x11",
                  "--write", "--u16", "100", "200", "300"});
    EXPECT_EQ(send.Wait(), 0);
    partner.GetBus().WaitUntilIdle(20000);
    EXPECT_EQ(partner.Heard(), " 0E844481#6400C8002C0129");
    EXPECT_EQ(send.out + send.err, "");
}

TEST(Send, RepeatsAtAnInterval)
{
    Partner partner("send-many");
    const auto begin = std::chrono::steady_clock::now();
    VerbRun send({"send", "-b", "virtual:send-many", "--interval", "20ms", "--count", "4"});
    EXPECT_EQ(send.Wait(), 0);
    // Three intervals lie between four messages.
    EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(60));
    partner.GetBus().WaitUntilIdle(20000);
    EXPECT_EQ(partner.Heard(), " 0F800001#20 0F800001#20 0F800001#20 0F800001#20");
    EXPECT_EQ(send.err, "tarn send: 4 sent\n");
}

TEST(Send, SendsTheObjectsOfAFileAndSkipsWhatIsNoMessage)
{
    const std::string file = "/tmp/send-objects-" + std::to_string(::getpid());
    std::ofstream(file) << R"({"target":9,"dataType":"U16","values":[100]})"
                        << "\n\n{\"colour\":1}\n"
                        << R"({"frame":"0F044089#003000C050"})"
                        << "\n";
    Partner partner("send-json");
    VerbRun send({"send", "-b", "virtual:send-json", "--json", file});
    EXPECT_EQ(send.Wait(), 1);
    partner.GetBus().WaitUntilIdle(20000);
    EXPECT_EQ(partner.Heard(), " 0F800481#640029 0F044089#003000C050");
    EXPECT_THAT(send.err, HasSubstr("tarn send: " + file + ":3: \"colour\""));
    EXPECT_THAT(send.err, HasSubstr("tarn send: 2 sent\n"));
    std::remove(file.c_str());
}

TEST(Send, TellsHowManyWentOutBeforeTheBusFailed)
{
    const auto result = Tarn({"send", "-b", "log:examples/logs/startup.log", "--target", "9"});
    EXPECT_EQ(result.exitStatus, 1);
    EXPECT_THAT(result.err, HasSubstr("tarn send: "));
    EXPECT_THAT(result.err, HasSubstr("; sent before: 0\n"));
}

TEST(Send, RefusesWhatDoesNotGoTogether)
{
    EXPECT_EQ(Tarn({"send", "-b", "virtual:x", "--json", "--target", "9"}).exitStatus, 2);
    EXPECT_EQ(Tarn({"send", "-b", "virtual:x", "file"}).exitStatus, 2);
    EXPECT_THAT(Tarn({"send", "-b", "virtual:x", "--interval", "10"}).err,
                HasSubstr("tarn send: --interval 10: no duration; write a number with its unit"));
}

} // namespace
