#include "OutputBuffer.h"

#include "Failure.h"
#include "StopSignal.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cmath>
#include <string>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

namespace tarn::tool
{

namespace
{

/// What a write() takes without blocking once poll() has promised room: all for a file, else what
/// POSIX promises for a pipe.
std::size_t BlockSize(int descriptor)
{
    struct stat status = {};
    const bool isFile = ::fstat(descriptor, &status) == 0 && S_ISREG(status.st_mode);
    return isFile ? SIZE_MAX : PIPE_BUF;
}

} // namespace

OutputBuffer::OutputBuffer(int descriptor)
    : mDescriptor(descriptor),
      mBlock(BlockSize(descriptor)),
      mBytes(std::make_unique<char[]>(CAPACITY))
{
}

void OutputBuffer::PutSlowly(std::string_view text)
{
    for (const char character : text)
        Put(character);
}

void OutputBuffer::Fill(char character, std::size_t count)
{
    for (; count > 0; --count)
        Put(character);
}

void OutputBuffer::PutLeft(std::string_view text, std::size_t width)
{
    Put(text);
    if (text.size() < width)
        Fill(' ', width - text.size());
}

void OutputBuffer::PutRight(std::string_view text, std::size_t width)
{
    if (text.size() < width)
        Fill(' ', width - text.size());
    Put(text);
}

void OutputBuffer::PutDecimal(std::uint64_t value, std::size_t width, char fill)
{
    std::array<char, 20> digits = {};
    const auto end = std::to_chars(digits.begin(), digits.end(), value);
    const auto count = static_cast<std::size_t>(end.ptr - digits.data());
    if (count < width)
        Fill(fill, width - count);
    Put(std::string_view(digits.data(), count));
}

void OutputBuffer::PutHex(std::uint64_t value, std::size_t width)
{
    std::array<char, 16> digits = {};
    std::size_t first = digits.size();
    do {
        digits[--first] = "0123456789ABCDEF"[value & 0xF];
        value >>= 4;
    } while (value != 0);
    const std::size_t count = digits.size() - first;
    if (count < width)
        Fill('0', width - count);
    Put(std::string_view(&digits[first], count));
}

void OutputBuffer::PutReal(float value)
{
    if (std::isnan(value))
        return Put("nan");
    std::array<char, 32> digits = {};
    const auto end = std::to_chars(digits.begin(), digits.end(), value);
    Put(std::string_view(digits.data(), static_cast<std::size_t>(end.ptr - digits.data())));
}

void OutputBuffer::WriteOut()
{
    std::size_t done = 0;
    while (done < mSize) {
        AwaitReader(mSize - done);
        const ssize_t written = ::write(mDescriptor, &mBytes[done], std::min(mBlock, mSize - done));
        if (written >= 0)
            done += static_cast<std::size_t>(written);
        else if (errno != EINTR && errno != EAGAIN)
            GiveUp(errno);
    }
    mSize = 0;
}

void OutputBuffer::AwaitReader(std::size_t left)
{
    if (WaitForRoom(mDescriptor))
        return;
    mSize = 0;
    throw Failure(static_cast<tExitStatus>(EXIT_SIGNAL + CaughtStopSignal()),
                  "standard output: nobody reads it; " + std::to_string(left) +
                      " bytes were not written");
}

void OutputBuffer::GiveUp(int error)
{
    mSize = 0;
    if (error == EPIPE)
        throw ReaderGone();
    throw Trouble("standard output: cannot write: " + std::generic_category().message(error) +
                  "; check where the output goes");
}

} // namespace tarn::tool
