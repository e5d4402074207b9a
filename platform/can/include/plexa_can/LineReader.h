#ifndef PLEXA_CAN_LINE_READER_H
#define PLEXA_CAN_LINE_READER_H

#include <plexa_can/Export.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

namespace tarn
{

/// One line of input, without its newline. text is valid until the next line is read.
struct InputLine {
    const char* text = "";    ///< no final 0: size says where it ends
    std::size_t size = 0;     ///< in bytes
    std::uint64_t number = 0; ///< counted from 1
    /// The line is longer than the reader's memory; text is its beginning.
    bool cut = false;
};

/// Reads a file line by line in large blocks, in memory that does not grow. For one thread at a
/// time.
class PLEXA_CAN_API LineReader
{
public:
    /// Most bytes of a line that are seen.
    static constexpr std::size_t CAPACITY = 256 * 1024;

    /// Called before every block, with the descriptor that will be read and the bytes read from it
    /// so far. May wait for the descriptor; false ends the reading.
    using BeforeRead = std::function<bool(int descriptor, std::uint64_t bytesRead)>;

    /// Opens the file. That of a FIFO waits until somebody opens it for writing.
    /// @param path "-" is standard input
    /// @throws CanException when the file cannot be opened
    explicit LineReader(const std::string& path, BeforeRead beforeRead = {});
    ~LineReader();
    LineReader(const LineReader&) = delete;
    LineReader& operator=(const LineReader&) = delete;

    /// False at the end, and when BeforeRead ended the reading; a line that has begun is dropped
    /// then.
    /// @throws CanException when reading fails
    bool Next(InputLine& line);

    /// The next bytes, which stay where they are; fewer than size at the end.
    /// @throws CanException when reading fails
    std::string Peek(std::size_t size);

    /// Takes bytes as they come, for files that turn out not to be text. 0 at the end.
    /// @throws CanException when reading fails
    std::size_t Read(char* bytes, std::size_t size);

    /// How messages name the file.
    const std::string& GetName() const { return mName; }
    /// Bytes taken from the file so far, in blocks.
    std::uint64_t GetBytesRead() const { return mBytesRead; }
    /// True when BeforeRead ended the reading.
    bool IsStopped() const { return mStopped; }

private:
    std::size_t Held() const { return mEnd - mBegin; }
    bool Fill();
    std::size_t ReadBlock();
    bool Deliver(InputLine& line, std::size_t size, std::size_t newline);
    void SkipByteOrderMark();

    std::string mName;
    int mDescriptor;
    BeforeRead mBeforeRead;
    std::unique_ptr<char[]> mBytes;
    std::size_t mBegin = 0;
    std::size_t mEnd = 0;
    std::uint64_t mLineNumber = 0;
    std::uint64_t mBytesRead = 0;
    bool mSkipping = false;
    bool mStopped = false;
};

} // namespace tarn

#endif
