#include "Require.h"

#include <plexa_can/CandumpLine.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

using tarn::CandumpLine;
using tarn::CanMessage;
using tarn::ParseCandumpLine;

namespace
{

/// A line is bytes at the end of the memory that the sanitizer watches.
CandumpLine Parse(const std::vector<char>& bytes)
{
    CandumpLine line;
    const bool understood = ParseCandumpLine(bytes.data(), bytes.size(), line);
    Require(understood == (line.kind != CandumpLine::KIND_MALFORMED), "understanding told twice");
    return line;
}

void RequireNameToEnd(const CandumpLine& line)
{
    Require(std::memchr(line.interfaceName, '\0', sizeof line.interfaceName) != nullptr,
            "name that ends");
}

void RequireReason(const CandumpLine& line, std::size_t size)
{
    Require(line.reason[0] != '\0', "reason");
    Require(line.column >= 1 && line.column <= size + 1, "column in the line");
}

/// A frame that is printed and read again is the same frame.
void RequireSameFrameAgain(const CandumpLine& line)
{
    const std::string text = line.frame.ToString();
    const CandumpLine again = Parse({text.begin(), text.end()});
    Require(again.kind == CandumpLine::KIND_FRAME, "frame printed and read");
    Require(again.frame.ToString() == text, "text of the frame read again");
    Require(again.frame.GetHeader() == line.frame.GetHeader(), "identifier read again");
    Require(again.frame.GetFlags() == line.frame.GetFlags(), "flags read again");
    Require(again.frame.GetDataSize() == line.frame.GetDataSize(), "size read again");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const CandumpLine line = Parse({data, data + size});
    RequireNameToEnd(line);
    Require(line.timeDecimals <= 9, "decimals of the time");
    if (line.kind == CandumpLine::KIND_MALFORMED)
        RequireReason(line, size);
    if (line.kind == CandumpLine::KIND_FRAME)
        RequireSameFrameAgain(line);
    return 0;
}
