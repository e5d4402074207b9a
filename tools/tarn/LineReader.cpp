#include "LineReader.h"

#include "Failure.h"
#include "StopSignal.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

namespace tarn::tool
{

namespace
{

int Open(const std::string& path)
{
    if (path == "-")
        return STDIN_FILENO;
    const int descriptor = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (descriptor < 0)
        throw Trouble(path + ": cannot open: " + std::strerror(errno) +
                      "; give the path of a log, or - for standard input");
    return descriptor;
}

} // namespace

LineReader::LineReader(const std::string& path)
    : mName(path == "-" ? "standard input" : path),
      mDescriptor(Open(path)),
      mBytes(std::make_unique<char[]>(CAPACITY))
{
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
        const std::string_view held(&mBytes[mBegin], mEnd - mBegin);
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
                return mEnd > mBegin && CaughtStopSignal() == 0 && Deliver(line, mEnd - mBegin, 0);
        }
    }
}

/// False for the rest of a line whose beginning was delivered before.
bool LineReader::Deliver(InputLine& line, std::size_t size, std::size_t newline)
{
    const bool rest = mSkipping;
    mSkipping = false;
    if (!rest) {
        line.text = std::string_view(&mBytes[mBegin], size);
        line.number = ++mLineNumber;
        line.cut = false;
    }
    mBegin += size + newline;
    return !rest;
}

bool LineReader::Fill()
{
    std::memmove(mBytes.get(), &mBytes[mBegin], mEnd - mBegin);
    mEnd -= mBegin;
    mBegin = 0;
    if (mBeforeRead)
        mBeforeRead(!HasInput(mDescriptor));
    if (!WaitForInput(mDescriptor))
        return false;
    const ssize_t count = ::read(mDescriptor, &mBytes[mEnd], CAPACITY - mEnd);
    if (count < 0)
        throw Trouble(mName + ": cannot read: " + std::strerror(errno) +
                      "; give the path of a log, or - for standard input");
    mEnd += static_cast<std::size_t>(count);
    mBytesRead += static_cast<std::uint64_t>(count);
    if (mBytesRead == mEnd)
        SkipByteOrderMark();
    return count > 0;
}

/// Editors of other systems put one at the beginning of a file.
void LineReader::SkipByteOrderMark()
{
    constexpr std::string_view mark = "\xEF\xBB\xBF";
    if (mLineNumber == 0 && mBegin == 0 &&
        std::string_view(mBytes.get(), mEnd).substr(0, 3) == mark)
        mBegin = mark.size();
}

} // namespace tarn::tool
