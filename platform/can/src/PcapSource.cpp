#include "PcapSource.h"

#include "SocketCanPacket.h"

#include <plexa_can/CanException.h>
#include <plexa_can/LineReader.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <string_view>

namespace tarn
{

namespace
{

using namespace std::string_view_literals;

constexpr unsigned int MICROSECONDS = 6;
constexpr unsigned int NANOSECONDS = 9;

struct Magic {
    std::string_view bytes;
    unsigned int timeDecimals;
};

// In the byte order of either machine.
constexpr Magic MAGICS[] = {{"\xD4\xC3\xB2\xA1"sv, MICROSECONDS},
                            {"\xA1\xB2\xC3\xD4"sv, MICROSECONDS},
                            {"\x4D\x3C\xB2\xA1"sv, NANOSECONDS},
                            {"\xA1\xB2\x3C\x4D"sv, NANOSECONDS},
                            {"\x0A\x0D\x0D\x0A"sv, NANOSECONDS}};

/// The magic that begins with these bytes, or null.
const Magic* MagicOf(std::string_view beginning)
{
    for (const Magic& magic : MAGICS) {
        if (magic.bytes.substr(0, beginning.size()) == beginning)
            return &magic;
    }
    return nullptr;
}

/// The library takes the 32 bits of the seconds for a signed number, which ends in 2038.
unsigned long long Nanoseconds(const timeval& time)
{
    const auto seconds = time.tv_sec < 0 ? static_cast<std::uint32_t>(time.tv_sec)
                                         : static_cast<unsigned long long>(time.tv_sec);
    return seconds * 1000000000u + static_cast<unsigned long long>(time.tv_usec);
}

std::string Hex(const unsigned char* bytes, std::size_t size)
{
    std::string text;
    for (std::size_t at = 0; at < size; ++at) {
        text += "0123456789ABCDEF"[bytes[at] >> 4];
        text += "0123456789ABCDEF"[bytes[at] & 0xFu];
    }
    return text;
}

} // namespace

bool PcapSource::Recognizes(LineReader& input)
{
    // Byte by byte, so as not to wait behind a short line.
    for (std::size_t size = 1; size <= MAGICS[0].bytes.size(); ++size) {
        const std::string beginning = input.Peek(size);
        if (beginning.size() < size || MagicOf(beginning) == nullptr)
            return false;
    }
    return true;
}

PcapSource::PcapSource(LineReader& input)
    : mInput(input),
      mTimeDecimals(MagicOf(input.Peek(MAGICS[0].bytes.size()))->timeDecimals)
{
    Open();
    if (mFile != nullptr)
        RequireCan();
}

void PcapSource::Open()
{
    std::FILE* const stream = ::fopencookie(this, "r", {ReadFrom, nullptr, nullptr, nullptr});
    if (stream == nullptr)
        throw CanException(mInput.GetName() + ": cannot open: out of memory", ENOMEM);
    std::array<char, PCAP_ERRBUF_SIZE> error = {};
    mFile.reset(
        pcap_fopen_offline_with_tstamp_precision(stream, PCAP_TSTAMP_PRECISION_NANO, error.data()));
    if (mFile != nullptr)
        return;
    std::fclose(stream);
    if (!mInput.IsStopped())
        Fail(error.data());
}

void PcapSource::RequireCan() const
{
    const int linkType = pcap_datalink(mFile.get());
    if (linkType != DLT_CAN_SOCKETCAN && linkType != DLT_LINUX_SLL) {
        const char* const name = pcap_datalink_val_to_name(linkType);
        throw CanException(mInput.GetName() + ": link type " +
                           (name != nullptr ? name : std::to_string(linkType)) +
                           " carries no CAN frames; capture on a CAN interface (link type "
                           "CAN_SOCKETCAN) or on all interfaces (LINUX_SLL)");
    }
}

bool PcapSource::Next(CandumpLine& entry)
{
    if (mFile == nullptr)
        return false;
    pcap_pkthdr* header = nullptr;
    const int result = pcap_next_ex(mFile.get(), &header, &mBytes);
    if (result == PCAP_ERROR_BREAK || mInput.IsStopped())
        return false;
    if (result != 1)
        Fail(pcap_geterr(mFile.get()));
    ++mNumber;
    mSize = header->caplen;
    entry = CandumpLine();
    entry.timeForm = CandumpLine::TIME_ABSOLUTE;
    entry.timeDecimals = mTimeDecimals;
    entry.frame.SetTimeStamp(Nanoseconds(header->ts));
    if (pcap_datalink(mFile.get()) == DLT_LINUX_SLL)
        ParseCookedPacket(mBytes, mSize, entry);
    else
        ParseSocketCanPacket(mBytes, mSize, entry);
    mKind = entry.kind;
    mFrame = entry.frame;
    return true;
}

std::string PcapSource::GetText() const
{
    constexpr std::size_t SHOWN = 72;
    return mKind == CandumpLine::KIND_FRAME ? mFrame.ToString()
                                            : Hex(mBytes, std::min(mSize, SHOWN));
}

ssize_t PcapSource::ReadFrom(void* source, char* bytes, std::size_t size) noexcept
{
    auto& self = *static_cast<PcapSource*>(source);
    try {
        return static_cast<ssize_t>(self.mInput.Read(bytes, size));
    } catch (const CanException& failure) {
        self.mReadFailure = std::current_exception();
        errno = failure.code();
        return -1;
    }
}

void PcapSource::Fail(const std::string& reason) const
{
    if (mReadFailure != nullptr)
        std::rethrow_exception(mReadFailure);
    throw CanException(mInput.GetName() + ": damaged pcap file, behind packet " +
                       std::to_string(mNumber) + ": " + reason +
                       "; what stands ahead of the damage can be used, the rest takes a new copy");
}

} // namespace tarn
