#include "Tarn.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>

namespace
{

using support::CommandResult;
using testing::HasSubstr;

std::vector<std::string> Words(const std::string& text)
{
    std::istringstream stream(text);
    return {std::istream_iterator<std::string>(stream), {}};
}

CommandResult Encode(const std::string& options)
{
    std::vector<std::string> arguments = Words(options);
    arguments.insert(arguments.begin(), "encode");
    return Tarn(arguments);
}

struct Literal {
    const char* name;
    const char* options;
    const char* frame;
};

void PrintTo(const Literal& row, std::ostream* out)
{
    *out << row.options;
}

const Literal LITERALS[] = {
    {"Default", "", "0F800001#20"},
    {"Addresses", "--source 127 --target 127", "0F803FFF#20"},
    {"Register", "--register 0xFF", "0FBFC001#20"},
    {"Write", "--write", "0E800001#20"},
    {"Response", "--response", "0F000001#20"},
    {"Group", "--group", "0D800001#20"},
    {"Priority", "--priority SYNC", "03800001#20"},
    {"PriorityNumber", "--priority 2", "0B800001#20"},
    {"Module", "--module 3", "0FC00001#2003"},
    {"ModuleZero", "--module 0", "0FC00001#2000"},
    {"StatusWord", "--status operating", "0F800001#50"},
    {"StatusNumber", "--status 15", "0F800001#F0"},
    {"U8", "--u8 1 2 3 4 5 255", "0F800001#0102030405FF28"},
    {"U16", "--target 9 --register 0x11 --write --u16 100 200 300", "0E844481#6400C8002C0129"},
    {"U24", "--u24 0x010203 16777215", "0F800001#030201FFFFFF2A"},
    {"U32", "--u32 4294967295", "0F800001#FFFFFFFF2B"},
    {"U48", "--u48 0x123456789ABC", "0F800001#BC9A785634122C"},
    {"Float", "--float 1.5", "0F800001#0000C03F2D"},
    {"FloatNegative", "--float -1.5", "0F800001#0000C0BF2D"},
    {"FloatInfinite", "--float -inf", "0F800001#000080FF2D"},
    {"FixedPointFinest", "--s16 1.5", "0F800001#003020"},
    {"FixedPointChosen", "--s16 4 -3.9", "0F800001#0020CDE021"},
    {"FixedPointGiven", "--s16 1.5 --format 2", "0F800001#000322"},
    {"FixedPointWidest", "--s16 65534 -65536 --format 7", "0F800001#FF7F008027"},
    {"Payload", "--payload 01.02.03 --data-type 15", "0F800001#0102032F"},
    {"DataTypeAlone", "--data-type U32", "0F800001#2B"},
    {"Chcp", "--chcp --mac 0xABCDEF --device-code 0x12345678 --id 5 --command 2",
     "10ABCDEF#78563412050220"},
    {"ChcpEmpty", "--chcp", "10000000#00000000000020"},
    {"ChcpHighest",
     "--chcp --mac 0xFFFFFFF --device-code 0xFFFFFFFF --id 127 --command 5 "
     "--status 15",
     "1FFFFFFF#FFFFFFFF7F05F0"},
    {"ChcpPayload", "--chcp --mac 1 --payload 0102030485FF", "10000001#0102030485FF20"},
};

class EncodedLiteral : public testing::TestWithParam<Literal>
{
};

TEST_P(EncodedLiteral, IsWhatCansendTakes)
{
    const CommandResult result = Encode(GetParam().options);
    EXPECT_EQ(result.out, std::string(GetParam().frame) + '\n');
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(result.exitStatus, 0);
}

INSTANTIATE_TEST_SUITE_P(Encode, EncodedLiteral, testing::ValuesIn(LITERALS),
                         [](const auto& test) { return std::string(test.param.name); });

const Literal REFUSALS[] = {
    {"SourceAbove127", "--source 128",
     "--source 128: no whole number from 0 to 127; write it in decimal or with 0x in hexadecimal "
     "digits"},
    {"RegisterNegative", "--register -1",
     "--register -1: no whole number from 0 to 255; write it in decimal or with 0x in hexadecimal "
     "digits"},
    {"Priority4", "--priority 4",
     "--priority 4: no such word or number; choose 0 to 3 or one of 'SYNC', 'EMRGENCY', 'CONTROL', "
     "'DATA'"},
    {"U16Above65535", "--u16 65536",
     "--u16 65536: no whole number from 0 to 65535; write it in decimal or with 0x in hexadecimal "
     "digits"},
    {"FourOfU16", "--u16 1 2 3 4",
     "wrong usage: --u16: At Most 3 required but received 4; see 'tarn encode --help'"},
    {"FixedPointOutOfRange", "--s16 4 --format 0",
     "--s16 4: outside the range of S16F0; choose a coarser format, or none for the finest that "
     "fits"},
    {"FixedPointNan", "--s16 1 nan",
     "--s16 nan: outside the range of S16F0; choose a coarser format, or none for the finest that "
     "fits"},
    {"FloatNoNumber", "--float 1,5", "--float 1,5: no number; write it like 1.5, -2 or 1e3"},
    {"TwoPayloads", "--u8 1 --u16 2", "--u16: does not go with --u8; give one of them"},
    {"FormatAlone", "--format 2", "--format: goes with --s16 alone; add --s16 or leave it out"},
    {"PayloadOfSeven", "--payload 01020304050607",
     "payload: 7 bytes, but a message has at most 6; shorten it"},
    {"PayloadHalfByte", "--payload 012",
     "--payload 012: not bytes of two hexadecimal digits each, 8 at most; write them like 6400C8"},
    {"ReadAndWrite", "--read --write", "--write: does not go with --read; give one of them"},
    {"ChcpWithTarget", "--chcp --target 4",
     "--target: no field of a CHCP message; leave it or --chcp out"},
    {"MacWithoutChcp", "--mac 4", "--mac: no field of a DATA message; add --chcp"},
    {"MacOf29Bits", "--chcp --mac 0x10000000",
     "--mac 0x10000000: no whole number from 0 to 268435455; write it in decimal or with 0x in "
     "hexadecimal digits"},
    {"ChcpPayloadOfTwo", "--chcp --payload 0102",
     "payload: 2 bytes, but a CHCP message has 6; give all 6, or its fields instead"},
    {"Command6", "--chcp --command 6",
     "--command 6: no whole number from 0 to 5; write it in decimal or with 0x in hexadecimal "
     "digits"},
    {"JsonWithFields", "--json --source 1",
     "--json: does not go with options for fields; give one of both"},
    {"Word", "9", "9: is neither an option nor a value of one; files need --json"},
};

class EncodeRefusal : public testing::TestWithParam<Literal>
{
};

TEST_P(EncodeRefusal, ExitsWithTwoAndSaysWhatToDo)
{
    const CommandResult result = Encode(GetParam().options);
    EXPECT_EQ(result.err, "tarn encode: " + std::string(GetParam().frame) + '\n');
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.exitStatus, 2);
}

