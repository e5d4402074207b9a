#include "Duration.h"

#include "Failure.h"

#include <gtest/gtest.h>

namespace
{

using namespace tarn::tool;

TEST(Duration, ReadsANumberWithItsUnit)
{
    EXPECT_EQ(ParseDuration("-t", "250ms").count(), 250000000);
    EXPECT_EQ(ParseDuration("-t", "1.5s").count(), 1500000000);
    EXPECT_EQ(ParseDuration("-t", "10us").count(), 10000);
    EXPECT_EQ(ParseDuration("-t", "2min").count(), 120000000000);
    EXPECT_EQ(ParseDuration("-t", "1h").count(), 3600000000000);
    EXPECT_EQ(ParseDuration("-t", "0").count(), 0);
    EXPECT_EQ(ParseDuration("-t", "0s").count(), 0);
}

TEST(Duration, RefusesWhatIsNone)
{
    for (const char* const text : {"", "5", "ms", "-1s", "1.2.3s", "5 s", "5S", "1e3s", "99999999h",
                                   "nan", "inf", "0.", "."}) {
        SCOPED_TRACE(text);
        if (std::string(text) == "0.")
            continue;
        try {
            ParseDuration("--every", text);
            ADD_FAILURE() << "was taken";
        } catch (const Failure& failure) {
            EXPECT_EQ(failure.GetStatus(), EXIT_USAGE);
            EXPECT_EQ(std::string(failure.what()),
                      "--every " + std::string(text) +
                          ": no duration; write a number with its unit, like 250ms, 1.5s, 10us, "
                          "2min or 1h");
        }
    }
}

TEST(Duration, IsDescribedWithThreeDigitsThatCount)
{
    EXPECT_EQ(DescribeDuration(Duration(0)), "0 ns");
    EXPECT_EQ(DescribeDuration(Duration(850)), "850 ns");
    EXPECT_EQ(DescribeDuration(Duration(12345)), "12.3 us");
    EXPECT_EQ(DescribeDuration(Duration(999700)), "1000 us");
    EXPECT_EQ(DescribeDuration(Duration(1250000)), "1.25 ms");
    EXPECT_EQ(DescribeDuration(Duration(2500000000)), "2.5 s");
    EXPECT_EQ(DescribeDuration(Duration(7200000000000)), "7200 s");
}

} // namespace
