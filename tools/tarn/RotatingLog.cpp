#include "RotatingLog.h"

#include "Failure.h"
#include "Numbers.h"

#include <array>
#include <cstdio>
#include <cstring>
#include <filesystem>

namespace tarn::tool
{

namespace
{

/// Bytes of a pcap file ahead of its first packet, and of every packet: its own header of 16 bytes
/// and 16 of a CAN frame.
constexpr std::uint64_t PCAP_HEADER = 24;
constexpr std::uint64_t PCAP_PACKET = 32;

/// "(1609779922.655421) ", the blank behind the interface and the end of the line.
constexpr std::uint64_t CANDUMP_FRAME = 22;

std::string Numbered(const std::string& path, std::uint64_t number)
{
    std::array<char, 24> digits = {};
    std::snprintf(digits.data(), digits.size(), ".%04llu", static_cast<unsigned long long>(number));
    std::filesystem::path numbered(path);
    const std::string extension = numbered.extension();
    return numbered.replace_extension().string() + digits.data() + extension;
}

} // namespace

RotatingLog::RotatingLog(std::string path, const Limits& limits, Clock::time_point now)
    : mPath(std::move(path)),
      mLimits(limits)
{
    Open(now);
}

void RotatingLog::Write(const CandumpLine& entry, Clock::time_point now)
{
    const std::uint64_t size = SizeOf(entry);
    if (IsFull(size, now)) {
        mWriter->Close();
        Open(now);
    }
    mWriter->Write(entry);
    mBytes += size;
    ++mFrames;
}

std::string RotatingLog::NextPath() const
{
    return mLimits.Rotate() ? Numbered(mPath, mNumber + 1) : mPath;
}

void RotatingLog::Open(Clock::time_point now)
{
    const std::string path = NextPath();
    if (!mLimits.overwrite && std::filesystem::is_regular_file(path))
        throw Trouble(path + ": is there already; give another name, or --force to replace it");
    mWriter = std::make_unique<CanLogWriter>(path);
    ++mNumber;
    mBytesBefore += mBytes;
    mBytes = mWriter->GetForm() == CAN_LOG_PCAP ? PCAP_HEADER : 0;
    mBegin = now;
    mKept.push_back(path);
    if (mLimits.files > 0 && mKept.size() > mLimits.files) {
        std::error_code ignored; // somebody else may have moved it away
        std::filesystem::remove(mKept.front(), ignored);
        mKept.pop_front();
    }
}

std::uint64_t RotatingLog::SizeOf(const CandumpLine& entry) const
{
    if (mWriter->GetForm() == CAN_LOG_PCAP)
        return PCAP_PACKET;
    constexpr std::size_t DEFAULT_INTERFACE = 4; // "can0"
    const std::size_t interface = std::strlen(entry.interfaceName);
    return CANDUMP_FRAME + (interface == 0 ? DEFAULT_INTERFACE : interface) +
           entry.frame.ToString().size();
}

bool RotatingLog::IsFull(std::uint64_t size, Clock::time_point now) const
{
    const bool tooLarge = mLimits.bytes > 0 && mBytes + size > mLimits.bytes;
    const bool tooLong = mLimits.time > Duration::zero() && now - mBegin >= mLimits.time;
    return mWriter->GetFrames() > 0 && (tooLarge || tooLong);
}

std::uint64_t ParseByteCount(const std::string& option, const std::string& text)
{
    constexpr std::uint64_t MOST = 1000000000000000;
    std::uint64_t unit = 1;
    std::string digits = text;
    for (const auto& [letter, factor] :
         {std::pair{'k', 1000ULL}, {'M', 1000000ULL}, {'G', 1000000000ULL}}) {
        if (!digits.empty() && digits.back() == letter) {
            unit = factor;
            digits.pop_back();
            break;
        }
    }
    const auto number = ParseWhole(digits, MOST / unit);
    if (!number || *number == 0)
        throw UsageFailure(option + ' ' + text +
                           ": no size; write bytes, or with a unit like 500k, 10M or 1G");
    return *number * unit;
}

} // namespace tarn::tool
