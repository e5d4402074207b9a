#include "ProgressBar.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <memory>
#include <string>

namespace
{

using tarn::tool::ProgressBar;
using tarn::tool::RenderProgress;

TEST(ProgressBar, ShowsShareRateAndTimeLeft)
{
    EXPECT_EQ(RenderProgress(50000000, 200000000, 5),
              "[#####---------------]  25 %  10.0 MB/s  0:15 left");
    EXPECT_EQ(RenderProgress(200000000, 200000000, 20),
              "[####################] 100 %  10.0 MB/s  0:00 left");
    EXPECT_EQ(RenderProgress(1000000, 1000000000, 10),
              "[--------------------]   0 %  0.1 MB/s  166:30 left");
}

TEST(ProgressBar, ShowsWhatWasDoneWhereTheTotalIsNotKnown)
{
    EXPECT_EQ(RenderProgress(50000000, 0, 5), "50.0 MB  10.0 MB/s");
}

TEST(ProgressBar, CountsInAnyUnit)
{
    EXPECT_EQ(RenderProgress(50, 200, 5, {1, "requests"}),
              "[#####---------------]  25 %  10.0 requests/s  0:15 left");
}

TEST(ProgressBar, TakesAFileThatGrows)
{
    EXPECT_EQ(RenderProgress(300, 200, 1), "[####################] 100 %  0.0 MB/s  0:00 left");
}

/// What a bar draws.
class Drawing : public testing::Test
{
protected:
    Drawing() : mFile(open_memstream(&mText, &mSize), &std::fclose) {}

    ~Drawing() override
    {
        mFile.reset();
        std::free(mText);
    }

    std::string Text()
    {
        std::fflush(mFile.get());
        return std::string(mText, mSize);
    }

    std::FILE* File() { return mFile.get(); }

private:
    char* mText = nullptr;
    std::size_t mSize = 0;
    std::unique_ptr<std::FILE, int (*)(std::FILE*)> mFile;
};

TEST_F(Drawing, BeginsAfterFiveSecondsAndIsTakenAway)
{
    ProgressBar bar(File());
    bar.Update(1, 10, 4.9);
    bar.Clear();
    EXPECT_EQ(Text(), "");
    bar.Update(5000000, 10000000, 5.0);
    EXPECT_EQ(Text(), "\r\x1b[K[##########----------]  50 %  1.0 MB/s  0:05 left");
    bar.Clear();
    bar.Clear();
    EXPECT_EQ(Text(), "\r\x1b[K[##########----------]  50 %  1.0 MB/s  0:05 left\r\x1b[K");
}

TEST_F(Drawing, IsNotRepeatedForEveryBlock)
{
    ProgressBar bar(File());
    bar.Update(1, 10, 6.0);
    const std::string once = Text();
    bar.Update(2, 10, 6.1);
    EXPECT_EQ(Text(), once);
    bar.Update(3, 10, 6.3);
    EXPECT_NE(Text(), once);
}

} // namespace