INSTANTIATE_TEST_SUITE_P(Encode, EncodeRefusal, testing::ValuesIn(REFUSALS),
                         [](const auto& test) { return std::string(test.param.name); });

CommandResult EncodeJson(const std::string& object)
{
    return Tarn({"encode", "--json"}, object);
}

// The object of 0F044089#6400C80059: source 9 to 1, register 17, OPERATING, U16 100 200.
const Literal OBJECTS[] = {
    {"Empty", "{}", "0F800001#20"},
    {"FrameAlone", R"({"frame":"0F044089#6400C80059"})", "0F044089#6400C80059"},
    {"FieldsAlone", R"({"target":9,"dataType":"U16","values":[100]})", "0F800481#640029"},
    {"NumbersForWords", R"({"status":5,"dataTypeNumber":9,"values":["0x64"]})", "0F800001#640059"},
    {"EditOfAField", R"({"frame":"0F044089#6400C80059","target":2,"source":9})",
     "0F044109#6400C80059"},
    {"EditOfAWord", R"({"frame":"0F044089#6400C80059","status":"STANDBY","statusNumber":5})",
     "0F044089#6400C80039"},
    {"EditOfANumber", R"({"frame":"0F044089#6400C80059","status":"OPERATING","statusNumber":3})",
     "0F044089#6400C80039"},
    {"EditOfValues", R"({"frame":"0F044089#6400C80059","payload":"6400C800","values":[1]})",
     "0F044089#010059"},
    {"EditOfPayload", R"({"frame":"0F044089#6400C80059","payload":"0100","values":[100,200]})",
     "0F044089#010059"},
    {"EditOfTypeAndValues", R"({"frame":"0F044089#6400C80059","dataType":"U8","values":[1]})",
     "0F044089#0158"},
    {"EditOfTypeAndPayload", R"({"frame":"0F044089#6400C80059","dataType":"U8","payload":"01"})",
     "0F044089#0158"},
    {"RelabelWithPayload",
     R"({"frame":"0F044089#6400C80059","dataType":"U8","payload":"6400C800"})",
     "0F044089#6400C80058"},
    {"RelabelWithValues", R"({"frame":"0F044089#6400C80059","dataType":"U8","values":[100,200]})",
     "0F044089#64C858"},
    {"ModuleTurnsTheModeOn", R"({"frame":"0F800001#20","module":3,"addressingMode":"STANDARD"})",
     "0FC00001#2003"},
    {"RoundedValue", R"({"dataType":"S16F0","values":[0.1]})", "0F800001#330320"},
    {"NotANumber", R"({"dataType":"FLOAT","values":["nan"]})", "0F800001#0000C07F2D"},
    {"NanPayloadKept", R"({"dataType":"FLOAT","payload":"0100A07F","values":["nan"]})",
     "0F800001#0100A07F2D"},
    {"OddFrameUnedited", R"({"frame":"10ABCDEF#0120","type":"DATA","source":0,"note":"odd"})",
     "10ABCDEF#0120"},
    {"LongPayloadUnedited", R"({"frame":"0F800001#0102030405060729","source":1})",
     "0F800001#0102030405060729"},
    {"Chcp", R"({"type":"CHCP","mac":11259375,"deviceCode":305419896,"chcpId":5,"chcpCommand":2})",
     "10ABCDEF#78563412050220"},
    {"ChcpEditKeepsOddBytes", R"({"frame":"10ABCDEF#78563412850920","mac":1})",
     "10000001#78563412850920"},
    {"ChcpEditOfId", R"({"frame":"10ABCDEF#78563412050920","chcpId":6})",
     "10ABCDEF#78563412060920"},
    {"Ignored", R"({"time":1.5,"interface":"can0","busDirection":"rx","note":""})", "0F800001#20"},
};

class EncodedObject : public testing::TestWithParam<Literal>
{
};

TEST_P(EncodedObject, IsItsFrame)
{
    const CommandResult result = EncodeJson(GetParam().options);
    EXPECT_EQ(result.out, std::string(GetParam().frame) + '\n');
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(result.exitStatus, 0);
}

INSTANTIATE_TEST_SUITE_P(Encode, EncodedObject, testing::ValuesIn(OBJECTS),
                         [](const auto& test) { return std::string(test.param.name); });

const Literal BAD_OBJECTS[] = {
    {"NoJson", "target: 9", "no JSON, column 2: "},
    {"ZeroInName", R"({"a\u0000b":1})", "\"a?b\": no such member"},
    {"EscapeSequenceInName", R"({"\u001b[2J\u009b\u007f":1})", "\"?[2J???\": no such member"},
    {"Cut", R"({"target":9)", "no JSON, column 12: "},
    {"TwoObjects", "{} {}", "no JSON, column 4: "},
    {"Array", "[1]", "only numbers, texts and one list of them are known"},
    {"Number", "1", "only numbers, texts and one list of them are known"},
    {"Null", R"({"target":null})", "\"target\": only numbers, texts and one list"},
    {"Nested", R"({"target":{}})", "\"target\": is an object; give one number or word"},
    {"NestedLists", R"({"values":[[1]]})", "\"values\": only numbers, texts and one list"},
    {"Twice", R"({"target":1,"target":2})", "\"target\": stands there twice"},
    {"Unknown", R"({"tarrget":1})", "\"tarrget\": no such member"},
    {"OutOfRange", R"({"target":128})", "\"target\" 128: no whole number from 0 to 127"},
    {"Fraction", R"({"target":1.5})", "\"target\" 1.5: no whole number from 0 to 127"},
    {"List", R"({"target":[]})", "\"target\": is a list; give one number or word"},
    {"BadWord", R"({"status":"FINE"})", "\"status\" FINE: no such word, nor a number from 0 to 15"},
    {"WordAndNumber", R"({"status":"STANDBY","statusNumber":4})",
     "\"statusNumber\": does not agree with the other members"},
    {"PayloadAndValues", R"({"dataType":"U8","payload":"01","values":[2]})",
     "\"values\": does not agree with the other members"},
    {"ModuleInStandardMode", R"({"module":3,"addressingMode":"STANDARD"})",
     "\"module\": does not agree with the other members"},
    {"OnlyTypeEdited",
     R"({"frame":"0F044089#6400C80059","dataType":"U8","payload":"6400C800","values":[100,200]})",
     "\"dataType\": changed, but payload and values stayed; remove the one that is not to be kept"},
    {"LongPayload", R"({"payload":"01020304050607"})",
     "payload: 7 bytes, but a message has at most 6"},
    {"EditOfLongPayload", R"({"frame":"0F800001#0102030405060729","source":2})",
     "payload: 7 bytes, but a message has at most 6"},
    {"TargetOfChcp", R"({"type":"CHCP","target":1})",
     "\"target\": no field of a CHCP message; remove it"},
    {"MacOfData", R"({"mac":1})", "\"mac\": no field of a DATA message; remove it"},
    {"Command6", R"({"type":"CHCP","chcpCommand":6})",
     "CHCP command 6: means that there is no valid one"},
    {"ChcpPayloadAndField", R"({"type":"CHCP","payload":"000000000500","chcpId":6})",
     "\"payload\": does not agree with the other members"},
    {"ValuesWithoutType", R"({"dataType":"INVALID","values":[1]})",
     "\"values\": data type INVALID has no values"},
    {"StandardFrame", R"({"frame":"123#20"})", "\"frame\" 123#20: no Tarn frame"},
    {"RemoteFrame", R"({"frame":"10800001#R"})", "\"frame\" 10800001#R: no Tarn frame"},
};

class BadObject : public testing::TestWithParam<Literal>
{
};

TEST_P(BadObject, IsNamedByLineAndReasonAndSkipped)
{
    const CommandResult result = EncodeJson("{}\n" + std::string(GetParam().options) + "\n\n{}\n");
    EXPECT_THAT(result.err, testing::StartsWith("tarn encode: standard input:2: " +
                                                std::string(GetParam().frame)));
    EXPECT_EQ(result.out, "0F800001#20\n0F800001#20\n");
    EXPECT_EQ(result.exitStatus, 1);
}

INSTANTIATE_TEST_SUITE_P(Encode, BadObject, testing::ValuesIn(BAD_OBJECTS),
                         [](const auto& test) { return std::string(test.param.name); });

TEST(Encode, SurvivesDeepNesting)
{
    const CommandResult result = EncodeJson(std::string(200000, '['));
    EXPECT_EQ(result.exitStatus, 1);
}

TEST(Encode, NamesAFileThatCannotBeRead)
{
    const CommandResult result = Tarn({"encode", "--json", "/nowhere.json"});
    EXPECT_EQ(result.exitStatus, 1);
    EXPECT_THAT(result.err, HasSubstr("tarn encode: /nowhere.json: cannot open: No such file"));
}

} // namespace
