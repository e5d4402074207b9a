#include <plexa_can/CanException.h>
#include <plexa_can/CanLogReader.h>

#include <cstdint>
#include <cstdlib>
#include <string>
#include <sys/mman.h>
#include <unistd.h>

namespace
{

void Require(bool holds)
{
    if (!holds)
        std::abort();
}

void ReadAll(const std::string& path)
{
    tarn::CanLogReader reader(path);
    tarn::CandumpLine entry;
    while (reader.Next(entry)) {
        Require((entry.kind == tarn::CandumpLine::KIND_MALFORMED) == (entry.reason[0] != '\0'));
        Require(entry.frame.GetDataSize() <= tarn::CanMessage::MAX_DATA_SIZE);
        Require(reader.GetForm() == tarn::CAN_LOG_CANDUMP || !reader.GetText().empty() ||
                entry.kind != tarn::CandumpLine::KIND_FRAME);
    }
    const auto& counters = reader.GetCounters();
    Require(reader.GetNumber() ==
            counters.frames + counters.fdFrames + counters.comments + counters.malformed);
}

} // namespace

/// Any file is read to its end or refused with a reason.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static const int file = ::memfd_create("log", MFD_CLOEXEC);
    Require(::ftruncate(file, 0) == 0);
    Require(::pwrite(file, data, size, 0) == static_cast<ssize_t>(size));
    try {
        ReadAll("/proc/self/fd/" + std::to_string(file));
    } catch (const tarn::CanException& refusal) {
        Require(!refusal.message().empty());
    }
    return 0;
}
