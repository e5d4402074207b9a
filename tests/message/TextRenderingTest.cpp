#include "support/CaseName.h"
#include "support/Frames.h"

#include <tarn/TarnMessage.h>

#include <gtest/gtest.h>

#include <array>
#include <cstdio>
#include <cstring>
#include <ostream>
#include <random>
#include <string>

namespace
{

using support::Bytes;
using support::Received;
using support::WithPayload;
using tarn::TarnMessage;

struct TextCase {
    const char* name;
    unsigned int header;
    Bytes bytes;
    const char* shortText;
    const char* longText;
};

void PrintTo(const TextCase& row, std::ostream* out)
{
    *out << row.name;
}

class MessageText : public testing::TestWithParam<TextCase>
{
};

TEST_P(MessageText, IsThisByteForByte)
{
    const TextCase& row = GetParam();
    const TarnMessage message = Received(row.header, row.bytes);
    EXPECT_EQ(message.ToStringShort(), row.shortText);
    EXPECT_EQ(message.ToString(), row.longText);
}

INSTANTIATE_TEST_SUITE_P(
    Of, MessageText,
    testing::Values(
        TextCase{"New",
                 0x0F800001,
                 {0x20},
                 "Type: DATA,Priority: DATA,Addressing: DEVICE,AccessType: READ,"
                 "Direction: REQUEST,AddressingMode: STANDARD,Register:00,TargetAddr:00,"
                 "SourceAddr:01,Module:00,Status: POWERUP,DataType: S16F0,Data(0) : ,"
                 "Raw-Header : f800001,Raw-Data(0) : ",
                 "Type:            DATA\n"
                 "Priority:        DATA\n"
                 "Addressing:      DEVICE\n"
                 "AccessType:      READ\n"
                 "Direction:       REQUEST\n"
                 "AddressingMode:  STANDARD\n"
                 "Register:        00\n"
                 "TargetAddr:      00\n"
                 "SourceAddr:      01\n"
                 "Module:          00\n"
                 "Status:          POWERUP\n"
                 "DataType:        S16F0\n"
                 "Data(0) : \n"
                 "Raw-Header : f800001\n"
                 "Raw-Data(0) : "},
        // Priority 1, GROUP, WRITE, RESPONSE, EXTENDED; register 200, target 100, source 9.
        TextCase{"OtherWords",
                 0x04723209,
                 {0x41, 0x00, 0x68, 0xAB},
                 "Type: DATA,Priority: EMRGENCY,Addressing: GROUP,AccessType: WRITE,"
                 "Direction: RESPONSE,AddressingMode: EXTENDED,Register:200,TargetAddr:100,"
                 "SourceAddr:09,Module:171,Status: OPERATING WITH WARNING,DataType: U8,"
                 "Data(2) :  0x41 -  0x00 - ,Raw-Header : 4723209,"
                 "Raw-Data(2) :  - 0x41(A) - 0x00()",
                 "Type:            DATA\n"
                 "Priority:        EMRGENCY\n"
                 "Addressing:      GROUP\n"
                 "AccessType:      WRITE\n"
                 "Direction:       RESPONSE\n"
                 "AddressingMode:  EXTENDED\n"
                 "Register:        200\n"
                 "TargetAddr:      100\n"
                 "SourceAddr:      09\n"
                 "Module:          171\n"
                 "Status:          OPERATING WITH WARNING\n"
                 "DataType:        U8\n"
                 "Data(2) :  0x41 -  0x00 - \n"
                 "Raw-Header : 4723209\n"
                 "Raw-Data(2) :  - 0x41(A) - 0x00()"},
        // A CHCP message shows the bits of its MAC identifier 0000087 as DATA fields.
        TextCase{"Chcp",
                 0xF0000087,
                 {1, 2, 3, 0x7E, 0x20, 0x7F, 0xFE},
                 ",Type: CHCP,Priority: SYNC,Addressing: GROUP,AccessType: WRITE,"
                 "Direction: RESPONSE,AddressingMode: STANDARD,Register:00,TargetAddr:01,"
                 "SourceAddr:07,Module:00,Status: ACCESS NOT GRANTED,DataType: INVALID,"
                 "Raw-Header : f0000087,Raw-Data(6) :  - 0x01() - 0x02() - 0x03() - 0x7e(~) - "
                 "0x20( ) - 0x7f()",
                 "Type:            CHCP\n"
                 "Priority:        SYNC\n"
                 "Addressing:      GROUP\n"
                 "AccessType:      WRITE\n"
                 "Direction:       RESPONSE\n"
                 "AddressingMode:  STANDARD\n"
                 "Register:        00\n"
                 "TargetAddr:      01\n"
                 "SourceAddr:      07\n"
                 "Module:          00\n"
                 "Status:          ACCESS NOT GRANTED\n"
                 "DataType:        INVALID\n"
                 "Raw-Header : f0000087\n"
                 "Raw-Data(6) :  - 0x01() - 0x02() - 0x03() - 0x7e(~) - 0x20( ) - 0x7f()"},
        TextCase{"Invalid",
                 0x0F800001,
                 {},
                 "Type: DATA,Priority: SYNC,Addressing: GROUP,AccessType: WRITE,"
                 "Direction: RESPONSE,AddressingMode: STANDARD,Register:00,TargetAddr:00,"
                 "SourceAddr:00,Module:00,Status: UNKNOWN,DataType: S16F0,Data(0) : ,"
                 "Raw-Header : 0,Raw-Data(0) : ",
                 "Type:            DATA\n"
                 "Priority:        SYNC\n"
                 "Addressing:      GROUP\n"
                 "AccessType:      WRITE\n"
                 "Direction:       RESPONSE\n"
                 "AddressingMode:  STANDARD\n"
                 "Register:        00\n"
                 "TargetAddr:      00\n"
                 "SourceAddr:      00\n"
                 "Module:          00\n"
                 "Status:          UNKNOWN\n"
                 "DataType:        S16F0\n"
                 "Data(0) : \n"
                 "Raw-Header : 0\n"
                 "Raw-Data(0) : "}),
    support::CaseName());

/// What stands between two marks of a text.
std::string Between(const std::string& text, const std::string& begin, const std::string& end)
{
    const std::size_t from = text.find(begin);
    if (from == std::string::npos)
        return "(no " + begin + ")";
    const std::size_t start = from + begin.size();
    return text.substr(start, text.find(end, start) - start);
}

struct WordCase {
    const char* name;
    unsigned int header;
    unsigned char statusByte;
    const char* label;
    const char* word;
};

void PrintTo(const WordCase& row, std::ostream* out)
{
    *out << row.name;
}

class Word : public testing::TestWithParam<WordCase>
{
};

TEST_P(Word, StandsInBothForms)
{
    const WordCase& row = GetParam();
    const TarnMessage message = Received(row.header, {row.statusByte});
    const std::string label = row.label;
    EXPECT_EQ(Between(message.ToStringShort(), "," + label + ": ", ","), row.word);
    const std::string padded = (label + ":                ").substr(0, 17);
    EXPECT_EQ(Between(message.ToString(), "\n" + padded, "\n"), row.word);
}

INSTANTIATE_TEST_SUITE_P(
    OfTheHeader, Word,
    testing::Values(WordCase{"Sync", 0x00000000, 0, "Priority", "SYNC"},
                    WordCase{"Emergency", 0x04000000, 0, "Priority", "EMRGENCY"},
                    WordCase{"Control", 0x08000000, 0, "Priority", "CONTROL"},
                    WordCase{"Data", 0x0C000000, 0, "Priority", "DATA"},
                    WordCase{"Group", 0xEDBFFFFF, 0, "Addressing", "GROUP"},
                    WordCase{"Device", 0x02000000, 0, "Addressing", "DEVICE"},
                    WordCase{"Write", 0xEEBFFFFF, 0, "AccessType", "WRITE"},
                    WordCase{"Read", 0x01000000, 0, "AccessType", "READ"},
                    WordCase{"Response", 0xEF3FFFFF, 0, "Direction", "RESPONSE"},
                    WordCase{"Request", 0x00800000, 0, "Direction", "REQUEST"},
                    WordCase{"Standard", 0xEFBFFFFF, 0, "AddressingMode", "STANDARD"}),
    support::CaseName());

INSTANTIATE_TEST_SUITE_P(
    OfTheStatus, Word,
    testing::Values(WordCase{"S0", 0, 0x00, "Status", "UNKNOWN"},
                    WordCase{"S1", 0, 0x10, "Status", "OFFLINE"},
                    WordCase{"S2", 0, 0x20, "Status", "POWERUP"},
                    WordCase{"S3", 0, 0x30, "Status", "STANDBY"},
                    WordCase{"S4", 0, 0x40, "Status", "STARTUP"},
                    WordCase{"S5", 0, 0x50, "Status", "OPERATING"},
                    WordCase{"S6", 0, 0x60, "Status", "OPERATING WITH WARNING"},
                    WordCase{"S7", 0, 0x70, "Status", "OPERATING WITH FAILURE"},
                    WordCase{"S8", 0, 0x80, "Status", "STOPPED BY HW-FAILURE"},
                    WordCase{"S9", 0, 0x90, "Status", "STOPPED BY EXTERNAL"},
                    WordCase{"S10", 0, 0xA0, "Status", "STOPPED BY INTERNAL"},
                    WordCase{"S11", 0, 0xB0, "Status", "RESOURCE NOT EXISTING"},
                    WordCase{"S12", 0, 0xC0, "Status", "RESOURCE EXCLUSIVE RESERVED"},
                    WordCase{"S13", 0, 0xD0, "Status", "RESOURCE OVERLOADED"},
                    WordCase{"S14", 0, 0xE0, "Status", "FRAME-FAILURE"},
                    WordCase{"S15", 0, 0xF0, "Status", "ACCESS NOT GRANTED"}),
    support::CaseName());

INSTANTIATE_TEST_SUITE_P(
    OfTheDataType, Word,
    testing::Values(
        WordCase{"T0", 0, 0x00, "DataType", "S16F0"}, WordCase{"T1", 0, 0x01, "DataType", "S16F1"},
        WordCase{"T2", 0, 0x02, "DataType", "S16F2"}, WordCase{"T3", 0, 0x03, "DataType", "S16F3"},
        WordCase{"T4", 0, 0x04, "DataType", "S16F4"}, WordCase{"T5", 0, 0x05, "DataType", "S16F5"},
        WordCase{"T6", 0, 0x06, "DataType", "S16F6"}, WordCase{"T7", 0, 0x07, "DataType", "S16F7"},
        WordCase{"T8", 0, 0x08, "DataType", "U8"}, WordCase{"T9", 0, 0x09, "DataType", "U16"},
        WordCase{"T10", 0, 0x0A, "DataType", "U24"}, WordCase{"T11", 0, 0x0B, "DataType", "U32"},
        WordCase{"T12", 0, 0x0C, "DataType", "U48"}, WordCase{"T13", 0, 0x0D, "DataType", "FLOAT"},
        WordCase{"T14", 0, 0x0E, "DataType", "INVALID"},
        WordCase{"T15", 0, 0x0F, "DataType", "NOT A TYPE"}),
    support::CaseName());

struct DataCase {
    const char* name;
    unsigned int dataType;
    Bytes payload;
    const char* text; ///< between the data type word and the raw header
};

void PrintTo(const DataCase& row, std::ostream* out)
{
    *out << row.name;
}

class DataText : public testing::TestWithParam<DataCase>
{
};

TEST_P(DataText, StandsInBothForms)
{
    const DataCase& row = GetParam();
    const TarnMessage message = WithPayload(row.dataType, row.payload);
    const std::string item = row.text;
    EXPECT_EQ(Between(message.ToStringShort(), ",Data(", ",Raw-Header"), item);
    EXPECT_EQ(Between(message.ToString(), "\nData(", "\nRaw-Header"), item);
}

INSTANTIATE_TEST_SUITE_P(
    OfWholeNumbers, DataText,
    testing::Values(
        DataCase{"U8", 8, {0x41, 0x00}, "2) :  0x41 -  0x00 - "},
        DataCase{"U16", 9, {0x34, 0x12}, "1) :  0x1234 - "},
        DataCase{"U16Three", 9, {1, 0, 2, 0, 0xFF, 0xFF}, "3) :  0x0001 -  0x0002 -  0xffff - "},
        DataCase{"U24", 10, {0xEF, 0xCD, 0xAB}, "1) :  0xabcdef - "},
        DataCase{"U24Two", 10, {1, 0, 0, 0, 0, 1}, "2) :  0x000001 -  0x010000 - "},
        DataCase{"U32", 11, {0xEF, 0xBE, 0xAD, 0x0E}, "1) :  0x0eadbeef - "},
        DataCase{"U48", 12, {6, 5, 4, 3, 2, 1}, "1) :  0x010203040506 - "}),
    support::CaseName());

INSTANTIATE_TEST_SUITE_P(
    OfFractions, DataText,
    testing::Values(
        DataCase{"S16F1", 1, {0x00, 0x0C}, "1) : 1.5 - "},
        DataCase{"S16F0Three", 0, {0x00, 0x10, 0x00, 0xE0, 0, 0}, "3) : 0.5 - -1 - 0 - "},
        DataCase{"S16F0Step", 0, {1, 0}, "1) : 0.00012207 - "},
        DataCase{"S16F0Negative", 0, {0xFF, 0xFF}, "1) : -0.00012207 - "},
        DataCase{"S16F7", 7, {0xFF, 0x7F, 0x00, 0x80}, "2) : 65534 - -65536 - "},
        DataCase{"Float", 13, {0x00, 0x00, 0xC0, 0x3F}, "1) : 1.5 - "},
        DataCase{"FloatOfSevenDigits", 13, {0x38, 0xB4, 0x96, 0x49}, "1) : 1.23457e+06 - "},
        DataCase{"FloatSmall", 13, {0x17, 0xB7, 0xD1, 0x38}, "1) : 0.0001 - "},
        DataCase{"FloatSmaller", 13, {0xAC, 0xC5, 0x27, 0x37}, "1) : 1e-05 - "},
        DataCase{"FloatMinusZero", 13, {0, 0, 0, 0x80}, "1) : -0 - "},
        DataCase{"FloatInfinite", 13, {0, 0, 0x80, 0x7F}, "1) : inf - "},
        DataCase{"FloatMinusInfinite", 13, {0, 0, 0x80, 0xFF}, "1) : -inf - "},
        DataCase{"FloatNaN", 13, {0, 0, 0xC0, 0x7F}, "1) : nan - "},
        DataCase{"FloatMinusNaN", 13, {0, 0, 0xC0, 0xFF}, "1) : -nan - "},
        DataCase{"FloatDenormal", 13, {1, 0, 0, 0}, "1) : 1.4013e-45 - "},
        DataCase{"FloatLargest", 13, {0xFF, 0xFF, 0x7F, 0xFF}, "1) : -3.40282e+38 - "}),
    support::CaseName());

INSTANTIATE_TEST_SUITE_P(ThatDoesNotFit, DataText,
                         testing::Values(DataCase{"S16F3Odd", 3, {1}, "0) : "},
                                         DataCase{"S16F0Seven", 0, {1, 2, 3, 4, 5, 6, 7}, "0) : "},
                                         DataCase{"U8Empty", 8, {}, "0) : "},
                                         DataCase{"U8Seven", 8, {1, 2, 3, 4, 5, 6, 7}, "0) : "},
                                         DataCase{"U16Odd", 9, {1, 2, 3}, "0) : "},
                                         DataCase{"U24Four", 10, {1, 2, 3, 4}, "0) : "},
                                         DataCase{"U32Six", 11, {1, 2, 3, 4, 5, 6}, "0) : "},
                                         DataCase{"U48Five", 12, {1, 2, 3, 4, 5}, "0) : "},
                                         DataCase{"FloatSix", 13, {1, 2, 3, 4, 5, 6}, "0) : "}),
                         support::CaseName());

TEST(DataText, IsLeftOutForATypeThatIsNone)
{
    EXPECT_EQ(Between(WithPayload(14, {1}).ToStringShort(), "DataType: ", ",Raw-Data"),
              "INVALID,Raw-Header : 0");
    EXPECT_EQ(Between(WithPayload(15, {1}).ToStringShort(), "DataType: ", ",Raw-Data"),
              "NOT A TYPE,Raw-Header : 0");
    EXPECT_EQ(Between(WithPayload(15, {1}).ToString(), "DataType:        ", "\nRaw-Data"),
              "NOT A TYPE\nRaw-Header : 0");
}

std::string RawByte(unsigned int byte)
{
    return Between(WithPayload(15, {static_cast<unsigned char>(byte)}).ToStringShort(),
                   "Raw-Data(1) : ", "\n");
}

TEST(RawData, ShowsEveryByteAndItsCharacterWhereThereIsOne)
{
    const std::string printable =
        " !\"#$%&'()*+,-./"
        "0123456789:;<=>?@ABCDEFGHIJKLMNOPQRSTUVWXYZ[\\]^_`abcdefghijklmnopqrstuvwxyz"
        "{|}~";
    for (unsigned int byte = 0; byte < 256; ++byte) {
        std::string digits = {"0123456789abcdef"[byte / 16], "0123456789abcdef"[byte % 16]};
        const auto character = static_cast<char>(byte);
        const bool shown = byte != 0 && printable.find(character) != std::string::npos;
        EXPECT_EQ(RawByte(byte),
                  " - 0x" + digits + "(" + (shown ? character + std::string() : "") + ")");
    }
}

TEST(RawData, ShowsSevenReceivedBytes)
{
    const std::string text = WithPayload(8, {'a', 'b', 'c', 'd', 'e', 'f', 'g'}).ToStringShort();
    EXPECT_EQ(Between(text, "Raw-Data", "\n"),
              "(7) :  - 0x61(a) - 0x62(b) - 0x63(c) - 0x64(d) - 0x65(e) - 0x66(f) - 0x67(g)");
}

TEST(Text, ChangesNothing)
{
    const TarnMessage message = Received(0xE4723209, {0x41, 0x00, 0x68, 0xAB});
    const TarnMessage before(message);
    message.ToString();
    message.ToStringShort();
    EXPECT_TRUE(message == before);
}

TEST(Text, ShowsEveryNumberOfRegisterAddressesAndModule)
{
    for (unsigned int number = 0; number < 256; ++number) {
        TarnMessage message;
        message.SetRegister(static_cast<unsigned char>(number));
        message.SetTargetAddr(static_cast<unsigned char>(number % 128));
        message.SetSourceAddr(static_cast<unsigned char>(127 - number % 128));
        message.SetModule(static_cast<unsigned char>(255 - number));
        std::array<char, 80> expected = {};
        std::snprintf(expected.data(), expected.size(),
                      "Register:%02u,TargetAddr:%02u,SourceAddr:%02u,Module:%02u,Status", number,
                      number % 128, 127 - number % 128, 255 - number);
        EXPECT_NE(message.ToStringShort().find(expected.data()), std::string::npos) << number;
    }
}

TEST(FloatText, OfRandomSinglesIsPrintfsGeneralFormat)
{
    std::mt19937 random(20240302);
    for (int i = 0; i < 200000; ++i) {
        const auto bits = static_cast<unsigned int>(random());
        float value = 0;
        std::memcpy(&value, &bits, sizeof value);
        const TarnMessage message = WithPayload(
            13, {static_cast<unsigned char>(bits), static_cast<unsigned char>(bits >> 8),
                 static_cast<unsigned char>(bits >> 16), static_cast<unsigned char>(bits >> 24)});
        std::array<char, 40> expected = {};
        std::snprintf(expected.data(), expected.size(), ",Data(1) : %g - ,Raw-Header",
                      static_cast<double>(value));
        ASSERT_NE(message.ToStringShort().find(expected.data()), std::string::npos)
            << expected.data() << " " << message.ToStringShort();
    }
}

TEST(FixedPointText, OfEverySeventhWordIsPrintfsGeneralFormat)
{
    for (unsigned int format = 0; format < 8; ++format) {
        for (int steps = -32768; steps < 32768; steps += 7) {
            const auto word = static_cast<unsigned int>(steps) % 65536u;
            const TarnMessage message =
                WithPayload(format, {static_cast<unsigned char>(word % 256),
                                     static_cast<unsigned char>(word / 256)});
            std::array<char, 40> expected = {};
            std::snprintf(expected.data(), expected.size(), ",Data(1) : %g - ,Raw",
                          steps * static_cast<double>(1 << (2 * format)) / 8192);
            ASSERT_NE(message.ToStringShort().find(expected.data()), std::string::npos)
                << expected.data();
        }
    }
}

} // namespace
