#include "Tarn.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>

namespace
{

using support::CommandResult;
using testing::HasSubstr;

// A write request: source 1, device 9, register 17, status POWERUP, U16 100 200 300.
constexpr const char* WRITE = "(1609779922.655421) can0 0E844481#6400C8002C0129\n";
// The response of device 9 to 1: a group frame would have bit 25 clear.
constexpr const char* RESPONSE = "(1609779923.000001) vcan10 0F044089#003000C050 R\n";
constexpr const char* CHCP = "(1609779924.5) can0 10ABCDEF#78563412050220\n";

std::string Decoded(const std::string& input, std::vector<std::string> options = {})
{
    options.insert(options.begin(), {"decode", "-q"});
    return Tarn(options, input).out;
}

TEST(Decode, PrintsOneReadableLineAMessage)
{
    EXPECT_EQ(Decoded(WRITE),
              "17:05:22.655421  can0      1 -> 9         reg  17 (0x11)  WRITE request   "
              "POWERUP                      U16   100 200 300\n");
    EXPECT_EQ(Decoded(RESPONSE),
              "17:05:23.000001  vcan10  rx    9 -> 1         reg  17 (0x11)  READ  response  "
              "OPERATING                    S16F0 1.5 -2\n");
    EXPECT_EQ(Decoded(CHCP), "17:05:24.5  can0    CHCP 0ABCDEF  device 12345678  id   5  cmd 2     "
                             "POWERUP\n");
}

TEST(Decode, KeepsTheColumnsForTheLongestWords)
{
    const std::string shortest = Decoded("0F800001#54");
    const std::string longest = Decoded("0DFFFFFF#C4FF");
    EXPECT_EQ(shortest, "  1 -> 0         reg   0 (0x00)  READ  request   "
                        "OPERATING                    S16F4\n");
    EXPECT_EQ(longest, "127 -> g127.255  reg 255 (0xFF)  READ  request   "
                       "RESOURCE EXCLUSIVE RESERVED  S16F4\n");
}

TEST(Decode, NotesWhatIsUnusual)
{
    EXPECT_THAT(Decoded("04000000#00"), HasSubstr("(priority EMRGENCY)\n"));
    EXPECT_THAT(Decoded("0F800001#01020329"),
                HasSubstr("U16   [01 02 03]  (payload does not fit its data type)\n"));
    EXPECT_THAT(Decoded("0F800001#0102030405060729"), HasSubstr("[01 02 03 04 05 06 07]"));
    EXPECT_THAT(Decoded("0F800001#012F"), HasSubstr("NOT A TYPE [01]  (payload does not fit"));
    EXPECT_THAT(Decoded("10ABCDEF#0120"),
                HasSubstr("(CHCP frame without its 7 bytes: reads as an empty DATA message)\n"));
    EXPECT_THAT(Decoded("10ABCDEF#78563412050920"), HasSubstr("cmd -"));
}

TEST(Decode, ReadsBothFormsMixed)
{
    const std::string message = "  1 -> 9         reg  17 (0x11)  READ  request   POWERUP"
                                "                      S16F0\n";
    EXPECT_EQ(Decoded("(1609779922.655421) can0 0F844481#20\n"
                      "  can0  0F844481   [1]  20\n"
                      "\n"
                      "# remark\n"
                      " (000.000123)  can0  0F844481   [1]  20\r\n"
                      " (2021-01-04 17:05:22.655421)  can0  TX - -  0F844481   [1]  20   ' '\n"
                      "0F844481#20"),
              "17:05:22.655421  can0    " + message + "can0    " + message + "0.000123  can0    " +
                  message + "17:05:22.655421  can0    tx  " + message + message);
}

TEST(Decode, PrintsJsonWithEveryFieldByNameNumberAndWord)
{
    EXPECT_EQ(Decoded(RESPONSE, {"--json"}),
              R"({"time":1609779923.000001,"interface":"vcan10","busDirection":"rx",)"
              R"("frame":"0F044089#003000C050","type":"DATA","typeNumber":0,)"
              R"("priority":"DATA","priorityNumber":3,"addressing":"DEVICE","addressingNumber":1,)"
              R"("accessType":"READ","accessTypeNumber":1,"direction":"RESPONSE",)"
              R"("directionNumber":0,"addressingMode":"STANDARD","addressingModeNumber":0,)"
              R"("status":"OPERATING","statusNumber":5,"dataType":"S16F0","dataTypeNumber":0,)"
              R"("source":9,"target":1,"module":0,"register":17,"payload":"003000C0",)"
              R"("values":[1.5,-2]})"
              "\n");
    EXPECT_EQ(Decoded(CHCP, {"--json"}),
              R"({"time":1609779924.5,"interface":"can0","frame":"10ABCDEF#78563412050220",)"
              R"("type":"CHCP","typeNumber":1,"status":"POWERUP","statusNumber":2,)"
              R"("dataType":"S16F0","dataTypeNumber":0,"mac":11259375,"deviceCode":305419896,)"
              R"("chcpId":5,"chcpCommand":2,"payload":"785634120502"})"
              "\n");
}

TEST(Decode, PrintsValuesThatJsonHasNoNumberForAsTexts)
{
    EXPECT_THAT(Decoded("0F800001#0000C07F2D", {"--json"}), HasSubstr(R"("values":["nan"])"));
    EXPECT_THAT(Decoded("0F800001#0000C0FF2D", {"--json"}), HasSubstr(R"("values":["nan"])"));
    EXPECT_THAT(Decoded("0F800001#0000807F2D", {"--json"}), HasSubstr(R"("values":["inf"])"));
    EXPECT_THAT(Decoded("0F800001#000080FF2D", {"--json"}), HasSubstr(R"("values":["-inf"])"));
    EXPECT_THAT(Decoded("0F800001#FFFFFFFFFFFF2C", {"--json"}),
                HasSubstr(R"("values":[281474976710655])"));
}

TEST(Decode, KeepsTheDigitsOfTimeStamps)
{
    EXPECT_THAT(Decoded("(1609779922.100000000) can0 0F800001#20", {"--json"}),
                HasSubstr(R"("time":1609779922.100000000,)"));
    EXPECT_THAT(Decoded("(000.000100) can0 0F800001#20", {"--json"}),
                HasSubstr(R"("time":0.000100,)"));
    EXPECT_THAT(Decoded("can0 0F800001#20", {"--json"}), testing::StartsWith(R"({"interface")"));
}

TEST(Decode, PrintsCsvUnderALineOfNames)
{
    EXPECT_EQ(Decoded(std::string(WRITE) + CHCP + "(1.5) a\",b 0F800001#01020329", {"--csv"}),
              "time,interface,busDirection,frame,type,priority,addressing,accessType,direction,"
              "addressingMode,status,dataType,source,target,module,register,mac,deviceCode,chcpId,"
              "chcpCommand,payload,values,note\n"
              "1609779922.655421,can0,,0E844481#6400C8002C0129,DATA,DATA,DEVICE,WRITE,REQUEST,"
              "STANDARD,POWERUP,U16,1,9,0,17,,,,,6400C8002C01,100 200 300,\n"
              "1609779924.5,can0,,10ABCDEF#78563412050220,CHCP,,,,,,POWERUP,S16F0,,,,,11259375,"
              "305419896,5,2,785634120502,,\n"
              "1.5,\"a\"\",b\",,0F800001#01020329,DATA,DATA,DEVICE,READ,REQUEST,STANDARD,POWERUP,"
              "U16,1,0,0,0,,,,,010203,,payload does not fit its data type\n");
}

TEST(Decode, PrintsTheTextsOfTheMessage)
{
    EXPECT_EQ(Decoded("0F800001#20", {"--short"}),
              "Type: DATA,Priority: DATA,Addressing: DEVICE,AccessType: READ,Direction: REQUEST,"
              "AddressingMode: STANDARD,Register:00,TargetAddr:00,SourceAddr:01,Module:00,"
              "Status: POWERUP,DataType: S16F0,Data(0) : ,Raw-Header : f800001,Raw-Data(0) : \n");
    EXPECT_EQ(Decoded("0F800001#20", {"--long"}),
              "Type:            DATA\nPriority:        DATA\nAddressing:      DEVICE\n"
              "AccessType:      READ\nDirection:       REQUEST\nAddressingMode:  STANDARD\n"
              "Register:        00\nTargetAddr:      00\nSourceAddr:      01\n"
              "Module:          00\nStatus:          POWERUP\nDataType:        S16F0\n"
              "Data(0) : \nRaw-Header : f800001\nRaw-Data(0) : \n\n");
}

struct Filtered {
    const char* name;
    std::vector<std::string> options;
    const char* sources; ///< of the messages that pass, CHCP messages as C
};

void PrintTo(const Filtered& row, std::ostream* out)
{
    *out << row.name;
}

class Filter : public testing::TestWithParam<Filtered>
{
};

// Sources 5, 7, 8 and 9, targets 1, 2, 3 and 4, registers 0, 16, 17 and 255, types U8, U16, S16F7
// and FLOAT; and a CHCP message whose MAC identifier has the bits of source 5.
TEST_P(Filter, LetsThroughWhatWasAskedFor)
{
    const std::string csv = Decoded("0F800085#0128\n0F840107#010029\n0F844188#010027\n"
                                    "0FBFC209#000000002D\n10000085#00000000000020\n",
                                    [] {
                                        std::vector<std::string> options = GetParam().options;
                                        options.push_back("--short");
                                        return options;
                                    }());
    std::string sources;
    for (std::size_t at = csv.find("Type: "); at != std::string::npos;
         at = csv.find("\n", at) == std::string::npos ? std::string::npos
                                                      : csv.find("Type: ", csv.find("\n", at)))
        sources +=
            csv.compare(at, 10, "Type: CHCP") == 0 ? 'C' : csv[csv.find("SourceAddr:0", at) + 12];
    EXPECT_EQ(sources, GetParam().sources);
}

INSTANTIATE_TEST_SUITE_P(
    Decode, Filter,
    testing::Values(Filtered{"None", {}, "5789C"}, Filtered{"Source", {"--source", "7"}, "7"},
                    Filtered{"SourceList", {"--source", "5,8-9"}, "589"},
                    Filtered{"TargetHexadecimal", {"--target", "0x1-0x2"}, "57"},
                    Filtered{"Register", {"--register", "16-17,255"}, "789"},
                    Filtered{"TypeChcp", {"--type", "chcp"}, "C"},
                    Filtered{"TypeData", {"--type", "DATA"}, "5789"},
                    Filtered{"TypeOfData", {"--type", "U8,float"}, "59"},
                    Filtered{"TypeFixedPoint", {"--type", "S16F"}, "8"},
                    Filtered{"TypeMixed", {"--type", "CHCP,U16"}, "7C"},
                    Filtered{"SourceAndRegister", {"--source", "5-8", "--register", "17"}, "8"}),
    [](const auto& test) { return std::string(test.param.name); });

TEST(Decode, CountsEveryLineByKind)
{
    const CommandResult result = Tarn({"decode", "examples/logs/damaged.log"});
    EXPECT_EQ(result.exitStatus, 0);
    EXPECT_THAT(result.err,
                testing::EndsWith("tarn decode: 11 frames read: 6 decoded, 5 not Tarn "
                                  "(1 11-bit frame, 1 remote request, 1 error frame, 1 CAN FD "
                                  "frame, 1 too short); 9 lines malformed, 5 comments\n"));
}

TEST(Decode, ShowsTheFirstThreeOfAKindWithFileLineAndReason)
{
    const CommandResult result = Tarn({"decode", "-"}, "one\n0F800001#20\ntwo\nthree\nfo\x1bur\n");
    EXPECT_EQ(result.err,
              "tarn decode: standard input:1: malformed, column 4: nothing after the interface "
              "name: one\n"
              "tarn decode: standard input:3: malformed, column 4: nothing after the interface "
              "name: two\n"
              "tarn decode: standard input:4: malformed, column 6: nothing after the interface "
              "name: three\n"
              "tarn decode: more of this kind are only counted\n"
              "tarn decode: 1 frame read: 1 decoded, 0 not Tarn; 4 lines malformed, 0 comments\n");
}

TEST(Decode, TellsFilteredMessagesFromOthers)
{
    EXPECT_EQ(Tarn({"decode", "--source", "1"}, "0F800001#20\n0F800002#20\n").err,
              "tarn decode: 2 frames read: 2 decoded (1 filtered out), 0 not Tarn; 0 lines "
              "malformed, 0 comments\n");
}

TEST(Decode, StrictMakesDamageAnError)
{
    EXPECT_EQ(Tarn({"decode", "--strict"}, "damage\n").exitStatus, 1);
    EXPECT_EQ(Tarn({"decode"}, "damage\n").exitStatus, 0);
    EXPECT_EQ(Tarn({"decode", "--strict"}, "# fine\n123#00\n0F800001#20\n").exitStatus, 0);
}

TEST(Decode, NamesAFileThatCannotBeReadAndReadsTheOthers)
{
    const CommandResult result =
        Tarn({"decode", "-q", "/nowhere.log", "/", "examples/logs/startup.log"});
    EXPECT_EQ(result.exitStatus, 1);
    EXPECT_EQ(result.err,
              "tarn decode: /nowhere.log: cannot open: No such file or directory; give the path of "
              "a log, or - for standard input\n"
              "tarn decode: /: cannot read: Is a directory; give the path of a log, or - for "
              "standard input\n");
    EXPECT_THAT(result.out, HasSubstr("17:05:22.001000"));
}

TEST(Decode, ReadsPcapFromFilesAndPipes)
{
    const CommandResult file = Tarn({"decode", "--json", "examples/logs/startup.pcap"});
    EXPECT_THAT(file.out, testing::StartsWith(R"({"time":1609779922.001000000,"frame":")"));
    EXPECT_EQ(file.exitStatus, 0);
    const CommandResult pipe = support::RunCommand(
        {"/bin/sh", "-c",
         "cat " PROJECT_DIRECTORY "/examples/logs/startup.pcap | " TARN_COMMAND " decode --json"});
    EXPECT_EQ(pipe.out, file.out);
}

TEST(Decode, SaysWhereAPcapFileIsDamagedAndShowsWhatStandsAhead)
{
    const CommandResult result =
        support::RunCommand({"/bin/sh", "-c",
                             "head -c 100 " PROJECT_DIRECTORY
                             "/examples/logs/startup.pcap | " TARN_COMMAND " decode -q --short"});
    EXPECT_EQ(result.exitStatus, 1);
    EXPECT_THAT(result.out, testing::StartsWith("Type: DATA"));
    EXPECT_THAT(result.err, testing::StartsWith("tarn decode: standard input: damaged pcap file, "
                                                "behind packet 2: truncated"));
}

TEST(Decode, SaysWhereTheOutputFailed)
{
    const CommandResult result = support::RunCommand(
        {"/bin/sh", "-c", "echo 0F800001#20 | " TARN_COMMAND " decode > /dev/full"});
    EXPECT_EQ(result.exitStatus, 1);
    EXPECT_EQ(result.err, "tarn decode: standard output: cannot write: No space left on device; "
                          "check where the output goes\n");
}

struct Misuse {
    const char* name;
    std::vector<std::string> arguments;
    const char* message;
};

void PrintTo(const Misuse& row, std::ostream* out)
{
    *out << row.name;
}

class Misused : public testing::TestWithParam<Misuse>
{
};

TEST_P(Misused, ExitsWithTwoAndSaysWhatToDo)
{
    const CommandResult result = Tarn(GetParam().arguments);
    EXPECT_EQ(result.exitStatus, 2);
    EXPECT_EQ(result.err, std::string(GetParam().message) + '\n');
    EXPECT_EQ(result.out, "");
}

INSTANTIATE_TEST_SUITE_P(
    Decode, Misused,
    testing::Values(
        Misuse{"NoVerb", {}, "tarn: wrong usage: A subcommand is required; see 'tarn --help'"},
        Misuse{"UnknownOption",
               {"decode", "--sourc"},
               "tarn decode: wrong usage: The following argument was not expected: --sourc; see "
               "'tarn decode --help'"},
        Misuse{"SourceAbove127",
               {"decode", "--source", "5,128"},
               "tarn decode: --source 128: no number or range from 0 to 127; write it like 5,7-9 "
               "or 0x10-0x13"},
        Misuse{"RangeBackwards",
               {"decode", "--register", "9-7"},
               "tarn decode: --register 9-7: no number or range from 0 to 255; write it like 5,7-9 "
               "or 0x10-0x13"},
        Misuse{"UnknownType",
               {"decode", "--type", "U9"},
               "tarn decode: --type U9: no type of message or data; choose from DATA, CHCP, S16F, "
               "S16F0 to S16F7, U8, U16, U24, U32, U48, FLOAT"},
        Misuse{"TwoForms",
               {"decode", "--json", "--csv"},
               "tarn decode: --csv: does not go with --json; give one of them"}),
    [](const auto& test) { return std::string(test.param.name); });

TEST(Decode, NeedsNoMoreMemoryForAnEndlessLine)
{
    const auto decode = [](const std::string& bytes) {
        return support::RunCommand(
            {"/bin/sh", "-c",
             "(echo 0F800001#20; head -c " + bytes +
                 " /dev/zero | tr '\\000' x; echo; echo 0F800001#20) | " TARN_COMMAND " decode -"});
    };
    const CommandResult small = decode("1");
    const CommandResult big = decode("100000000");
    EXPECT_LT(big.maxResidentKilobytes, small.maxResidentKilobytes + 2048);
    EXPECT_THAT(big.err, HasSubstr("standard input:2: malformed, column 262144: line of more than "
                                   "262144 bytes: xxx"));
    EXPECT_THAT(big.err, HasSubstr("2 frames read: 2 decoded, 0 not Tarn; 1 line malformed"));
}

TEST(Decode, TakesALongRemarkAndAMissingNewlineAndAByteOrderMark)
{
    EXPECT_EQ(Tarn({"decode"}, "\xEF\xBB\xBF# " + std::string(1u << 20, 'x') + "\n0F800001#20").err,
              "tarn decode: 1 frame read: 1 decoded, 0 not Tarn; 0 lines malformed, 1 comment\n");
}

TEST(Decode, ShowsALineAtOnceWhileTheInputStaysOpen)
{
    support::RunningCommand command({TARN_COMMAND, "decode", "-q"});
    command.Write("0F800001#20\n0F8000");
    EXPECT_THAT(command.ReadLine(), HasSubstr("1 -> 0"));
    command.Write("02#20\n");
    EXPECT_THAT(command.ReadLine(), HasSubstr("2 -> 0"));
    command.CloseInput();
    EXPECT_EQ(command.Wait(), 0);
}

TEST(Decode, EndsQuietlyWhenTheReaderGoes)
{
    const CommandResult result =
        support::RunCommand({"/bin/bash", "-c",
                             "yes 0F800001#20 2>/dev/null | (" TARN_COMMAND
                             " decode; echo $? >&2) | head -n 1 >/dev/null"});
    EXPECT_EQ(result.err, "0\n");
}

TEST(Decode, ExitsWith128AndTheNumberOfAStopSignal)
{
    support::RunningCommand command({TARN_COMMAND, "decode", "-q"});
    command.Write("0F800001#20\n");
    command.ReadLine();
    command.Signal(SIGINT);
    EXPECT_EQ(command.Wait(), 130);
}

std::string DecodedOnTerminal(std::vector<std::string> options,
                              std::vector<std::string> environment)
{
    options.insert(options.begin(), {TARN_COMMAND, "decode", "-q"});
    support::CommandSetup setup;
    setup.input = "(1609779922.655421) can0 0F800001#50\n";
    setup.environment = std::move(environment);
    setup.outputIsTerminal = true;
    return RunCommand(options, setup).out;
}

TEST(Decode, UsesColourOnATerminalOnly)
{
    const std::string green = "\x1b[32mOPERATING";
    EXPECT_THAT(DecodedOnTerminal({}, {"NO_COLOR="}), HasSubstr(green));
    EXPECT_THAT(DecodedOnTerminal({}, {"NO_COLOR=1"}), testing::Not(HasSubstr("\x1b")));
    EXPECT_THAT(DecodedOnTerminal({"--color", "never"}, {"NO_COLOR="}),
                testing::Not(HasSubstr("\x1b")));
    EXPECT_THAT(DecodedOnTerminal({"--color", "always"}, {"NO_COLOR=1"}), HasSubstr(green));
    EXPECT_THAT(Decoded("0F800001#50"), testing::Not(HasSubstr("\x1b")));
}

} // namespace
