#ifndef TARN_TOOLS_OUTPUT_BUFFER_H
#define TARN_TOOLS_OUTPUT_BUFFER_H

#include <charconv>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

namespace tarn::tool
{

/// Collects output for one file descriptor and hands it over in large blocks. Numbers do not follow
/// the locale.
///
/// A reader that takes its time is waited for. Once a stop signal has come, one that takes nothing
/// for a second is waited for no longer.
///
/// Throws ReaderGone when a pipe is closed at the other end, Failure when writing fails otherwise.
class OutputBuffer
{
public:
    /// The character type, under the name that RapidJSON's streams have for it.
    using Ch = char;

    explicit OutputBuffer(int descriptor);

    void Put(char character)
    {
        if (mSize == CAPACITY)
            WriteOut();
        mBytes[mSize++] = character;
    }

    void Put(std::string_view text)
    {
        if (text.size() > CAPACITY - mSize)
            return PutSlowly(text);
        text.copy(&mBytes[mSize], text.size());
        mSize += text.size();
    }

    void Fill(char character, std::size_t count);

    /// text, then blanks up to a width; a longer text is not cut.
    void PutLeft(std::string_view text, std::size_t width);
    void PutRight(std::string_view text, std::size_t width);

    void PutDecimal(std::uint64_t value, std::size_t width = 1, char fill = '0');
    /// Upper-case digits.
    void PutHex(std::uint64_t value, std::size_t width = 1);
    /// As few digits as tell the value from every other.
    void PutReal(float value);

    /// Hands over what is there.
    void WriteOut();

    /// What RapidJSON calls at the end of a document; lines are collected on.
    void Flush() {}

    bool IsEmpty() const { return mSize == 0; }

    /// Takes what is there for a text instead, at most 256 KiB.
    std::string TakeText()
    {
        std::string text(mBytes.get(), mSize);
        mSize = 0;
        return text;
    }

private:
    static constexpr std::size_t CAPACITY = 256 * 1024;

    void PutSlowly(std::string_view text);
    void AwaitReader(std::size_t left);
    [[noreturn]] void GiveUp(int error);

    int mDescriptor;
    std::size_t mBlock;
    std::unique_ptr<char[]> mBytes;
    std::size_t mSize = 0;
};

} // namespace tarn::tool

#endif
