#include "CandumpSource.h"
#include "PcapSource.h"

#include <plexa_can/CanLogReader.h>

#include <utility>

namespace tarn
{

namespace
{

std::unique_ptr<iLogSource> MakeSource(tCanLogForm form, LineReader& input)
{
    if (form == CAN_LOG_PCAP)
        return std::make_unique<PcapSource>(input);
    return std::make_unique<CandumpSource>(input);
}

} // namespace

CanLogReader::CanLogReader(const std::string& path, LineReader::BeforeRead beforeRead)
    : mInput(path, std::move(beforeRead)),
      mForm(PcapSource::Recognizes(mInput) ? CAN_LOG_PCAP : CAN_LOG_CANDUMP),
      mSource(MakeSource(mForm, mInput))
{
}

CanLogReader::~CanLogReader() = default;

bool CanLogReader::Next(CandumpLine& entry)
{
    if (!mSource->Next(entry))
        return false;
    switch (entry.kind) {
    case CandumpLine::KIND_FRAME:
        ++mCounters.frames;
        break;
    case CandumpLine::KIND_FD_FRAME:
        ++mCounters.fdFrames;
        break;
    case CandumpLine::KIND_COMMENT:
        ++mCounters.comments;
        break;
    case CandumpLine::KIND_MALFORMED:
        ++mCounters.malformed;
        break;
    }
    return true;
}

bool CanLogReader::NextFrame(CandumpLine& entry)
{
    while (Next(entry)) {
        if (entry.kind == CandumpLine::KIND_FRAME)
            return true;
    }
    return false;
}

std::uint64_t CanLogReader::GetNumber() const
{
    return mSource->GetNumber();
}

std::string CanLogReader::GetText() const
{
    return mSource->GetText();
}

} // namespace tarn
