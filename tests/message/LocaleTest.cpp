#include "support/Frames.h"

#include <tarn/TarnMessage.h>

#include <gtest/gtest.h>

#include <cctype>
#include <clocale>
#include <cstdlib>
#include <locale>
#include <sstream>
#include <string>

// A program of its own: locales belong to the whole process.

namespace
{

using support::Received;
using support::WithPayload;
using tarn::TarnMessage;

/// Groups digits by two and puts a comma where others put a point.
class Grouping : public std::numpunct<char>
{
    char do_decimal_point() const override { return ','; }
    char do_thousands_sep() const override { return '.'; }
    std::string do_grouping() const override { return "\2"; }
};

void ExpectTheTextOfTheCLocale()
{
    EXPECT_EQ(Received(0x0F820509, {0x00, 0x00, 0xC0, 0x3F, 0x5D}).ToStringShort(),
              "Type: DATA,Priority: DATA,Addressing: DEVICE,AccessType: READ,Direction: REQUEST,"
              "AddressingMode: STANDARD,Register:08,TargetAddr:10,SourceAddr:09,Module:00,"
              "Status: OPERATING,DataType: FLOAT,Data(1) : 1.5 - ,Raw-Header : f820509,"
              "Raw-Data(4) :  - 0x00() - 0x00() - 0xc0() - 0x3f(?)");
    const std::string text = Received(0x0FFFFFFF, {0xE4, 0x08, 0xFF}).ToString();
    EXPECT_NE(text.find("Register:        255\nTargetAddr:      127\nSourceAddr:      127\n"
                        "Module:          255\n"),
              std::string::npos);
    EXPECT_NE(text.find("Raw-Header : fffffff\nRaw-Data(1) :  - 0xe4()"), std::string::npos);
    EXPECT_NE(WithPayload(13, {0x38, 0xB4, 0x96, 0x49}).ToString().find("Data(1) : 1.23457e+06 - "),
              std::string::npos);
    EXPECT_NE(WithPayload(12, {6, 5, 4, 3, 2, 1}).ToString().find(" 0x010203040506 - "),
              std::string::npos);
}

class ProcessLocale : public testing::Test
{
protected:
    ~ProcessLocale() override
    {
        std::locale::global(std::locale::classic());
        std::setlocale(LC_ALL, "C");
    }
};

TEST_F(ProcessLocale, OfStreamsDoesNotReachTheText)
{
    std::locale::global(std::locale(std::locale::classic(), new Grouping));
    std::ostringstream ordinary;
    ordinary << 1255 << " " << 1.5;
    ASSERT_EQ(ordinary.str(), "12.55 1,5") << "the locale does not show in streams";
    ExpectTheTextOfTheCLocale();
}

TEST_F(ProcessLocale, OfTheCLibraryDoesNotReachTheText)
{
    setenv("LOCPATH", TEST_LOCALES, 1);
    ASSERT_NE(std::setlocale(LC_ALL, "de_TEST"), nullptr) << "no locale in " << TEST_LOCALES;
    ASSERT_STREQ(std::localeconv()->decimal_point, ",");
    ASSERT_NE(std::isprint(0xE4), 0);
    ExpectTheTextOfTheCLocale();
}

} // namespace
