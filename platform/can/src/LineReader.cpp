#include <plexa_can/CanException.h>
#include <plexa_can/LineReader.h>

#include <Poco/Error.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <string_view>
#include <unistd.h>
#include <utility>

namespace tarn
{

namespace
{

CanException Failure(const std::string& name, const char* what, int error)
{
    return CanException(name + ": cannot " + what + ": " + Poco::Error::getMessage(error) +
                            "; give the path of a log, or - for standard input",
                        error);
}

int Open(const std::string& path)
{
    if (path == "-")
        return STDIN_FILENO;
    const int descriptor = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (descriptor < 0)
        throw Failure(path, "open", errno);
    return descriptor;
}

} // namespace

LineReader::LineReader(const std::string& path, BeforeRead beforeRead)
    : mName(path == "-" ? "standard input" : path),
      mDescriptor(-1),
      mBeforeRead(std::move(beforeRead)),
      mBytes(std::make_unique<char[]>(CAPACITY))
{
    mDescriptor = Open(path); // last, so that nothing that fails leaves it open
}

LineReader::~LineReader()
{
    if (mDescriptor != STDIN_FILENO)
        ::close(mDescriptor);
}

bool LineReader::Next(InputLine& line)
{
    std::size_t searched = 0;
    for (;;) {
        const std::string_view held(&mBytes[mBegin], Held());
        const std::size_t newline = held.find('\n', searched);
        if (newline != std::string_view::npos) {
            if (Deliver(line, newline, 1))
                return true;
            searched = 0;
        } else if (held.size() == CAPACITY) {
            const bool isNew = Deliver(line, held.size(), 0);
            mSkipping = true;
            line.cut = isNew;
            if (isNew)
                return true;
            searched = 0;
        } else {
            searched = held.size();
            if (!Fill())
                return Held() > 0 && !mStopped && Deliver(line, Held(), 0);
        }
    }
}

std::string LineReader::Peek(std::size_t size)
{
    while (Held() < size && Fill()) {
    }
    return std::string(&mBytes[mBegin], std::min(size, Held()));
}

std::size_t LineReader::Read(char* bytes, std::size_t size)
{
    if (Held() == 0 && !Fill())
        return 0;
    const std::size_t count = std::min(size, Held());
    std::memcpy(bytes, &mBytes[mBegin], count);
    mBegin += count;
    return count;
}

/// False for the rest of a line whose beginning was delivered before.
bool LineReader::Deliver(InputLine& line, std::size_t size, std::size_t newline)
{
    const bool rest = mSkipping;
    mSkipping = false;
    if (!rest) {
        line.text = &mBytes[mBegin];
        line.size = size;
        line.number = ++mLineNumber;
        line.cut = false;
    }
    mBegin += size + newline;
    return !rest;
}

bool LineReader::Fill()
{
    std::memmove(mBytes.get(), &mBytes[mBegin], Held());
    mEnd -= mBegin;
    mBegin = 0;
    mStopped = mStopped || (mBeforeRead && !mBeforeRead(mDescriptor, mBytesRead));
    if (mStopped)
        return false;
    const std::size_t count = ReadBlock();
    mEnd += count;
    mBytesRead += count;
    if (mBytesRead == mEnd)
        SkipByteOrderMark();
    return count > 0;
}

std::size_t LineReader::ReadBlock()
{
    for (;;) {
        const ssize_t count = ::read(mDescriptor, &mBytes[mEnd], CAPACITY - mEnd);
        if (count >= 0)
            return static_cast<std::size_t>(count);
        if (errno != EINTR)
            throw Failure(mName, "read", errno);
    }
}

/// Editors of other systems put one at the beginning of a file.
void LineReader::SkipByteOrderMark()
{
    constexpr std::string_view MARK = "\xEF\xBB\xBF";
    if (mLineNumber == 0 && mBegin == 0 &&
        std::string_view(mBytes.get(), mEnd).substr(0, 3) == MARK)
        mBegin = MARK.size();
}

} // namespace tarn
