#include "MonitorFixture.h"

#include <gmock/gmock.h>

namespace
{

using namespace tarn;
using namespace tarn::test;
using tool::Duration;
using tool::MonitorRow;

class MonitorModelTest : public MonitorFixture
{
protected:
    std::vector<std::string> Titles() const
    {
        std::vector<std::string> titles;
        for (const auto& [key, row] : model.GetRows())
            titles.push_back(row.GetAddresses() + '|' + row.GetRegister() + '|' + row.GetKind());
        return titles;
    }
};

TEST_F(MonitorModelTest, HasARowForEachPlaceAndDirection)
{
    Take("0F840281#20", seconds(0));     // 1 -> 5, register 16, READ request
    Take("0F840281#20", seconds(0));     // the same once more
    Take("0B840281#20", seconds(0));     // the same in a hurry: priority CONTROL
    Take("0F040085#B50459", seconds(0)); // its answer
    Take("0E840281#B50429", seconds(0)); // 1 -> 5, register 16, WRITE request
    Take("0FC40281#2003", seconds(0));   // module 3
    Take("0FC40281#2004", seconds(0));   // module 4
    Take("0D840081#20", seconds(0));     // to group 1
    Take("1ABCDEF0#78563412050220", seconds(0));
    EXPECT_THAT(Titles(),
                testing::ElementsAre("1 -> 5|16 (0x10)|W req", "1 -> 5|16 (0x10)|R req",
                                     "1 -> 5.3|16 (0x10)|R req", "1 -> 5.4|16 (0x10)|R req",
                                     "1 -> g1|16 (0x10)|R req", "5 -> 1|16 (0x10)|R rsp",
                                     "ABCDEF0||CHCP"));
    EXPECT_EQ(Row(1).GetCount(), 3u);
}

TEST_F(MonitorModelTest, CountsMessagesASecondOverFiveSeconds)
{
    for (int at = 0; at < 40; ++at)
        Take("0F840281#20", milliseconds(250 * at)); // 4 a second, for 10 seconds
    EXPECT_FALSE(Row().GetRate(milliseconds(999)));
    EXPECT_DOUBLE_EQ(Row().GetRate(milliseconds(9750)).value(), 4);
    EXPECT_DOUBLE_EQ(Row().GetRate(seconds(12)).value(), 2.4); // 12 in the last 5
    EXPECT_DOUBLE_EQ(Row().GetRate(seconds(15)).value(), 0);
    EXPECT_EQ(Row().GetCount(), 40u);
    EXPECT_EQ(Row().GetAge(seconds(10)), Duration(milliseconds(250)));
}

TEST_F(MonitorModelTest, KeepsTheLastMinute)
{
    Take("0F040085#B50459", seconds(10)); // 1205
    Take("0F040085#0A0059", milliseconds(10500));
    Take("0F040085#0B0059", seconds(70));
    EXPECT_TRUE(Row().HasNumber());
    EXPECT_EQ(Row().GetSecond(seconds(70), 60).count, 2u);
    EXPECT_EQ(Row().GetSecond(seconds(70), 60).number, 10);
    EXPECT_EQ(Row().GetSecond(seconds(70), 59).count, 0u);
    EXPECT_EQ(Row().GetSecond(seconds(70), 0).number, 11);
    Take("0F040085#0C0059", std::chrono::hours(30));
    EXPECT_EQ(Row().GetSecond(std::chrono::hours(30), 0).number, 12);
    EXPECT_EQ(Row().GetSecond(std::chrono::hours(30), 1).count, 0u);
}

TEST_F(MonitorModelTest, KnowsWhatIsNewForASecond)
{
    Take("0F044089#003000C050", seconds(0)); // S16F0 1.5 -2, OPERATING
    EXPECT_TRUE(Row().IsStatusNew(milliseconds(999)));
    EXPECT_FALSE(Row().IsStatusNew(seconds(1)));
    Take("0F044089#003000B050", seconds(10)); // 1.5 -2.5
    EXPECT_FALSE(Row().IsValueNew(0, seconds(10)));
    EXPECT_TRUE(Row().IsValueNew(1, milliseconds(10999)));
    EXPECT_FALSE(Row().IsValueNew(1, seconds(11)));
    EXPECT_FALSE(Row().IsStatusNew(seconds(10)));
    Take("0F044089#003000B070", seconds(20)); // OPERATING WITH FAILURE
    EXPECT_TRUE(Row().IsStatusNew(seconds(20)));
    EXPECT_FALSE(Row().IsValueNew(1, seconds(20)));
    Take("0F044089#003070", seconds(30)); // one value instead of two
    EXPECT_TRUE(Row().IsValueNew(0, seconds(30)));
}

TEST_F(MonitorModelTest, ANumberThatIsNoneDoesNotChangeAllTheTime)
{
    Take("0F044089#0000C07F5D", seconds(0)); // FLOAT nan
    Take("0F044089#0000C07F5D", seconds(5));
    EXPECT_FALSE(Row().IsValueNew(0, seconds(5)));
    EXPECT_EQ(Row().GetChanges().size(), 1u);
}

TEST_F(MonitorModelTest, KeepsTheLastHundredChanges)
{
    Take("0F040085#000059", seconds(0));
    Take("0F040085#000059", seconds(1));
    Take("0F040085#010059", seconds(2));
    Take("0F040085#010079", seconds(3));
    EXPECT_EQ(Row().GetChanges().size(), 3u);
    EXPECT_EQ(Row().GetChanges().front().ToString(), "0F040085#010079");
    for (int at = 0; at < 300; ++at)
        Take(at % 2 == 0 ? "0F040085#020059" : "0F040085#030059", seconds(4));
    EXPECT_EQ(Row().GetChanges().size(), 100u);
    EXPECT_EQ(Row().GetCount(), 304u);
}

TEST_F(MonitorModelTest, CountsWhatIsNoMessageAndWhatFindsNoRoom)
{
    model = tool::MonitorModel(filter, nullptr, 2);
    Take("0F840281#20", seconds(0));
    Take("0F840381#20", seconds(0));
    Take("0F840481#20", seconds(0)); // a third row
    Take("0F840281#20", seconds(0));
    Take("123#20", seconds(0));
    Take("0F840281#R", seconds(0));
    Take("20000040#0000000000000000", seconds(0));
    Take("0F840281#", seconds(0)); // no status byte
    EXPECT_EQ(model.GetRows().size(), 2u);
    EXPECT_EQ(model.CountWithoutRow(), 1u);
    EXPECT_EQ(model.Summary(), "3 messages in rows, 1 without a row (2 is the most), 4 not Tarn (1 "
                               "11-bit frame, 1 remote request, 1 error frame, 1 too short)");
    model.Clear();
    Take("0F840481#20", seconds(1));
    EXPECT_EQ(model.GetRows().size(), 1u);
    EXPECT_EQ(model.CountInRows(), 4u);
}

TEST_F(MonitorModelTest, AddsUpTheBitsOfTheBus)
{
    // 67 bits and 8 a byte with 29 bits of identifier, 47 and 8 a byte with 11.
    for (int at = 0; at < 100; ++at)
        Take("0FC40281#0102030405063803", milliseconds(at)); // 131
    Take("123#20", milliseconds(100));                       // 55
    Take("20000040#0000000000000000", milliseconds(100));    // an error frame: none
    EXPECT_FALSE(model.GetTraffic().GetRates(milliseconds(999)));
    EXPECT_DOUBLE_EQ(model.GetTraffic().GetRates(seconds(1))->bits, 13155);
    EXPECT_DOUBLE_EQ(model.GetTraffic().GetRates(seconds(1))->frames, 102);
    EXPECT_DOUBLE_EQ(model.GetTraffic().GetRates(seconds(5))->bits, 2631);
    EXPECT_DOUBLE_EQ(model.GetTraffic().GetRates(seconds(6))->bits, 0);
    EXPECT_EQ(model.GetTraffic().GetPeak(seconds(60)).bits, 13155u);
    EXPECT_EQ(model.GetTraffic().GetPeak(seconds(61)).bits, 0u);
}

TEST_F(MonitorModelTest, KeepsTheErrorCountersThatAFrameTold)
{
    Take("20000204#0008000000008001", seconds(0)); // with counters
    Take("20000040#0000000000000000", seconds(1)); // bus-off, without
    EXPECT_EQ(model.GetTraffic().CountErrors(), 2u);
    EXPECT_EQ(model.GetTraffic().GetErrorCounters()->transmit, 128u);
    EXPECT_EQ(model.GetTraffic().GetErrorCounters()->receive, 1u);
    for (int at = 0; at < 100; ++at)
        Take("20000040#0000000000000000", seconds(2));
    EXPECT_EQ(model.GetTraffic().GetErrors().size(), 50u);
}

TEST_F(MonitorModelTest, ACopyStandsStill)
{
    Take("0F040085#000059", seconds(0));
    const tool::MonitorModel copy = model;
    Take("0F040085#010059", seconds(1));
    EXPECT_EQ(copy.GetRows().begin()->second.GetCount(), 1u);
    EXPECT_EQ(copy.GetTraffic().CountFrames(), 1u);
}

} // namespace
