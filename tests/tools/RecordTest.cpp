#include "Failure.h"
#include "RotatingLog.h"
#include "Tarn.h"
#include "VerbRun.h"
#include "support/TemporaryFolder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sstream>

namespace
{

using namespace tarn;
using namespace tarn::test;
using namespace tarn::tool;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::MatchesRegex;

std::string Content(const std::string& path)
{
    std::ifstream file(path);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

std::vector<std::string> FilesIn(const std::string& folder)
{
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(folder))
        names.push_back(entry.path().filename());
    std::sort(names.begin(), names.end());
    return names;
}

/// An entry of 43 characters: "(1609779922.000001) can0 0F800001#11223344\n".
CandumpLine Entry()
{
    const std::string text = "(1609779922.000001) can0 0F800001#11223344";
    CandumpLine entry;
    EXPECT_TRUE(ParseCandumpLine(text.data(), text.size(), entry));
    return entry;
}

class Rotation : public testing::Test
{
protected:
    void Write(RotatingLog& log, int count)
    {
        for (int i = 0; i < count; ++i)
            log.Write(Entry(), mNow);
    }

    const TemporaryFolder mFolder;
    const std::string mPath = mFolder.PathOf("drive.log");
    RotatingLog::Clock::time_point mNow{std::chrono::hours(5)};
    RotatingLog::Limits mLimits;
};

TEST_F(Rotation, WithoutLimitsThereIsOneFile)
{
    RotatingLog log(mPath, mLimits, mNow);
    Write(log, 3);
    log.Close();
    EXPECT_THAT(FilesIn(mFolder.PathOf("")), ElementsAre("drive.log"));
    const std::string line = "(1609779922.000001) can0 0F800001#11223344\n";
    EXPECT_EQ(Content(mPath), line + line + line);
    EXPECT_EQ(log.CountBytes(), 129u);
}

TEST_F(Rotation, NoFileGrowsBeyondTheSize)
{
    mLimits.bytes = 86;
    RotatingLog log(mPath, mLimits, mNow);
    Write(log, 5);
    log.Close();
    EXPECT_THAT(FilesIn(mFolder.PathOf("")),
                ElementsAre("drive.0001.log", "drive.0002.log", "drive.0003.log"));
    EXPECT_EQ(std::filesystem::file_size(mFolder.PathOf("drive.0001.log")), 86u);
    EXPECT_EQ(std::filesystem::file_size(mFolder.PathOf("drive.0003.log")), 43u);
    EXPECT_EQ(log.CountFiles(), 3u);
}

TEST_F(Rotation, ASizeTooSmallForAFrameStillTakesOne)
{
    mLimits.bytes = 1;
    RotatingLog log(mPath, mLimits, mNow);
    Write(log, 2);
    log.Close();
    EXPECT_EQ(std::filesystem::file_size(mFolder.PathOf("drive.0002.log")), 43u);
}

TEST_F(Rotation, PcapFilesAreMeasuredToo)
{
    // 24 bytes ahead of all packets, 32 a packet.
    mLimits.bytes = 90;
    RotatingLog log(mFolder.PathOf("drive.pcap"), mLimits, mNow);
    Write(log, 3);
    log.Close();
    EXPECT_THAT(FilesIn(mFolder.PathOf("")), ElementsAre("drive.0001.pcap", "drive.0002.pcap"));
    EXPECT_EQ(std::filesystem::file_size(mFolder.PathOf("drive.0001.pcap")), 88u);
    EXPECT_EQ(std::filesystem::file_size(mFolder.PathOf("drive.0002.pcap")), 56u);
}

TEST_F(Rotation, AFileEndsAfterItsTime)
{
    mLimits.time = std::chrono::seconds(10);
    RotatingLog log(mPath, mLimits, mNow);
    Write(log, 1);
    mNow += std::chrono::milliseconds(9999);
    Write(log, 1);
    mNow += std::chrono::milliseconds(1);
    Write(log, 1);
    log.Close();
    EXPECT_EQ(std::filesystem::file_size(mFolder.PathOf("drive.0001.log")), 86u);
    EXPECT_EQ(std::filesystem::file_size(mFolder.PathOf("drive.0002.log")), 43u);
}

TEST_F(Rotation, TheOldestFilesGo)
{
    mLimits.bytes = 43;
    mLimits.files = 2;
    RotatingLog log(mPath, mLimits, mNow);
    Write(log, 4);
    log.Close();
    EXPECT_THAT(FilesIn(mFolder.PathOf("")), ElementsAre("drive.0003.log", "drive.0004.log"));
}

TEST_F(Rotation, AFileThatIsThereIsKept)
{
    std::ofstream(mPath) << "precious";
    EXPECT_THROW(RotatingLog(mPath, mLimits, mNow), Failure);
    EXPECT_EQ(Content(mPath), "precious");
    mLimits.overwrite = true;
    RotatingLog(mPath, mLimits, mNow).Close();
    EXPECT_EQ(Content(mPath), "");
}

TEST(ByteCount, IsReadWithItsUnit)
{
    EXPECT_EQ(ParseByteCount("--size", "500"), 500u);
    EXPECT_EQ(ParseByteCount("--size", "500k"), 500000u);
    EXPECT_EQ(ParseByteCount("--size", "10M"), 10000000u);
    EXPECT_EQ(ParseByteCount("--size", "2G"), 2000000000u);
    for (const char* const text : {"", "0", "k", "-1", "1.5M", "10MB", "99999999999999999G"})
        EXPECT_THROW(ParseByteCount("--size", text), Failure) << text;
}

TEST(Record, WritesWhatTheBusBringsInTheFormOfTheEnding)
{
    const TemporaryFolder folder;
    const std::string bus = "log:examples/logs/startup.log?speed=max";
    const auto text = Tarn({"record", "-b", bus, folder.PathOf("a.log")});
    EXPECT_EQ(text.exitStatus, 0);
    EXPECT_EQ(text.err, "tarn record: 20 frames in 1 file; " + bus +
                            ": 20 received, 0 dropped by the kernel\n");
    EXPECT_EQ(Tarn({"record", "-q", "-b", bus, folder.PathOf("a.pcap")}).exitStatus, 0);
    const std::string expected = Tarn({"decode", "-q", "--json", "examples/logs/startup.pcap"}).out;
    EXPECT_NE(expected, "");
    EXPECT_EQ(Tarn({"decode", "-q", "--json", folder.PathOf("a.pcap")}).out, expected);
    EXPECT_EQ(Tarn({"decode", "-q", "--time", "none", folder.PathOf("a.log")}).out,
              Tarn({"decode", "-q", "--time", "none", "examples/logs/startup.log"}).out);
}

TEST(Record, NamesTheInterfaceAndEndsAtTheCount)
{
    const TemporaryFolder folder;
    Partner partner("record-count");
    VerbRun record({"record", "-b", "virtual:record-count", "-n", "3", folder.PathOf("a.log")});
    partner.AwaitListener();
    partner.Send(0x0F800001, {0x20});
    partner.Send(0x0F800481, {0x64, 0x00, 0x29});
    partner.Send(0x0F800002, {0x20});
    EXPECT_EQ(record.Wait(), 0);
    // The first is the remote request that found out whether somebody listens.
    EXPECT_THAT(Content(folder.PathOf("a.log")),
                MatchesRegex("\\([0-9]{10}\\.[0-9]{6}\\) record-count 000#R\n"
                             "\\([0-9]{10}\\.[0-9]{6}\\) record-count 0F800001#20\n"
                             "\\([0-9]{10}\\.[0-9]{6}\\) record-count 0F800481#640029\n"));
}

TEST(Record, RefusesWhatCannotBe)
{
    const auto keep = Tarn({"record", "-b", "virtual:x", "--keep", "2", "a.log"});
    EXPECT_EQ(keep.exitStatus, 2);
    EXPECT_EQ(keep.err, "tarn record: --keep: goes with --size or --time; add one of them\n");
    const auto folder = Tarn({"record", "-b", "virtual:x", "/nowhere/a.log"});
    EXPECT_EQ(folder.exitStatus, 1);
    EXPECT_THAT(folder.err, HasSubstr("/nowhere/a.log"));
    EXPECT_EQ(Tarn({"record", "-b", "virtual:x"}).exitStatus, 2);
}

TEST(Record, ADiskThatIsFullIsTold)
{
    const auto result =
        Tarn({"record", "-b", "log:examples/logs/startup.log?speed=max", "--force", "/dev/full"});
    EXPECT_EQ(result.exitStatus, 1);
    EXPECT_THAT(result.err, HasSubstr("No space left on device"));
}

} // namespace
