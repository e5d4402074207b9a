#include <plexa_can/CandumpLine.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

using tarn::CandumpLine;
using tarn::CanMessage;
using tarn::ParseCandumpLine;

namespace
{

void Require(bool holds)
{
    if (!holds)
        std::abort();
}

/// A line is bytes at the end of the memory that the sanitizer watches.
CandumpLine Parse(const std::vector<char>& bytes)
{
    CandumpLine line;
    const bool understood = ParseCandumpLine(bytes.data(), bytes.size(), line);
    Require(understood == (line.kind != CandumpLine::KIND_MALFORMED));
    return line;
}

void RequireNameToEnd(const CandumpLine& line)
{
    Require(std::memchr(line.interfaceName, '\0', sizeof line.interfaceName) != nullptr);
}

void RequireReason(const CandumpLine& line, std::size_t size)
{
    Require(line.reason[0] != '\0');
    Require(line.column >= 1 && line.column <= size + 1);
}

/// A frame that is printed and read again is the same frame.
void RequireSameFrameAgain(const CandumpLine& line)
{
    const std::string text = line.frame.ToString();
    const CandumpLine again = Parse({text.begin(), text.end()});
    Require(again.kind == CandumpLine::KIND_FRAME);
    Require(again.frame.ToString() == text);
    Require(again.frame.GetHeader() == line.frame.GetHeader());
    Require(again.frame.GetFlags() == line.frame.GetFlags());
    Require(again.frame.GetDataSize() == line.frame.GetDataSize());
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const CandumpLine line = Parse({data, data + size});
    RequireNameToEnd(line);
    Require(line.timeDecimals <= 9);
    if (line.kind == CandumpLine::KIND_MALFORMED)
        RequireReason(line, size);
    if (line.kind == CandumpLine::KIND_FRAME)
        RequireSameFrameAgain(line);
    return 0;
}
