#ifndef TARN_TOOLS_ROTATING_LOG_H
#define TARN_TOOLS_ROTATING_LOG_H

#include "Duration.h"

#include <plexa_can/CanLogWriter.h>

#include <chrono>
#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <string>

namespace tarn::tool
{

/// Writes a log into one file, or into a row of files that begin anew at a size or after a time:
/// "drive.log" makes "drive.0001.log", "drive.0002.log" and so on.
class RotatingLog
{
public:
    using Clock = std::chrono::steady_clock;

    struct Limits {
        std::uint64_t bytes = 0;          ///< no file grows beyond; 0: any size
        Duration time = Duration::zero(); ///< no file takes frames for longer; 0: any time
        std::uint64_t files = 0;          ///< so many are kept, the oldest is removed; 0: all
        bool overwrite = false;           ///< files that are there already may be replaced

        bool Rotate() const { return bytes > 0 || time > Duration::zero(); }
    };

    /// Makes the first file.
    /// @throws Failure for a file that is there already, CanException when it cannot be made
    RotatingLog(std::string path, const Limits& limits, Clock::time_point now);

    /// @throws CanException, Failure as above, and when the system does not take the entry
    void Write(const CandumpLine& entry, Clock::time_point now);

    /// Hands over what is buffered.
    void Flush() { mWriter->Flush(); }

    /// Must be called at the end: it is the last chance to learn that writing failed.
    void Close() { mWriter->Close(); }

    std::uint64_t CountFrames() const { return mFrames; }
    std::uint64_t CountFiles() const { return mNumber; }
    std::uint64_t CountBytes() const { return mBytesBefore + mBytes; }

private:
    std::string NextPath() const;
    void Open(Clock::time_point now);
    std::uint64_t SizeOf(const CandumpLine& entry) const;
    bool IsFull(std::uint64_t size, Clock::time_point now) const;

    const std::string mPath;
    const Limits mLimits;
    std::unique_ptr<CanLogWriter> mWriter;
    std::deque<std::string> mKept;
    std::uint64_t mNumber = 0;
    std::uint64_t mFrames = 0;
    std::uint64_t mBytesBefore = 0;
    std::uint64_t mBytes = 0;
    Clock::time_point mBegin;
};

/// Reads "500000", "100k", "10M" or "1G" (powers of 1000).
/// @param option begins the message of a refusal
/// @throws Failure for anything else
std::uint64_t ParseByteCount(const std::string& option, const std::string& text);

} // namespace tarn::tool

#endif
