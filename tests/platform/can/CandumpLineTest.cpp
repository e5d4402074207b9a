#include <plexa_can/CandumpLine.h>

#include <gtest/gtest.h>

#include <ostream>
#include <string>

namespace
{

using tarn::CandumpLine;
using tarn::CanMessage;
using tarn::ParseCandumpLine;

CandumpLine Parse(const std::string& text)
{
    CandumpLine line;
    ParseCandumpLine(text.data(), text.size(), line);
    return line;
}

struct Accepted {
    const char* name;
    const char* text;
    const char* frame; ///< as CanMessage::ToString() writes it
    const char* interfaceName;
    unsigned long long time;
    CandumpLine::tTimeForm timeForm;
    unsigned int decimals;
    CandumpLine::tDirection direction;
};

void PrintTo(const Accepted& row, std::ostream* out)
{
    *out << row.text;
}

constexpr auto NONE = CandumpLine::TIME_NONE;
constexpr auto ABSOLUTE = CandumpLine::TIME_ABSOLUTE;
constexpr auto DATE = CandumpLine::TIME_DATE;
constexpr auto RELATIVE = CandumpLine::TIME_RELATIVE;
constexpr auto UNKNOWN = CandumpLine::DIRECTION_UNKNOWN;
constexpr auto RECEIVED = CandumpLine::DIRECTION_RECEIVED;
constexpr auto SENT = CandumpLine::DIRECTION_SENT;

const Accepted ACCEPTED[] = {
    {"Log", "(1609779922.655421) can0 0F800001#20", "0F800001#20", "can0", 1609779922655421000,
     ABSOLUTE, 6, UNKNOWN},
    {"LogReceived", "(1609779922.655421) can0 0F800001#20 R", "0F800001#20", "can0",
     1609779922655421000, ABSOLUTE, 6, RECEIVED},
    {"LogSent", "(1609779922.655421) can0 0F800001#20 T", "0F800001#20", "can0",
     1609779922655421000, ABSOLUTE, 6, SENT},
    {"LogNineDecimals", "(1609779922.000000001) can0 0F800001#20", "0F800001#20", "can0",
     1609779922000000001, ABSOLUTE, 9, UNKNOWN},
    {"LogPaddedName", "(1436509052.249713)  vcan0 044#2A366C2BBA", "044#2A366C2BBA", "vcan0",
     1436509052249713000, ABSOLUTE, 6, UNKNOWN},
    {"LogWithoutDecimals", "(1609779922) can0 0F800001#20", "0F800001#20", "can0",
     1609779922000000000, ABSOLUTE, 0, UNKNOWN},
    {"LogEightBytes", "(0000000000.000000) can0 1FFFFFFF#0011223344556677",
     "1FFFFFFF#0011223344556677", "can0", 0, ABSOLUTE, 6, UNKNOWN},
    {"LogNoBytes", "(1609779922.655421) can0 0F800001#", "0F800001#", "can0", 1609779922655421000,
     ABSOLUTE, 6, UNKNOWN},
    {"LogLowerCase", "(1609779922.655421) can0 0f80abcd#ff", "0F80ABCD#FF", "can0",
     1609779922655421000, ABSOLUTE, 6, UNKNOWN},
    {"LogRemote", "(1609779922.655421) can0 0F800001#R", "0F800001#R", "can0", 1609779922655421000,
     ABSOLUTE, 6, UNKNOWN},
    {"LogRemoteWithLength", "(1609779922.655421) can0 7FF#R8", "7FF#R", "can0", 1609779922655421000,
     ABSOLUTE, 6, UNKNOWN},
    {"LogError", "(1609779922.655421) can0 20000004#0008000000006000", "20000004#0008000000006000",
     "can0", 1609779922655421000, ABSOLUTE, 6, UNKNOWN},
    {"LogLengthCode", "(1609779922.655421) can0 123#1122334455667788_E", "123#1122334455667788",
     "can0", 1609779922655421000, ABSOLUTE, 6, UNKNOWN},
    {"LogCarriageReturn", "(1609779922.655421) can0 0F800001#20\r", "0F800001#20", "can0",
     1609779922655421000, ABSOLUTE, 6, UNKNOWN},
    {"LogAfter2286", "(16836964971.675700616) can0 0F800001#20", "0F800001#20", "can0",
     16836964971675700616u, ABSOLUTE, 9, UNKNOWN},
    {"LogLastTime", "(18446744073.709551615) can0 123#", "123#", "can0", 18446744073709551615u,
     ABSOLUTE, 9, UNKNOWN},
    {"LogWithoutTime", "can0 0F800001#20", "0F800001#20", "can0", 0, NONE, 0, UNKNOWN},
    {"LogLongestName", "(1.5) abcdefghijklmno 123#", "123#", "abcdefghijklmno", 1500000000,
     RELATIVE, 1, UNKNOWN},
    {"LogHexadecimalName", "(1.5) ace 123#00", "123#00", "ace", 1500000000, RELATIVE, 1, UNKNOWN},
    {"Cansend", "0F800001#20", "0F800001#20", "", 0, NONE, 0, UNKNOWN},
    {"CansendDots", "0F800001#11.22.33", "0F800001#112233", "", 0, NONE, 0, UNKNOWN},
    {"Console", "  can0  0F800001   [1]  20", "0F800001#20", "can0", 0, NONE, 0, UNKNOWN},
    {"ConsoleStandard", "  can0  123   [2]  AB CD", "123#ABCD", "can0", 0, NONE, 0, UNKNOWN},
    {"ConsoleIndentedStandard", "  can0       123   [2]  AB CD", "123#ABCD", "can0", 0, NONE, 0,
     UNKNOWN},
    {"ConsoleNoBytes", "  can0  123   [0]", "123#", "can0", 0, NONE, 0, UNKNOWN},
    {"ConsoleNoBytesBlanks", "  can0  123   [0]  ", "123#", "can0", 0, NONE, 0, UNKNOWN},
    {"ConsoleAbsolute", " (1609779922.655421)  can0  0F800001   [1]  20", "0F800001#20", "can0",
     1609779922655421000, ABSOLUTE, 6, UNKNOWN},
    {"ConsoleDate", " (2021-01-04 17:05:22.655421)  can0  0F800001   [1]  20", "0F800001#20",
     "can0", 1609779922655421000, DATE, 6, UNKNOWN},
    {"ConsoleLeapDay", " (2024-02-29 00:00:00.000000)  can0  123   [0]", "123#", "can0",
     1709164800000000000, DATE, 6, UNKNOWN},
    {"ConsoleRelative", " (000.000123)  can0  0F800001   [1]  20", "0F800001#20", "can0", 123000,
     RELATIVE, 6, UNKNOWN},
    {"ConsoleReceived", "  can0  RX - -  0F800001   [1]  20", "0F800001#20", "can0", 0, NONE, 0,
     RECEIVED},
    {"ConsoleSent", "  can0  TX B E  0F800001   [1]  20", "0F800001#20", "can0", 0, NONE, 0, SENT},
    {"ConsoleRemote", "  can0  0F800001   [0]  remote request", "0F800001#R", "can0", 0, NONE, 0,
     UNKNOWN},
    {"ConsoleRemoteLength", "  can0  123   [4]  remote request", "123#R", "can0", 0, NONE, 0,
     UNKNOWN},
    {"ConsoleText", "  can0  123   [3]  41 42 07                  'AB.'", "123#414207", "can0", 0,
     NONE, 0, UNKNOWN},
    {"ConsoleTextOfQuotes", "  can0  123   [2]  27 20   '' '", "123#2720", "can0", 0, NONE, 0,
     UNKNOWN},
    {"ConsoleError", "  can0  20000004   [8]  00 08 00 00 00 00 60 00   ERRORFRAME",
     "20000004#0008000000006000", "can0", 0, NONE, 0, UNKNOWN},
};

class AcceptedLine : public testing::TestWithParam<Accepted>
{
};

TEST_P(AcceptedLine, GivesFrameTimeInterfaceAndDirection)
{
    const Accepted& expected = GetParam();
    const CandumpLine line = Parse(expected.text);
    ASSERT_EQ(line.kind, CandumpLine::KIND_FRAME) << line.reason << ", column " << line.column;
    EXPECT_EQ(line.frame.ToString(), expected.frame);
    EXPECT_STREQ(line.interfaceName, expected.interfaceName);
    EXPECT_EQ(line.frame.GetTimeStamp(), expected.time);
    EXPECT_EQ(line.timeForm, expected.timeForm);
    EXPECT_EQ(line.timeDecimals, expected.decimals);
    EXPECT_EQ(line.direction, expected.direction);
}

INSTANTIATE_TEST_SUITE_P(CandumpLine, AcceptedLine, testing::ValuesIn(ACCEPTED),
                         [](const auto& test) { return std::string(test.param.name); });

struct Refused {
    const char* name;
    const char* text;
    std::size_t column;
    const char* reason;
};

void PrintTo(const Refused& row, std::ostream* out)
{
    *out << row.text;
}

const Refused REFUSED[] = {
    {"Words", "hello world", 7, "character that is no digit of an identifier"},
    {"OneWord", "can0", 5, "nothing after the interface name"},
    {"TimeAlone", "(1609779922.655421)", 20, "nothing after the time stamp"},
    {"TimeUnclosed", "(1609779922.655421 can0 123#", 19, "time stamp does not end with ')'"},
    {"TimeEmpty", "() can0 123#", 2, "no number in the time stamp"},
    {"TimeNegative", "(-1.5) can0 123#", 2, "no number in the time stamp"},
    {"TimeWithoutFraction", "(1609779922.) can0 123#", 13, "no number in the time stamp"},
    {"TimeTenDecimals", "(1609779922.1234567890) can0 123#", 22,
     "time stamp does not end with ')'"},
    {"TimeTwelveDigits", "(160977992210.5) can0 123#", 13, "time stamp does not end with ')'"},
    {"TimeBeyondTheLast", "(18446744073.709551616) can0 123#", 2, "time stamp after the year 2554"},
    {"TimeFarBeyondTheLast", "(99999999999.9) can0 123#", 2, "time stamp after the year 2554"},
    {"DateOfNoMonth", "(2021-13-04 17:05:22.5) can0 123#", 2, "no such date or time of day"},
    {"DateOfNoDay", "(2023-02-29 17:05:22.5) can0 123#", 2, "no such date or time of day"},
    {"DateBefore1970", "(1969-12-31 17:05:22.5) can0 123#", 2, "no such date or time of day"},
    {"TimeOfNoDay", "(2023-02-28 24:00:00.5) can0 123#", 2, "no such date or time of day"},
    {"DateCut", "(2023-02-28 17:05) can0 123#", 18, "date is not YYYY-MM-DD HH:MM:SS"},
    {"NameTooLong", "(1.5) abcdefghijklmnop 123#", 7, "interface name of more than 15 characters"},
    {"NameWithEscape", "(1.5) can\x1b 123#", 10, "character that no interface name has"},
    {"NameAlone", "(1.5) can0", 11, "nothing after the interface name"},
    {"IdentifierOfSeven", "(1.5) can0 F800001#20", 12, "identifier has neither 8 digits nor 3"},
    {"IdentifierOfNine", "(1.5) can0 00F800001#20", 12, "identifier has neither 8 digits nor 3"},
    {"IdentifierOfTen", "(1.5) can0 000F800001#20", 21, "identifier of more than 8 digits"},
    {"IdentifierAbove11Bits", "(1.5) can0 800#20", 12, "identifier is out of range"},
    {"IdentifierAbove29Bits", "(1.5) can0 40000000#20", 12, "identifier is out of range"},
    {"IdentifierNoDigit", "(1.5) can0 0F80000G#20", 19,
     "character that is no digit of an identifier"},
    {"IdentifierMissing", "(1.5) can0 #20", 12, "identifier has neither 8 digits nor 3"},
    {"IdentifierAlone", "(1.5) can0 123", 15, "neither '#' nor '[' after the identifier"},
    {"HalfByte", "(1.5) can0 123#012", 18, "data byte has not two hexadecimal digits"},
    {"NineBytes", "(1.5) can0 123#001122334455667788", 32, "more than 8 data bytes"},
    {"DataNoDigits", "(1.5) can0 123#XY", 16, "data are no hexadecimal digits"},
    {"DataEndsOddly", "(1.5) can0 123#11XY", 18, "character that is no digit of the data"},
    {"RemoteOfNine", "(1.5) can0 123#R9", 17, "length of more than 8"},
    {"LengthCodeMissing", "(1.5) can0 123#1122334455667788_", 33, "no length code after '_'"},
    {"TextBehind", "(1.5) can0 123#11 R x", 21, "text after the frame"},
    {"FlexibleWithoutFlags", "(1.5) can0 123##", 17, "no flags after '##'"},
    {"FlexibleHalfByte", "(1.5) can0 123##1223", 20, "data byte has not two hexadecimal digits"},
    {"ConsoleNoLength", "  can0  123   [] 11", 16,
     "length in brackets is no number of one or two digits"},
    {"ConsoleThreeDigitLength", "  can0  123   [123] 11", 18,
     "length in brackets is no number of one or two digits"},
    {"ConsoleLengthNine", "  can0  123   [9] 11", 15, "length of more than 8"},
    {"ConsoleLength65", "  can0  123   [65] 11", 15, "length of more than 64"},
    {"ConsoleFewerBytes", "  can0  123   [2]  11", 22, "fewer data bytes than the length says"},
    {"ConsoleMoreBytes", "  can0  123   [1]  11 22", 23, "more data bytes than the length says"},
    {"ConsoleJoinedBytes", "  can0  123   [2]  1122", 22, "data byte of more than two digits"},
    {"ConsoleSwapped", "  can0  123   [2]  22`11", 22, "data bytes in swapped order (candump -S)"},
    {"ConsoleHalfByte", "  can0  123   [2]  11 2", 23, "data byte has not two hexadecimal digits"},
    {"ConsoleOddFlags", "  can0  RX x -  123   [0]", 12,
     "flags after RX or TX are neither set nor '-'"},
    {"ConsoleTextCut", "  can0  123   [3]  41 42 07   'AB", 31, "text after the frame"},
};

class RefusedLine : public testing::TestWithParam<Refused>
{
};

TEST_P(RefusedLine, SaysWhyAndWhere)
{
    const CandumpLine line = Parse(GetParam().text);
    ASSERT_EQ(line.kind, CandumpLine::KIND_MALFORMED);
    EXPECT_STREQ(line.reason, GetParam().reason);
    EXPECT_EQ(line.column, GetParam().column);
}

INSTANTIATE_TEST_SUITE_P(CandumpLine, RefusedLine, testing::ValuesIn(REFUSED),
                         [](const auto& test) { return std::string(test.param.name); });

TEST(CandumpLine, TakesBlankLinesAndRemarksForComments)
{
    for (const char* const text :
         {"", " ", "\t", "\r", "# made by hand", "   # indented", "#(1.5) can0 123#"})
        EXPECT_EQ(Parse(text).kind, CandumpLine::KIND_COMMENT) << '"' << text << '"';
}

TEST(CandumpLine, TakesTheExplanationBelowAnErrorFrameForAComment)
{
    for (const char* const text :
         {"\tcontroller-problem{rx-error-warning}", "\tbus-off", "\tlost-arbitration{at bit 3}",
          "\terror-counter-tx-rx{{96}{0}}"})
        EXPECT_EQ(Parse(text).kind, CandumpLine::KIND_COMMENT) << text;
    EXPECT_EQ(Parse("\tcan0 0F800001#20").kind, CandumpLine::KIND_FRAME);
    EXPECT_EQ(Parse("\tdamaged").kind, CandumpLine::KIND_MALFORMED);
}

TEST(CandumpLine, TellsCanFdFramesInBothForms)
{
    const std::string bytes64(128, 'A');
    for (const std::string& text :
         {std::string("(1609779922.655421) can0 123##1"),
          "(1609779922.655421) can0 0F800001##5" + bytes64,
          std::string(" (1609779922.655421)  can0  123  [02]  11 22"),
          std::string(" (1609779922.655421)  can0  0F800001  [12]  00 11 22 33 44 55 66 77 88 99 "
                      "AA BB")}) {
        const CandumpLine line = Parse(text);
        EXPECT_EQ(line.kind, CandumpLine::KIND_FD_FRAME) << text;
        EXPECT_EQ(line.frame.GetTimeStamp(), 1609779922655421000u) << text;
    }
    EXPECT_STREQ(Parse("can0 123##5" + bytes64 + "00").reason, "more than 64 data bytes");
}

TEST(CandumpLine, MarksErrorFramesByIdentifierOrByWord)
{
    const CandumpLine log = Parse("can0 20000004#00");
    EXPECT_TRUE(log.frame.HasError());
    EXPECT_EQ(log.frame.GetHeader(), 4u);
    EXPECT_TRUE(Parse("  can0  00000004   [1]  00   ERRORFRAME").frame.HasError());
}

TEST(CandumpLine, KeepsNothingOfTheLineBefore)
{
    CandumpLine line = Parse("(1609779922.655421) can0 0F800001#20 R");
    const std::string next = "123#";
    ASSERT_TRUE(ParseCandumpLine(next.data(), next.size(), line));
    EXPECT_STREQ(line.interfaceName, "");
    EXPECT_EQ(line.frame.GetTimeStamp(), 0u);
    EXPECT_EQ(line.frame.GetFlags(), 0u);
    EXPECT_EQ(line.frame.GetDataSize(), 0u);
    EXPECT_EQ(line.direction, CandumpLine::DIRECTION_UNKNOWN);
    EXPECT_EQ(line.timeForm, CandumpLine::TIME_NONE);
}

TEST(CandumpLine, RefusesBytesThatAreNoText)
{
    EXPECT_EQ(Parse(std::string("can0 123#\0", 10)).kind, CandumpLine::KIND_MALFORMED);
    EXPECT_EQ(Parse(std::string("\0\0\0", 3)).kind, CandumpLine::KIND_MALFORMED);
    EXPECT_EQ(Parse("\xFF\xFE").kind, CandumpLine::KIND_MALFORMED);
    EXPECT_TRUE(Parse(std::string()).kind == CandumpLine::KIND_COMMENT);
}

} // namespace
