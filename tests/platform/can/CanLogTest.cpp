#include "support/CaseName.h"
#include "support/TemporaryFolder.h"

#include <plexa_can/CanException.h>
#include <plexa_can/CanLogReader.h>
#include <plexa_can/CanLogWriter.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <fcntl.h>
#include <ostream>
#include <string>
#include <string_view>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace
{

using namespace tarn;
using std::string_view_literals::operator""sv;
using tarn::test::TemporaryFolder;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

// Little-endian pcap: version 2.4, time zone 0, accuracy 0, room for 262144 bytes, link type.
constexpr std::string_view MICROSECOND_HEADER =
    "\xD4\xC3\xB2\xA1\x02\x00\x04\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x04\x00"sv;
constexpr std::string_view NANOSECOND_HEADER =
    "\x4D\x3C\xB2\xA1\x02\x00\x04\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x04\x00"sv;
constexpr std::string_view SOCKET_CAN = "\xE3\x00\x00\x00"sv;
constexpr std::string_view COOKED = "\x71\x00\x00\x00"sv;
constexpr std::string_view ETHERNET = "\x01\x00\x00\x00"sv;

/// 1609779922 s, 655421 of the fraction's unit.
std::string Packet(std::string_view bytes)
{
    const char size = static_cast<char>(bytes.size());
    std::string packet("\xD2\x4A\xF3\x5F\x3D\x00\x0A\x00"sv);
    for (int twice = 0; twice < 2; ++twice)
        packet += std::string{size, 0, 0, 0};
    return packet.append(bytes);
}

std::string Pcap(const std::vector<std::string_view>& packets,
                 std::string_view header = MICROSECOND_HEADER,
                 std::string_view linkType = SOCKET_CAN)
{
    std::string file = std::string(header).append(linkType);
    for (const std::string_view packet : packets)
        file += Packet(packet);
    return file;
}

constexpr std::string_view EXTENDED =
    "\x8F\x80\x00\x01\x01\x00\x00\x00\x20\x00\x00\x00\x00\x00\x00\x00"sv;
constexpr std::string_view STANDARD =
    "\x00\x00\x07\xFF\x08\x00\x00\x00\x01\x02\x03\x04\x05\x06\x07\x08"sv;

std::string Text(CanLogReader& reader)
{
    std::string text;
    for (CandumpLine entry; reader.NextFrame(entry);)
        text += entry.frame.ToString() + ' ';
    return text;
}

std::string FailureOf(const std::function<void()>& action, int* code = nullptr)
{
    try {
        action();
    } catch (const CanException& failure) {
        if (code != nullptr)
            *code = failure.code();
        return failure.message();
    }
    return "no exception";
}

class CanLog : public testing::Test
{
protected:
    /// The only entry of a log.
    CandumpLine Only(const std::string& content) const
    {
        CanLogReader reader(mFolder.File("only", content));
        CandumpLine entry;
        EXPECT_TRUE(reader.Next(entry));
        CandumpLine other;
        EXPECT_FALSE(reader.Next(other));
        return entry;
    }

    void Copy(const std::string& from, const std::string& to) const
    {
        CanLogReader reader(mFolder.PathOf(from));
        CanLogWriter writer(mFolder.PathOf(to));
        for (CandumpLine entry; reader.NextFrame(entry);)
            writer.Write(entry);
        writer.Close();
    }

    const TemporaryFolder mFolder;
};

constexpr const char* LINES = "(1609779922.655421) can0 0F800001#20\n"
                              "(1609779922.655422) vcan10 7FF# R\n"
                              "(1609779923.000000) can0 123#0011223344556677 T\n"
                              "(1609779924.000000) can1 0F844481#R\n"
                              "(1609779925.999999) can1 20000004#0008000000006000\n"
                              "(0000000001.000000001) abcdefghijklmno 1FFFFFFF#FF\n"
                              "(4294967295.9) can0 000#\n";

TEST_F(CanLog, WritesEveryLineOfCandumpAsItWasRead)
{
    mFolder.File("a.log", LINES);
    Copy("a.log", "b.log");
    EXPECT_EQ(mFolder.ContentOf("b.log"), LINES);
}

TEST_F(CanLog, CountsWhatIsNoClassicalFrame)
{
    CanLogReader reader(mFolder.File("a.log", "# remark\n\n123#\n123##1AA\n123#R\nrubbish\n456#"));
    EXPECT_EQ(Text(reader), "123# 123#R 456# ");
    EXPECT_EQ(reader.GetForm(), CAN_LOG_CANDUMP);
    EXPECT_EQ(reader.GetCounters().frames, 3u);
    EXPECT_EQ(reader.GetCounters().fdFrames, 1u);
    EXPECT_EQ(reader.GetCounters().comments, 2u);
    EXPECT_EQ(reader.GetCounters().malformed, 1u);
    EXPECT_EQ(reader.GetNumber(), 7u);
}

TEST_F(CanLog, RefusesALineLongerThanItsMemoryAndGoesOn)
{
    CanLogReader reader(mFolder.File("a.log", "123#" + std::string(600000, '0') + "\n456#\n"));
    CandumpLine entry;
    ASSERT_TRUE(reader.Next(entry));
    EXPECT_STREQ(entry.reason, "line of more than 262144 bytes");
    EXPECT_EQ(Text(reader), "456# ");
}

TEST_F(CanLog, ReadsThePacketsOfPcap)
{
    CanLogReader reader(mFolder.File("a", Pcap({EXTENDED, STANDARD})));
    CandumpLine entry;
    ASSERT_TRUE(reader.Next(entry));
    EXPECT_EQ(reader.GetForm(), CAN_LOG_PCAP);
    EXPECT_EQ(entry.frame.ToString(), "0F800001#20");
    EXPECT_EQ(entry.frame.GetTimeStamp(), 1609779922655421000u);
    EXPECT_EQ(entry.timeForm, CandumpLine::TIME_ABSOLUTE);
    EXPECT_EQ(entry.timeDecimals, 6u);
    EXPECT_STREQ(entry.interfaceName, "");
    EXPECT_EQ(entry.direction, CandumpLine::DIRECTION_UNKNOWN);
    ASSERT_TRUE(reader.Next(entry));
    EXPECT_EQ(entry.frame.ToString(), "7FF#0102030405060708");
    EXPECT_EQ(reader.GetNumber(), 2u);
    EXPECT_EQ(reader.GetText(), "7FF#0102030405060708");
    EXPECT_FALSE(reader.Next(entry));
}

TEST_F(CanLog, ReadsNanosecondsAndTheOtherByteOrder)
{
    const CandumpLine fine = Only(Pcap({EXTENDED}, NANOSECOND_HEADER));
    EXPECT_EQ(fine.frame.GetTimeStamp(), 1609779922000655421u);
    EXPECT_EQ(fine.timeDecimals, 9u);
    const std::string bigEndian(
        "\xA1\xB2\xC3\xD4\x00\x02\x00\x04\x00\x00\x00\x00\x00\x00\x00\x00\x00\x04\x00\x00"
        "\x00\x00\x00\xE3"
        "\x5F\xF3\x4A\xD2\x00\x0A\x00\x3D\x00\x00\x00\x10\x00\x00\x00\x10"sv);
    const CandumpLine swapped = Only(std::string(bigEndian).append(EXTENDED));
    EXPECT_EQ(swapped.frame.GetTimeStamp(), 1609779922655421000u);
    EXPECT_EQ(swapped.frame.ToString(), "0F800001#20");
}

TEST_F(CanLog, ReadsPcapNg)
{
    const std::string section("\x0A\x0D\x0D\x0A\x1C\x00\x00\x00\x4D\x3C\x2B\x1A\x01\x00\x00\x00"
                              "\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF\x1C\x00\x00\x00"sv);
    const std::string interface("\x01\x00\x00\x00\x14\x00\x00\x00\xE3\x00\x00\x00\x00\x00\x04\x00"
                                "\x14\x00\x00\x00"sv);
    // Microseconds since 1970, the upper half first.
    const unsigned long long time = 1609779922655421u;
    std::string packet("\x06\x00\x00\x00\x30\x00\x00\x00\x00\x00\x00\x00"sv);
    for (const unsigned int shift : {32u, 40u, 48u, 56u, 0u, 8u, 16u, 24u})
        packet += static_cast<char>(time >> shift);
    packet += std::string("\x10\x00\x00\x00\x10\x00\x00\x00"sv).append(EXTENDED);
    packet += "\x30\x00\x00\x00"sv;
    const CandumpLine entry = Only(section + interface + packet);
    EXPECT_EQ(entry.frame.ToString(), "0F800001#20");
    EXPECT_EQ(entry.frame.GetTimeStamp(), 1609779922655421000u);
}

struct PacketCase {
    const char* name;
    std::string_view bytes;
    const char* result; ///< the frame, "FD", "comment" or the reason
};

void PrintTo(const PacketCase& row, std::ostream* out)
{
    *out << row.name;
}

std::string ResultOf(const CandumpLine& entry)
{
    switch (entry.kind) {
    case CandumpLine::KIND_FRAME:
        return entry.frame.ToString();
    case CandumpLine::KIND_FD_FRAME:
        return "FD";
    case CandumpLine::KIND_COMMENT:
        return "comment";
    default:
        return entry.reason;
    }
}

class PacketOf : public CanLog, public testing::WithParamInterface<PacketCase>
{
};

class SocketCanPacket : public PacketOf
{
};

TEST_P(SocketCanPacket, IsReadAs)
{
    EXPECT_EQ(ResultOf(Only(Pcap({GetParam().bytes}))), GetParam().result);
}

constexpr std::string_view FD_OF_8 =
    "\x8F\x80\x00\x01\x08\x04\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00"
    "\x00"
    "\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00"
    "\x00"
    "\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00"sv;

INSTANTIATE_TEST_SUITE_P(
    Pcap, SocketCanPacket,
    testing::Values(
        PacketCase{"ShortPacket", "\x8F\x80\x00\x01\x03\x00\x00\x00\x14\xF0\x01"sv,
                   "0F800001#14F001"},
        PacketCase{"NoData", "\x00\x00\x01\x23\x00\x00\x00\x00"sv, "123#"},
        PacketCase{"Remote", "\xC0\x00\x00\x01\x08\x00\x00\x00"sv, "00000001#R"},
        PacketCase{"RemoteStandard", "\x40\x00\x01\x23\x00\x00\x00\x00"sv, "123#R"},
        PacketCase{"Error", "\x20\x00\x00\x04\x02\x00\x00\x00\x00\x08"sv, "20000004#0008"},
        PacketCase{"StrayFlagsOfAClassicalFrame",
                   "\x8F\x80\x00\x01\x01\x2D\x92\x04\x20\x00\x00\x00\x00\x00\x00\x00"sv,
                   "0F800001#20"},
        PacketCase{"StrayFlagsOfAShortPacket", "\x8F\x80\x00\x01\x01\x2D\x92\x04\x20"sv,
                   "0F800001#20"},
        PacketCase{
            "FlexibleByLength",
            "\x8F\x80\x00\x01\x0C\x00\x00\x00\x00\x01\x02\x03\x04\x05\x06\x07\x08\x09\x0A\x0B"sv,
            "FD"},
        PacketCase{"FlexibleBySize", FD_OF_8, "FD"},
        PacketCase{"ExtraLong", "\x00\x00\x01\x23\x80\x00\x00\x00\x00\x00\x00\x00"sv,
                   "CAN XL frame"},
        PacketCase{"StandardOutOfRange", "\x00\x00\x08\x00\x00\x00\x00\x00"sv,
                   "identifier is out of range"},
        PacketCase{"NoHeader", "\x00\x00\x01\x23\x00\x00\x00"sv,
                   "fewer bytes than the header of a frame"},
        PacketCase{"Nothing", ""sv, "fewer bytes than the header of a frame"},
        PacketCase{"DataCut", "\x00\x00\x01\x23\x02\x00\x00\x00\x11"sv,
                   "fewer data bytes than the length says"}),
    support::CaseName());

class CookedPacket : public PacketOf
{
};

// Type, address type 280, address length and address, protocol; then the identifier in the byte
// order of the machine that captured.
TEST_P(CookedPacket, IsReadAs)
{
    const CandumpLine entry = Only(Pcap({GetParam().bytes}, MICROSECOND_HEADER, COOKED));
    EXPECT_EQ(ResultOf(entry), GetParam().result);
}

INSTANTIATE_TEST_SUITE_P(
    Pcap, CookedPacket,
    testing::Values(
        PacketCase{"Frame",
                   "\x00\x01\x01\x18\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x0C"
                   "\x01\x00\x80\x8F\x01\x00\x00\x00\x20\x00\x00\x00\x00\x00\x00\x00"sv,
                   "0F800001#20"},
        PacketCase{"Flexible",
                   "\x00\x01\x01\x18\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x0D"
                   "\x01\x00\x80\x8F\x01\x00\x00\x00\x20"sv,
                   "FD"},
        PacketCase{"OtherProtocol",
                   "\x00\x00\x00\x01\x00\x06\x00\x00\x00\x00\x00\x00\x00\x00\x08\x00\x45"sv,
                   "comment"},
        PacketCase{"NoFrame",
                   "\x00\x01\x01\x18\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x0C\x01"sv,
                   "fewer bytes than the header of a frame"},
        PacketCase{"NoHeader", "\x00\x01\x01\x18"sv, "fewer bytes than the header of LINUX_SLL"}),
    support::CaseName());

TEST_F(CanLog, TellsTheDirectionOfCookedPackets)
{
    const auto direction = [this](std::string_view type) {
        const std::string packet =
            std::string(type) +
            std::string("\x01\x18\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x0C"
                        "\x01\x00\x00\x00\x00\x00\x00\x00"sv);
        return Only(Pcap({packet}, MICROSECOND_HEADER, COOKED)).direction;
    };
    EXPECT_EQ(direction("\x00\x01"sv), CandumpLine::DIRECTION_RECEIVED);
    EXPECT_EQ(direction("\x00\x04"sv), CandumpLine::DIRECTION_SENT);
}

// In the byte order of the machine, as everybody does.
TEST_F(CanLog, WritesPcapByteByByte)
{
    CanLogWriter writer(mFolder.PathOf("a.pcap"));
    CandumpLine entry;
    const std::string line = "(1609779922.000655421) can0 0F800001#20";
    ASSERT_TRUE(ParseCandumpLine(line.data(), line.size(), entry));
    writer.Write(entry);
    writer.Close();
    EXPECT_EQ(writer.GetForm(), CAN_LOG_PCAP);
#if __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
    const std::string heads("\x4D\x3C\xB2\xA1\x02\x00\x04\x00\x00\x00\x00\x00\x00\x00\x00\x00\x10"
                            "\x00\x00\x00\xE3\x00\x00\x00"
                            "\xD2\x4A\xF3\x5F\x3D\x00\x0A\x00\x10\x00\x00\x00\x10\x00\x00\x00"sv);
#else
    const std::string heads("\xA1\xB2\x3C\x4D\x00\x02\x00\x04\x00\x00\x00\x00\x00\x00\x00\x00\x00"
                            "\x00\x00\x10\x00\x00\x00\xE3"
                            "\x5F\xF3\x4A\xD2\x00\x0A\x00\x3D\x00\x00\x00\x10\x00\x00\x00\x10"sv);
#endif
    EXPECT_EQ(mFolder.ContentOf("a.pcap"), heads + std::string(EXTENDED));
}

TEST_F(CanLog, KeepsFramesAndTimesOnTheWayThroughPcap)
{
    mFolder.File("a.log", LINES);
    Copy("a.log", "b.pcap");
    Copy("b.pcap", "c.pcap");
    Copy("c.pcap", "d.log");
    EXPECT_EQ(mFolder.ContentOf("d.log"), ("(1609779922.655421000) can0 0F800001#20\n"
                                           "(1609779922.655422000) can0 7FF#\n"
                                           "(1609779923.000000000) can0 123#0011223344556677\n"
                                           "(1609779924.000000000) can0 0F844481#R\n"
                                           "(1609779925.999999000) can0 20000004#0008000000006000\n"
                                           "(0000000001.000000001) can0 1FFFFFFF#FF\n"
                                           "(4294967295.900000000) can0 000#\n"));
    EXPECT_EQ(mFolder.ContentOf("b.pcap"), mFolder.ContentOf("c.pcap"));
}

TEST_F(CanLog, RefusesATimeThatPcapCannotHold)
{
    CanLogWriter writer(mFolder.PathOf("a.pcap"));
    CanMessage frame;
    frame.SetTimeStamp(4294967296000000000u);
    EXPECT_THAT(FailureOf([&] { writer.Write(frame); }), HasSubstr("after the year 2106"));
    EXPECT_EQ(writer.GetFrames(), 0u);
}

TEST_F(CanLog, WritesFramesThatNameNoInterface)
{
    CanLogWriter::Options options;
    options.interfaceName = "vcan3";
    CanLogWriter writer(mFolder.PathOf("a.log"), options);
    CanMessage frame;
    frame.SetHeader(0x123);
    frame.SetTimeStamp(1609779922655421999u);
    writer.Write(frame);
    EXPECT_EQ(writer.GetFrames(), 1u);
    writer.Close();
    writer.Close();
    EXPECT_EQ(mFolder.ContentOf("a.log"), "(1609779922.655421) vcan3 123#\n");
    EXPECT_THAT(FailureOf([&] { writer.Write(frame); }), HasSubstr("the log is closed"));
}

TEST_F(CanLog, HandsOverEveryFrameAtOnceWhereAsked)
{
    CanLogWriter::Options options;
    options.flush = CanLogWriter::FLUSH_EVERY_FRAME;
    CanLogWriter prompt(mFolder.PathOf("a.log"), options);
    CanLogWriter late(mFolder.PathOf("b.log"));
    prompt.Write(CanMessage());
    late.Write(CanMessage());
    EXPECT_EQ(mFolder.ContentOf("a.log"), "(0000000000.000000) can0 000#\n");
    EXPECT_EQ(mFolder.ContentOf("b.log"), "");
    late.Flush();
    EXPECT_EQ(mFolder.ContentOf("b.log"), "(0000000000.000000) can0 000#\n");
}

class FullDisk : public CanLog, public testing::WithParamInterface<const char*>
{
protected:
    /// A file that takes nothing, under a name of our choice.
    std::string Full() const
    {
        const std::string path = mFolder.PathOf(GetParam());
        EXPECT_EQ(::symlink("/dev/full", path.c_str()), 0);
        return path;
    }
};

TEST_P(FullDisk, IsToldByTheCallThatMeetsIt)
{
    CanLogWriter::Options options;
    options.flush = CanLogWriter::FLUSH_EVERY_FRAME;
    CanLogWriter writer(Full(), options);
    int code = 0;
    EXPECT_THAT(
        FailureOf([&] { writer.Write(CanMessage()); }, &code),
        EndsWith(": cannot write: No space left on device; the log is incomplete, make room "
                 "and begin another"));
    EXPECT_EQ(code, ENOSPC);
    EXPECT_THAT(FailureOf([&] { writer.Write(CanMessage()); }), HasSubstr("No space left"));
}

TEST_P(FullDisk, IsToldWhenTheBufferIsFullOrClosed)
{
    CanLogWriter writer(Full());
    EXPECT_THAT(FailureOf([&] {
                    for (int frame = 0; frame < 100000; ++frame)
                        writer.Write(CanMessage());
                }),
                HasSubstr("No space left on device"));
    EXPECT_THAT(FailureOf([&] { writer.Close(); }), HasSubstr("No space left on device"));
    CanLogWriter small(mFolder.PathOf(GetParam()));
    small.Write(CanMessage());
    EXPECT_THAT(FailureOf([&] { small.Close(); }), HasSubstr("No space left on device"));
}

INSTANTIATE_TEST_SUITE_P(CanLog, FullDisk, testing::Values("full.log", "full.pcap"),
                         [](const auto& test) {
                             return std::string(test.param) == "full.log" ? "Candump" : "Pcap";
                         });

TEST_F(CanLog, NamesWhatCannotBeWritten)
{
    EXPECT_EQ(FailureOf([] { CanLogWriter("/nowhere/a.log"); }),
              "/nowhere/a.log: cannot create: No such file or directory; give a path in a folder "
              "that can be written");
    CanLogWriter::Options options;
    options.interfaceName = "can 0";
    EXPECT_THAT(FailureOf([&] { CanLogWriter(mFolder.PathOf("a.log"), options); }),
                HasSubstr("'can 0' is no interface name for a log"));
    CanLogWriter writer(mFolder.PathOf("a.log"));
    CandumpLine flexible;
    flexible.kind = CandumpLine::KIND_FD_FRAME;
    EXPECT_THAT(FailureOf([&] { writer.Write(flexible); }), HasSubstr("classical CAN frames only"));
}

TEST_F(CanLog, NamesFilesThatCannotBeRead)
{
    EXPECT_EQ(FailureOf([] { CanLogReader("/nowhere.log"); }),
              "/nowhere.log: cannot open: No such file or directory; give the path of a log, or - "
              "for standard input");
    EXPECT_EQ(FailureOf([] { CanLogReader("/"); }),
              "/: cannot read: Is a directory; give the path of a log, or - for standard input");
    const std::string other = mFolder.File("a", Pcap({}, MICROSECOND_HEADER, ETHERNET));
    EXPECT_EQ(FailureOf([&] { CanLogReader reader(other); }),
              other + ": link type EN10MB carries no CAN frames; capture on a CAN interface (link "
                      "type CAN_SOCKETCAN) or on all interfaces (LINUX_SLL)");
}

TEST_F(CanLog, TakesAnEmptyFileForALogWithoutFrames)
{
    CanLogReader reader(mFolder.File("a", ""));
    CandumpLine entry;
    EXPECT_FALSE(reader.Next(entry));
    EXPECT_FALSE(reader.Next(entry));
}

/// Reads to the end or the failure: the frames, then what was wrong.
std::string Outcome(const std::string& path)
{
    std::string outcome;
    const std::string failure = FailureOf([&] {
        CanLogReader reader(path);
        CandumpLine entry;
        while (reader.Next(entry))
            outcome += ResultOf(entry) + '\n';
    });
    return outcome + failure;
}

TEST_F(CanLog, GivesTheWholePacketsOfAPcapFileCutAnywhereAndSaysThatItIs)
{
    const std::string whole = Pcap({EXTENDED, STANDARD});
    const std::string first = "0F800001#20\n";
    for (std::size_t size = 4; size < whole.size(); ++size) {
        const std::string path = mFolder.File("cut", whole.substr(0, size));
        const std::string outcome = Outcome(path);
        if (size == 24)
            EXPECT_EQ(outcome, "no exception");
        else if (size == 56)
            EXPECT_EQ(outcome, first + "no exception");
        else
            EXPECT_THAT(outcome, StartsWith((size < 56 ? "" : first) + path +
                                            ": damaged pcap file, behind packet " +
                                            (size < 56 ? "0: truncated" : "1: truncated")))
                << size;
    }
}

TEST_F(CanLog, TakesLessThanTheMarkOfPcapForADamagedLine)
{
    for (std::size_t size = 1; size < 4; ++size)
        EXPECT_EQ(Outcome(mFolder.File("cut", std::string(MICROSECOND_HEADER.substr(0, size)))),
                  "character that no interface name has\nno exception");
}

TEST_F(CanLog, RefusesAPacketOfAbsurdSize)
{
    const std::string path = mFolder.File(
        "a", Pcap({}) +
                 std::string("\xD2\x4A\xF3\x5F\x3D\x00\x0A\x00\xFF\xFF\xFF\x7F\xFF\xFF\xFF\x7F"sv));
    EXPECT_THAT(Outcome(path), StartsWith(path + ": damaged pcap file, behind packet 0: "));
}

TEST_F(CanLog, ReadsFifosOfBothFormsAsTheyAreWritten)
{
    for (const std::string& content : {std::string("0F800001#20\n"), Pcap({EXTENDED})}) {
        const std::string path = mFolder.PathOf("fifo");
        ASSERT_EQ(::mkfifo(path.c_str(), 0600), 0);
        std::thread writer([&] {
            const int descriptor = ::open(path.c_str(), O_WRONLY | O_CLOEXEC);
            for (const char byte : content)
                EXPECT_EQ(::write(descriptor, &byte, 1), 1);
            ::close(descriptor);
        });
        CanLogReader reader(path);
        EXPECT_EQ(Text(reader), "0F800001#20 ");
        writer.join();
        ::unlink(path.c_str());
    }
}

TEST_F(CanLog, EndsWithoutComplaintWhenTheHookStopsIt)
{
    for (const std::string& content : {std::string("0F800001#20\n123"), Pcap({EXTENDED})}) {
        const std::string path = mFolder.File("a", content);
        int blocks = 0;
        CanLogReader atOnce(path, [](int, std::uint64_t) { return false; });
        EXPECT_EQ(Text(atOnce), "");
        CanLogReader later(path, [&](int, std::uint64_t) { return ++blocks == 1; });
        EXPECT_EQ(Text(later), "0F800001#20 ");
        EXPECT_EQ(later.GetBytesRead(), content.size());
    }
}

} // namespace
