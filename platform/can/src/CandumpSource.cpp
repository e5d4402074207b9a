#include "CandumpSource.h"

#include <plexa_can/CandumpLine.h>

namespace tarn
{

static_assert(LineReader::CAPACITY == 262144, "the message below says so");

bool CandumpSource::Next(CandumpLine& entry)
{
    if (!mInput.Next(mLine))
        return false;
    ParseCandumpLine(mLine.text, mLine.size, entry);
    if (mLine.cut && entry.kind != CandumpLine::KIND_COMMENT) {
        entry.kind = CandumpLine::KIND_MALFORMED;
        entry.reason = "line of more than 262144 bytes";
        entry.column = LineReader::CAPACITY;
    }
    return true;
}

} // namespace tarn
