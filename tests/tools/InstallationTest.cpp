#include "Installation.h"

#include "Failure.h"
#include "TypedValues.h"
#include "support/CaseName.h"
#include "support/TemporaryFolder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace
{

using namespace tarn;
using namespace tarn::test;
using namespace tarn::tool;
using testing::ElementsAre;
using testing::HasSubstr;

std::string Around(const std::string& devices)
{
    return "{\"devices\":[\n" + devices + "\n]}";
}

/// A pump at 5 whose only register has these values.
std::string WithRegister(const std::string& members)
{
    return Around("{\"name\":\"pump\",\"address\":5,\"registers\":[\n{\"name\":\"speed\","
                  "\"register\":16," +
                  members + "}]}");
}

std::string RefusalOf(const std::string& text)
{
    try {
        ParseInstallation("plant.json", text);
    } catch (const Failure& failure) {
        EXPECT_EQ(failure.GetStatus(), EXIT_TROUBLE);
        return failure.what();
    }
    return "accepted";
}

TEST(Installation, HasWhatTheFileSays)
{
    const Installation plant =
        ReadInstallation(PROJECT_DIRECTORY "/examples/installations/pump-station.json");
    ASSERT_EQ(plant.devices.size(), 3u);
    const InstalledDevice* const pump = plant.FindDevice("PUMP");
    ASSERT_NE(pump, nullptr);
    EXPECT_EQ(plant.Find(5), pump);
    EXPECT_EQ(plant.Find(6), nullptr);
    EXPECT_EQ(pump->mac, 0x00ABCDEu);
    EXPECT_EQ(pump->deviceCode, 0x12345678u);
    EXPECT_THAT(pump->options.groups, ElementsAre(1));
    EXPECT_EQ(pump->modules.at(3), "drive");
    EXPECT_EQ(plant.groups.at(1), "all actuators");
    EXPECT_FALSE(plant.FindDevice("controller")->simulated);
    const InstalledRegister* const temperature = pump->Find({3, 0x10});
    ASSERT_NE(temperature, nullptr);
    EXPECT_EQ(temperature->name, "temperature");
    EXPECT_EQ(temperature->dataType, TarnMessage::DATATYPE_U8);
    EXPECT_EQ(temperature->access, RegisterMap::READ_ONLY);
    EXPECT_EQ(temperature->values.at(1).name, "bearing");
    EXPECT_EQ(temperature->values.at(1).OnBus(48), 88);
    EXPECT_EQ(temperature->values.at(1).Shown(88), 48);
    EXPECT_EQ(pump->Find({0, 0x12}), nullptr);
}

TEST(Installation, KnowsEveryBehaviourOfADevice)
{
    const Installation plant = ParseInstallation("plant.json", Around(R"(
        {"name":"late one","address":"0x7E","delay":"20ms","silent":true,"status":"standby",
         "registers":[{"name":"a","register":2,"type":"U8"},{"name":"b","register":1,"type":"U8"}],
         "faults":{"wrongRegister":0.5,"wrongSource":1,"wrongStatus":0.25,"noAnswer":0.125,
                   "late":0.0625,"lateBy":"2s","seed":9},
         "report":{"interval":"100us","group":3,"registers":["a"]}})"));
    const InstalledDevice& device = plant.devices.at(0);
    EXPECT_EQ(device.Address(), 126);
    EXPECT_EQ(device.options.delay, std::chrono::milliseconds(20));
    EXPECT_TRUE(device.options.silent);
    EXPECT_EQ(device.options.status, TarnMessage::STATUS_STANDBY);
    EXPECT_EQ(device.options.faults.wrongRegister, 0.5);
    EXPECT_EQ(device.options.faults.wrongSource, 1);
    EXPECT_EQ(device.options.faults.wrongStatus, 0.25);
    EXPECT_EQ(device.options.faults.noAnswer, 0.125);
    EXPECT_EQ(device.options.faults.late, 0.0625);
    EXPECT_EQ(device.options.faults.lateBy, std::chrono::seconds(2));
    EXPECT_EQ(device.options.faults.seed, 9u);
    EXPECT_EQ(device.report->interval, std::chrono::microseconds(100));
    EXPECT_EQ(device.report->addressing, TarnMessage::ADDRESSING_GROUP);
    EXPECT_EQ(device.report->target, 3);
    // Registers are kept by their numbers.
    EXPECT_EQ(device.registers.at(device.report->registers.at(0)).name, "a");
}

TEST(Installation, KnowsEveryMotion)
{
    const auto motionOf = [](const std::string& value) {
        return ParseInstallation("plant.json", WithRegister("\"type\":\"S16F7\",\"values\":[{"
                                                            "\"name\":\"v\",\"value\":" +
                                                            value + "}]"))
            .devices.at(0)
            .registers.at(0)
            .values.at(0)
            .motion;
    };
    EXPECT_EQ(motionOf("\"0x10\"").from, 16);
    const Motion ramp = motionOf(R"({"ramp":{"from":10,"to":-10,"period":"4s"}})");
    EXPECT_EQ(ramp.kind, Motion::RAMP);
    EXPECT_EQ(ramp.from, 10);
    EXPECT_EQ(ramp.to, -10);
    EXPECT_EQ(ramp.period, std::chrono::seconds(4));
    const Motion sine = motionOf(R"({"sine":{"mean":10,"amplitude":4,"period":"1s"}})");
    EXPECT_EQ(sine.kind, Motion::SINE);
    EXPECT_EQ(sine.from, 6);
    EXPECT_EQ(sine.to, 14);
    const Motion random = motionOf(R"({"random":{"from":0,"to":1,"seed":3}})");
    EXPECT_EQ(random.kind, Motion::RANDOM);
    EXPECT_EQ(random.seed, 3u);
}

struct Refused {
    std::string name;
    std::string text;
    std::string message; ///< how it begins
};

void PrintTo(const Refused& refused, std::ostream* out)
{
    *out << refused.text;
}

class InstallationRefuses : public testing::TestWithParam<Refused>
{
};

TEST_P(InstallationRefuses, AndSaysWhereAndWhy)
{
    EXPECT_THAT(RefusalOf(GetParam().text), testing::StartsWith(GetParam().message));
}

INSTANTIATE_TEST_SUITE_P(
    Files, InstallationRefuses,
    testing::ValuesIn(std::vector<Refused>{
        {"NoJson", "{\"devices\":[\n {,}]}", "plant.json:2: column 3: no JSON: "},
        {"Empty", "", "plant.json:1: column 1: no JSON: "},
        {"NoObject", "[]", "plant.json:1: the file: is no object in braces; write one"},
        {"NoDevices", "{}", "plant.json:1: the file: \"devices\" is missing; add it"},
        {"UnknownMember", "{\"device\":[]}",
         "plant.json:1: device: no such member; choose from devices, groups"},
        {"UnknownMemberInside", Around("{\"name\":\"a\",\n\"adress\":5}"),
         "plant.json:3: devices[0].adress 5: no such member; choose from name, address, "},
        {"TwiceInAnObject", Around("{\"name\":\"a\",\n\"name\":\"b\"}"),
         "plant.json:3: \"name\": stands there twice; the first is in line 2, remove one"},
        {"Address", Around(R"({"name":"a","address":127})"),
         "plant.json:2: devices[0].address 127: no whole number from 0 to 126; "},
        {"AddressTwice", Around("{\"name\":\"a\",\"address\":5},\n{\"name\":\"b\",\"address\":5}"),
         "plant.json:3: devices[1]: address 5 is that of \"a\" already; "},
        {"NameTwice", Around("{\"name\":\"a\",\"address\":5},\n{\"name\":\"A\",\"address\":6}"),
         "plant.json:3: devices[1]: name \"A\" stands for another one already; "},
        {"NameOfAGroup", R"({"groups":{"1":"a"},"devices":[{"name":"a","address":5}]})",
         "plant.json:1: devices[0]: name \"a\" stands for another one already; "},
        {"NameLikeANumber", Around(R"({"name":"7up","address":5})"),
         "plant.json:2: devices[0].name \"7up\": no name; "},
        {"NameWithComma", Around(R"({"name":"a,b","address":5})"),
         "plant.json:2: devices[0].name \"a,b\": no name; "},
        {"Group", R"({"groups":{"127":"a"},"devices":[]})",
         "plant.json:1: groups.127 \"a\": its number is none from 0 to 126, "},
        {"Module", Around(R"({"name":"a","address":5,"modules":{"0":"m"}})"),
         "plant.json:2: devices[0].modules.0 \"m\": its number is none from 1 to 255, "},
        {"Status", Around(R"({"name":"a","address":5,"status":"FINE"})"),
         "plant.json:2: devices[0].status \"FINE\": no status; choose from UNKNOWN, OFFLINE, "},
        {"Delay", Around(R"({"name":"a","address":5,"delay":"20"})"),
         "plant.json:2: devices[0].delay \"20\": no duration; "},
        {"Silent", Around(R"({"name":"a","address":5,"silent":1})"),
         "plant.json:2: devices[0].silent 1: is no true or false; "},
        {"Share", Around(R"({"name":"a","address":5,"faults":{"late":1.5}})"),
         "plant.json:2: devices[0].faults.late 1.5: is not from 0 to 1; "},
        {"DataType", WithRegister(R"("type":"U17")"),
         "plant.json:3: devices[0].registers[0].type \"U17\": no data type; choose from S16F0, "},
        {"DataTypeWithoutValues", WithRegister(R"("type":"NOT A TYPE")"),
         "plant.json:3: devices[0].registers[0].type \"NOT A TYPE\": no data type; "},
        {"Access", WithRegister(R"("type":"U8","access":"all")"),
         "plant.json:3: devices[0].registers[0].access \"all\": no access; "},
        {"RegisterTwice",
         WithRegister("\"type\":\"U8\"},\n{\"name\":\"b\",\"register\":\"0x10\",\"type\":\"U8\""),
         "plant.json:4: devices[0].registers[1]: register 16 of module 0 is \"speed\" already; "},
        {"RegisterNameTwice",
         WithRegister("\"type\":\"U8\"},\n{\"name\":\"Speed\",\"register\":17,\"type\":\"U8\""),
         "plant.json:4: devices[0].registers[1]: name \"Speed\" stands for another one already; "},
        {"TooManyValues", WithRegister(R"("type":"U32","values":[{"name":"a"},{"name":"b"}])"),
         "plant.json:3: devices[0].registers[0].values: has 2 values, but a register of type U32 "
         "has 1 to 1; "},
        {"NoValues", WithRegister(R"("type":"U8","values":[])"),
         "plant.json:3: devices[0].registers[0].values: has 0 values, but a register of type U8 "
         "has 1 to 6; "},
        {"Scale", WithRegister(R"("type":"U8","values":[{"name":"a","scale":0}])"),
         "plant.json:3: devices[0].registers[0].values[0].scale 0: all values would be the same; "},
        {"UnitOfTwoLines", WithRegister(R"("type":"U8","values":[{"name":"a","unit":"a\nb"}])"),
         "plant.json:3: devices[0].registers[0].values[0].unit \"a?b\": no unit; "},
        {"ValueTooLarge", WithRegister(R"("type":"U8","values":[{"name":"a","value":256}])"),
         "plant.json:3: devices[0].registers[0].values[0].value 256: 256 does not fit U8, which "
         "holds 0 to 255 here; "},
        {"ScaledValueTooLarge",
         WithRegister(R"("type":"U8","values":[{"name":"a","scale":0.5,"offset":-40,"value":88}])"),
         "plant.json:3: devices[0].registers[0].values[0].value 88: 88 does not fit U8, which "
         "holds -40 to 87.5 here; "},
        {"RampEnd",
         WithRegister(
             R"("type":"U8","values":[{"name":"a","value":{"ramp":{"from":0,"to":300,"period":"1s"}}}])"),
         "plant.json:3: devices[0].registers[0].values[0].value.ramp.to 300: 300 does not fit "},
        {"SineTooWide",
         WithRegister(
             R"("type":"U8","values":[{"name":"a","value":{"sine":{"mean":5,"amplitude":6,"period":"1s"}}}])"),
         "plant.json:3: devices[0].registers[0].values[0].value.sine.amplitude 6: -1 does not "},
        {"PeriodOfNothing",
         WithRegister(
             R"("type":"U8","values":[{"name":"a","value":{"ramp":{"from":0,"to":1,"period":"0"}}}])"),
         "plant.json:3: devices[0].registers[0].values[0].value.ramp.period \"0\": is no time; "},
        {"TwoMotions",
         WithRegister(
             R"("type":"U8","values":[{"name":"a","value":{"random":{"from":0,"to":1},"sine":{"mean":1,"amplitude":1,"period":"1s"}}}])"),
         "plant.json:3: devices[0].registers[0].values[0].value: is not one motion; "},
        {"ReportOfAnUnknownRegister",
         Around(
             R"({"name":"a","address":5,"report":{"interval":"1s","target":1,"registers":["x"]}})"),
         "plant.json:2: devices[0].report.registers[0] \"x\": no register of this device has "
         "that "},
        {"ReportToNobody",
         Around(R"({"name":"a","address":5,"report":{"interval":"1s","registers":[]}})"),
         "plant.json:2: devices[0].report: does not say where to; "}}),
    support::CaseName());

TEST(Installation, RefusesWhatIsTooDeepOrTooLarge)
{
    EXPECT_EQ(RefusalOf(std::string(17, '[')),
              "plant.json:1: lists and objects lie more than 16 deep; correct it");
    EXPECT_EQ(RefusalOf(std::string(16 * 1024 * 1024 + 1, ' ')),
              "plant.json: has more than 16 MB; divide it");
    std::string many = "[";
    for (int count = 0; count < 1000000; ++count)
        many += "1,";
    EXPECT_EQ(RefusalOf(many), "plant.json:1: has more than a million values; divide it");
}

TEST(Installation, NamesAFileThatCannotBeRead)
{
    const TemporaryFolder folder;
    EXPECT_THROW(ReadInstallation(folder.PathOf("")), Failure); // the folder itself
    try {
        ReadInstallation(folder.PathOf("none.json"));
        FAIL();
    } catch (const Failure& failure) {
        EXPECT_EQ(failure.what(), folder.PathOf("none.json") +
                                      ": cannot be read: No such file or directory; check name "
                                      "and rights");
    }
}

TEST(SuggestNames, TellsNamesLikeItOrAllThereAre)
{
    EXPECT_EQ(SuggestNames("pumo", {"pump", "valve", "pumps"}), "did you mean pump or pumps?");
    EXPECT_EQ(SuggestNames("engine", {"pump", "valve"}), "choose from pump, valve");
    EXPECT_EQ(SuggestNames("x1", {"aaa", "bbb", "ccc", "ddd", "eee", "fff", "ggg", "hhh", "iii"}),
              "choose from aaa, bbb, ccc, ddd, eee, fff, ggg, hhh, ...");
}

TEST(TypedValues, RoundToTheStepsOfTheirType)
{
    EXPECT_THAT(PayloadOf(TarnMessage::DATATYPE_U16, {1204.6, 0}).bytes,
                ElementsAre(0xB5, 0x04, 0, 0));
    EXPECT_THAT(PayloadOf(TarnMessage::DATATYPE_U24, {66051}).bytes, ElementsAre(3, 2, 1));
    EXPECT_THAT(PayloadOf(TarnMessage::DATATYPE_U48, {281474976710655.0}).bytes,
                ElementsAre(255, 255, 255, 255, 255, 255));
    EXPECT_THAT(PayloadOf(TarnMessage::DATATYPE_FLOAT, {1.5}).bytes, ElementsAre(0, 0, 0xC0, 0x3F));
    // S16F4 has 32 steps to 1: 50 is 1600, -0.02 is -0.64.
    const RegisterValue fixed = PayloadOf(TarnMessage::DATATYPE_S16F4, {50, -0.02});
    EXPECT_THAT(fixed.bytes, ElementsAre(0x40, 0x06, 0xFF, 0xFF));
    EXPECT_EQ(fixed.dataType, TarnMessage::DATATYPE_S16F4);
}

TEST(TypedValues, AreHeldUpToHalfAStepBeyondTheEnds)
{
    EXPECT_TRUE(Holds(TarnMessage::DATATYPE_U8, 255.4));
    EXPECT_FALSE(Holds(TarnMessage::DATATYPE_U8, 255.5));
    EXPECT_TRUE(Holds(TarnMessage::DATATYPE_U8, -0.4));
    EXPECT_FALSE(Holds(TarnMessage::DATATYPE_U8, -0.6));
    EXPECT_TRUE(Holds(TarnMessage::DATATYPE_S16F7, 65534.9));
    EXPECT_FALSE(Holds(TarnMessage::DATATYPE_S16F7, 65535));
    EXPECT_TRUE(Holds(TarnMessage::DATATYPE_S16F0, -4));
    EXPECT_FALSE(Holds(TarnMessage::DATATYPE_FLOAT, 1e39));
}

} // namespace
