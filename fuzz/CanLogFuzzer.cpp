#include "Require.h"

#include <plexa_can/CanException.h>
#include <plexa_can/CanLogReader.h>
#include <plexa_can/CanLogWriter.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <sys/mman.h>
#include <unistd.h>
#include <vector>

// A file that may be a log. It is read to its end or refused with a reason; its frames, written in
// both forms and read again, are the same.

namespace
{

using tarn::CandumpLine;
using tarn::CanLogReader;
using tarn::CanLogWriter;
using Entries = std::vector<CandumpLine>;

/// A file in memory. It has a name that ends as it should.
class File
{
public:
    explicit File(const std::string& name)
        : mDescriptor(::memfd_create("log", MFD_CLOEXEC)),
          mPath(Folder() + '/' + name)
    {
        const std::string target = "/proc/self/fd/" + std::to_string(mDescriptor);
        Require(::symlink(target.c_str(), mPath.c_str()) == 0, "a name for a file");
    }
    ~File()
    {
        ::unlink(mPath.c_str());
        ::rmdir(Folder().c_str());
        ::close(mDescriptor);
    }
    File(const File&) = delete;
    File& operator=(const File&) = delete;

    const std::string& Path() const { return mPath; }

    void Fill(const std::uint8_t* data, std::size_t size) const
    {
        Require(::ftruncate(mDescriptor, 0) == 0, "an empty file");
        Require(::pwrite(mDescriptor, data, size, 0) == static_cast<ssize_t>(size), "a file");
    }

private:
    static const std::string& Folder()
    {
        static char name[] = "/tmp/can_log_fuzzer.XXXXXX";
        static const std::string folder = ::mkdtemp(name);
        return folder;
    }

    const int mDescriptor;
    const std::string mPath;
};

void RequireSound(const CanLogReader& reader, const CandumpLine& entry)
{
    Require((entry.kind == CandumpLine::KIND_MALFORMED) == (entry.reason[0] != '\0'), "reason");
    Require(entry.frame.GetDataSize() <= tarn::CanMessage::MAX_DATA_SIZE, "size of a frame");
    Require(reader.GetForm() == tarn::CAN_LOG_CANDUMP || !reader.GetText().empty() ||
                entry.kind != CandumpLine::KIND_FRAME,
            "text of a packet");
}

/// The frames ahead of any damage.
Entries ReadAll(const std::string& path)
{
    Entries frames;
    try {
        CanLogReader reader(path);
        CandumpLine entry;
        while (reader.Next(entry)) {
            RequireSound(reader, entry);
            if (entry.kind == CandumpLine::KIND_FRAME)
                frames.push_back(entry);
        }
        const auto& counters = reader.GetCounters();
        Require(counters.frames == frames.size(), "frames counted");
        Require(reader.GetNumber() ==
                    counters.frames + counters.fdFrames + counters.comments + counters.malformed,
                "entries counted");
    } catch (const tarn::CanException& refusal) {
        Require(!refusal.message().empty(), "reason of a refusal");
    }
    return frames;
}

void RequireSameFrame(const CandumpLine& one, const CandumpLine& other)
{
    Require(one.frame.ToString() == other.frame.ToString(), "frame written and read");
    Require(one.frame.GetFlags() == other.frame.GetFlags(), "flags written and read");
    Require(one.frame.GetHeader() == other.frame.GetHeader(), "identifier written and read");
}

Entries WrittenAndRead(const Entries& entries, const std::string& path)
{
    CanLogWriter writer(path);
    for (const CandumpLine& entry : entries)
        writer.Write(entry);
    writer.Close();
    Require(writer.GetFrames() == entries.size(), "frames written");
    Entries again = ReadAll(path);
    Require(again.size() == entries.size(), "frames written and read");
    for (std::size_t i = 0; i < again.size(); ++i)
        RequireSameFrame(again[i], entries[i]);
    return again;
}

/// What a time stamp of pcap holds.
Entries UpToTheYear2106(Entries entries)
{
    const auto isLater = [](const CandumpLine& entry) {
        return entry.frame.GetTimeStamp() / 1000000000u > 0xFFFFFFFFu;
    };
    entries.erase(std::remove_if(entries.begin(), entries.end(), isLater), entries.end());
    return entries;
}

/// Lines keep where a frame came from, and the time as exactly as it was told.
void RequireSameLines(const Entries& entries, const Entries& again)
{
    for (std::size_t i = 0; i < again.size(); ++i) {
        const std::string interface = entries[i].interfaceName;
        Require(again[i].interfaceName == (interface.empty() ? "can0" : interface), "interface");
        Require(again[i].direction == entries[i].direction, "direction");
        Require(again[i].frame.GetTimeStamp() == entries[i].frame.GetTimeStamp(), "time");
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static const File input("input");
    static const File lines("lines.log");
    static const File packets("packets.pcap");
    input.Fill(data, size);
    const Entries entries = ReadAll(input.Path());
    RequireSameLines(entries, WrittenAndRead(entries, lines.Path()));
    WrittenAndRead(UpToTheYear2106(entries), packets.Path());
    return 0;
}
