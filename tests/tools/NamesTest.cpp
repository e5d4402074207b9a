#include "Installation.h"
#include "Simulation.h"
#include "Tarn.h"
#include "VerbRun.h"
#include "support/CaseName.h"

#include <tarn/TarnAsyncDispatcher.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace
{

using namespace tarn;
using namespace tarn::test;
using namespace tarn::tool;
using testing::HasSubstr;
using testing::MatchesRegex;

// The controller is 1, the pump 5 with module 3 "drive", the valve 9, both in group 1.
const std::string PUMP_STATION = "examples/installations/pump-station.json";

/// The speed of the pump, 1205 steps of 0.1 rpm, and its temperatures; a request to the group; a
/// CHCP message of the pump; a message from 1 to 18, which has no name.
const std::string FRAMES = "0F040085#B50459\n"
                           "0F440085#65585803\n"
                           "0D840081#20\n"
                           "100ABCDE#78563412050020\n"
                           "0F840901#20\n";

std::string Decoded(std::vector<std::string> options, const std::string& frames = FRAMES)
{
    options.insert(options.begin(), {"decode", "-q", "--names", PUMP_STATION});
    return Tarn(options, frames).out;
}

TEST(Names, StandBesideTheNumbers)
{
    EXPECT_EQ(Decoded({}),
              "  5 pump       -> 1        controller     reg  16 (0x10) speed        READ  response"
              "  OPERATING                    U16   actual=120.5 rpm\n"
              "  5 pump       -> 1.3      controller     reg  16 (0x10) temperature  READ  response"
              "  OPERATING                    U8    winding=61 degC, bearing=48 degC\n"
              "  1 controller -> g1       all actuators  reg  16 (0x10) speed        READ  request "
              "  POWERUP                      S16F0\n"
              "CHCP 00ABCDE  device 12345678  id   5  cmd 0     POWERUP  (pump)\n"
              "  1 controller -> 18                      reg  16 (0x10)              READ  request "
              "  POWERUP                      S16F0\n");
}

TEST(Names, OfModulesStandBehindTheirDevice)
{
    EXPECT_THAT(Decoded({}, "0FC40281#2003\n"),
                HasSubstr(" -> 5.3      pump.drive     reg  16 (0x10) temperature  READ  request"));
}

TEST(Names, AreMembersOfTheObjects)
{
    const std::string objects = Decoded({"--json"});
    EXPECT_THAT(objects, HasSubstr(R"("values":[1205],"sourceName":"pump",)"
                                   R"("targetName":"controller","registerName":"speed",)"
                                   R"("named":{"actual":{"value":120.5,"unit":"rpm"}}})"));
    EXPECT_THAT(objects, HasSubstr(R"("moduleName":"drive","registerName":"temperature",)"
                                   R"("named":{"winding":{"value":61,"unit":"degC"},)"
                                   R"("bearing":{"value":48,"unit":"degC"}}})"));
    EXPECT_THAT(objects, HasSubstr(R"("macName":"pump"})"));
    EXPECT_EQ(Tarn({"encode", "--json"}, objects).out, FRAMES);
}

TEST(Names, AreColumnsBehindTheOthers)
{
    const std::string table = Decoded({"--csv"});
    EXPECT_THAT(table,
                MatchesRegex(".*,note,sourceName,targetName,moduleName,registerName,macName,named\n"
                             "(.*\n)+"));
    EXPECT_THAT(table, HasSubstr(",B504,1205,,pump,controller,,speed,,actual=120.5 rpm\n"));
    EXPECT_THAT(table, HasSubstr(",pump,controller,drive,temperature,,\"winding=61 degC, "
                                 "bearing=48 degC\"\n"));
}

TEST(Names, AValueOfAnotherTypeIsShownAsItIs)
{
    // Two values instead of one; U8 instead of U16; FLOAT where there is no register.
    EXPECT_THAT(Decoded({}, "0F040085#B504010059\n"), HasSubstr(" U16   1205 1\n"));
    EXPECT_THAT(Decoded({}, "0F040085#B558\n"), HasSubstr(" U8    181\n"));
    EXPECT_THAT(Decoded({}, "0F048085#0000C03F5D\n"), HasSubstr(" FLOAT 1.5\n"));
}

TEST(Names, OfFixedPointValuesFollowEveryFormat)
{
    // The valve answers in S16F5: 8 steps to 1.
    EXPECT_THAT(Decoded({}, "0F040089#9001080055\n"), HasSubstr(" set=50 %, actual=1 %\n"));
}

TEST(Names, WithoutThemNothingChanges)
{
    const std::string plain = Tarn({"decode", "-q"}, FRAMES).out;
    EXPECT_THAT(plain, testing::StartsWith(
                           "  5 -> 1         reg  16 (0x10)  READ  response  OPERATING       "
                           "             U16   1205\n"));
    EXPECT_THAT(Tarn({"decode", "-q", "--json"}, FRAMES).out, testing::Not(HasSubstr("Name\"")));
}

TEST(Names, ComeFromTheEnvironment)
{
    support::CommandSetup setup;
    setup.directory = PROJECT_DIRECTORY;
    setup.environment = {"TARN_NAMES=" + PUMP_STATION};
    setup.input = FRAMES;
    EXPECT_THAT(support::RunCommand({TARN_COMMAND, "decode", "-q"}, setup).out,
                HasSubstr("actual=120.5 rpm"));
    setup.environment = {"TARN_NAMES=examples/none.json"};
    const auto none = support::RunCommand({TARN_COMMAND, "decode", "-q"}, setup);
    EXPECT_EQ(none.exitStatus, 1);
    EXPECT_THAT(none.err, HasSubstr("examples/none.json: cannot be read: "));
}

TEST(Names, ChooseMessages)
{
    const auto linesOf = [](const std::string& text) {
        return std::count(text.begin(), text.end(), '\n');
    };
    EXPECT_EQ(linesOf(Decoded({"--source", "pump"})), 2);
    EXPECT_EQ(linesOf(Decoded({"--source", "PUMP,1"})), 4);
    EXPECT_EQ(linesOf(Decoded({"--target", "all actuators"})), 3);
    EXPECT_EQ(linesOf(Decoded({"--register", "speed"})), 2);
    EXPECT_EQ(linesOf(Decoded({"--register", "speed,temperature"})), 3);
    EXPECT_EQ(linesOf(Decoded({"--register", "pressure"})), 0);
}

struct Encoding {
    std::string name;
    std::vector<std::string> options;
    std::string frame;
};

void PrintTo(const Encoding& encoding, std::ostream* out)
{
    *out << testing::PrintToString(encoding.options);
}

class NamesEncode : public testing::TestWithParam<Encoding>
{
protected:
    static support::CommandResult Encode(std::vector<std::string> options)
    {
        options.insert(options.begin(), {"encode", "--names", PUMP_STATION});
        return Tarn(options);
    }
};

TEST_P(NamesEncode, AMessage)
{
    const auto result = Encode(GetParam().options);
    EXPECT_EQ(result.out, GetParam().frame + '\n') << result.err;
}

INSTANTIATE_TEST_SUITE_P(
    Messages, NamesEncode,
    testing::ValuesIn(std::vector<Encoding>{
        {"Read", {"--target", "pump", "--register", "speed"}, "0F840281#20"},
        {"Source", {"--source", "valve", "--target", "Pump"}, "0F800289#20"},
        {"Module", {"--target", "pump.drive"}, "0FC00281#2003"},
        {"ModuleByNumber", {"--target", "pump.3"}, "0FC00281#2003"},
        {"ModuleByItself", {"--target", "5", "--module", "drive"}, "0FC00281#2003"},
        {"ModuleOfTheRegister", {"--target", "pump", "--register", "temperature"}, "0FC40281#2003"},
        {"Group", {"--target", "all actuators", "--register", "speed"}, "0D840081#20"},
        // 120.5 / 0.1 is 1205.
        {"Write", {"--target", "pump", "--register", "speed", "--set", "120.5"}, "0E840281#B50429"},
        {"WriteByName",
         {"--target", "pump", "--register", "speed", "--set", "actual=120.5"},
         "0E840281#B50429"},
        {"WriteByNumber",
         {"--target", "5", "--register", "16", "--set", "120.5"},
         "0E840281#B50429"},
        // 61 + 40, -40 + 40.
        {"WriteWithOffset",
         {"--target", "pump", "--register", "temperature", "--set", "61", "-40"},
         "0EC40281#65002803"},
        // S16F4 has 32 steps to 1.
        {"WriteInAnyOrder",
         {"--target", "valve", "--register", "position", "--set", "actual=-1", "set=50"},
         "0E840481#4006E0FF24"},
        {"ResponseOfTheSource",
         {"--source", "pump", "--target", "controller", "--register", "speed", "--response",
          "--set", "120.5"},
         "0E040085#B50429"}}),
    support::CaseName());

struct Mistake {
    std::string name;
    std::vector<std::string> options;
    std::string message;
};

void PrintTo(const Mistake& mistake, std::ostream* out)
{
    *out << testing::PrintToString(mistake.options);
}

class NamesMistake : public testing::TestWithParam<Mistake>
{
};

TEST_P(NamesMistake, IsExplained)
{
    std::vector<std::string> options = GetParam().options;
    options.insert(options.begin(), {"encode", "--names", PUMP_STATION});
    const auto result = Tarn(options);
    EXPECT_EQ(result.exitStatus, 2);
    EXPECT_EQ(result.err, "tarn encode: " + GetParam().message + '\n');
}

INSTANTIATE_TEST_SUITE_P(
    Options, NamesMistake,
    testing::ValuesIn(std::vector<Mistake>{
        {"Target",
         {"--target", "pmp"},
         "--target pmp: no such device or group; did you mean pump?"},
        {"Source",
         {"--source", "boiler"},
         "--source boiler: no such device; choose from controller, pump, valve"},
        {"Module",
         {"--target", "pump.drives"},
         "--module drives: no such module of pump; did you mean drive?"},
        {"Register",
         {"--target", "valve", "--register", "speed"},
         "--register speed: no such register of valve; choose from position"},
        {"RegisterOfNobody",
         {"--target", "77", "--register", "speed"},
         "--register speed: the device whose it is is not known; give its name or address with "
         "--target, or a number here"},
        {"RegisterOfNoneInTheGroup",
         {"--target", "all actuators", "--register", "colour"},
         "--register colour: no device of the group has such a register; give its number"},
        {"Value",
         {"--target", "pump", "--register", "speed", "--set", "actal=1"},
         "--set actal=1: no such value of speed; did you mean actual?"},
        {"ValueOutOfRange",
         {"--target", "pump", "--register", "speed", "--set", "6553.6"},
         "--set 6553.6: actual goes from 0 to 6553.5; correct it"},
        {"NoNumber",
         {"--target", "pump", "--register", "speed", "--set", "fast"},
         "--set fast: no number; write it like 1.5, -2 or actual=1.5"},
        {"TooFewValues",
         {"--target", "valve", "--register", "position", "--set", "50"},
         "--set: position has 2 values, which are written together; give --set set=... actual=..."},
        {"OneValueTwice",
         {"--target", "valve", "--register", "position", "--set", "set=50", "set=51"},
         "--set: position has 2 values, which are written together; give --set set=... actual=..."},
        {"UnknownRegister",
         {"--target", "pump", "--register", "99", "--set", "1"},
         "--set 1: the names file does not describe register 99 of pump; add it there, or give "
         "--u16 and the like"},
        {"TwoPayloads",
         {"--target", "pump", "--register", "speed", "--set", "1", "--u16", "1"},
         "--set: does not go with --u16; give one of them"},
        {"ReadAndSet",
         {"--target", "pump", "--register", "speed", "--set", "1", "--read"},
         "--set: does not go with --read; give one of them"}}),
    support::CaseName());

TEST(NamesWithoutAFile, AreNoNumbers)
{
    EXPECT_EQ(Tarn({"encode", "--target", "pump"}).err,
              "tarn encode: --target pump: no whole number from 0 to 127; write it in decimal or "
              "with 0x in hexadecimal digits\n");
    EXPECT_EQ(Tarn({"encode", "--set", "1"}).err,
              "tarn encode: --set: takes type and scale from an installation file; add --names "
              "FILE, or give --u16 and the like\n");
}

/// The pump station on a virtual bus.
class NamedRequest : public testing::Test
{
protected:
    NamedRequest() { mDispatcher->Start(); }
    ~NamedRequest() noexcept override
    {
        mSimulation.reset();
        mDispatcher->Stop();
    }

    int Run(std::vector<std::string> arguments)
    {
        if (!mSimulation) {
            mSimulation = std::make_unique<Simulation>(mDispatcher);
            for (const InstalledDevice& device : mPlant.devices) {
                if (device.simulated)
                    mSimulation->Add(device);
            }
        }
        arguments.insert(arguments.begin(), {"request", "-b", "virtual:names-test", "--names",
                                             PROJECT_DIRECTORY "/" + PUMP_STATION});
        VerbRun run(arguments);
        const int status = run.Wait();
        mOut = run.out;
        mErr = run.err;
        return status;
    }

    const Installation mPlant = ReadInstallation(PROJECT_DIRECTORY "/" + PUMP_STATION);
    const std::tr1::shared_ptr<VirtualCanBus> mBus = VirtualCanBus::Open("names-test");
    std::tr1::shared_ptr<iTarnAsyncDispatcher> mDispatcher =
        TarnAsyncDispatcher::Create(mBus->Connect());
    std::unique_ptr<Simulation> mSimulation;
    std::string mOut;
    std::string mErr;
};

TEST_F(NamedRequest, ReadsAndWritesByName)
{
    EXPECT_EQ(Run({"--target", "pump", "--register", "speed"}), 0);
    EXPECT_EQ(mOut, "actual=120.5 rpm\n");
    EXPECT_EQ(Run({"--target", "pump", "--register", "speed", "--set", "99.9"}), 0);
    EXPECT_EQ(mOut, "actual=99.9 rpm\n");
    EXPECT_EQ(Run({"--target", "pump", "--register", "temperature"}), 0);
    EXPECT_EQ(mOut, "winding=61 degC, bearing=48 degC\n");
    EXPECT_EQ(mErr, "");
}

TEST_F(NamedRequest, NamesStandInTheTable)
{
    EXPECT_EQ(Run({"--target", "valve,5", "--register", "0x10"}), 0);
    EXPECT_THAT(mOut,
                MatchesRegex(
                    "target               register                status +type   time +values\n"
                    "5        pump         16 \\(0x10\\) speed        OPERATING +U16 +[0-9.]+ .s "
                    "+actual=120.5 rpm\n"
                    "9        valve        16 \\(0x10\\) position     OPERATING +S16F4 +[0-9.]+ .s "
                    "+set=50 %, actual=49.75 %\n"));
}

} // namespace
