#ifndef TARN_TOOLS_LINE_READER_H
#define TARN_TOOLS_LINE_READER_H

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

namespace tarn::tool
{

/// One line of input. text is valid until the next line is read.
struct InputLine {
    std::string_view text;
    std::uint64_t number = 0;
    /// The line is longer than the reader's memory; text is its beginning.
    bool cut = false;
};

/// Reads a file line by line in large blocks, in memory that does not grow.
class LineReader
{
public:
    /// Most bytes of a line that are seen.
    static constexpr std::size_t CAPACITY = 256 * 1024;

    /// @param path "-" is standard input
    /// @throws Failure when the file cannot be opened
    explicit LineReader(const std::string& path);
    ~LineReader();
    LineReader(const LineReader&) = delete;
    LineReader& operator=(const LineReader&) = delete;

    /// Called before every block; idle when no input is there at the moment.
    void BeforeRead(std::function<void(bool idle)> hook) { mBeforeRead = std::move(hook); }

    /// False at the end and when a stop signal came.
    /// @throws Failure when reading fails
    bool Next(InputLine& line);

    /// How messages name the file.
    const std::string& GetName() const { return mName; }
    std::uint64_t GetBytesRead() const { return mBytesRead; }

private:
    bool Fill();
    bool Deliver(InputLine& line, std::size_t size, std::size_t newline);
    void SkipByteOrderMark();

    std::string mName;
    int mDescriptor;
    std::function<void(bool)> mBeforeRead;
    std::unique_ptr<char[]> mBytes;
    std::size_t mBegin = 0;
    std::size_t mEnd = 0;
    std::uint64_t mLineNumber = 0;
    std::uint64_t mBytesRead = 0;
    bool mSkipping = false;
};

} // namespace tarn::tool

#endif
