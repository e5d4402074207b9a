#include <plexa_can/CanMessage.h>
#include <plexa_can/CanTiming.h>

namespace tarn
{

unsigned int ArbitrationRank(const CanMessage& frame)
{
    const unsigned int remote = (frame.GetFlags() & CanMessage::FLAG_REMOTE) != 0 ? 1 : 0;
    const unsigned int header = frame.GetHeader();
    if ((frame.GetFlags() & CanMessage::FLAG_EXTENDED) == 0)
        return ((header & 0x7FFu) << 21) | (remote << 20);
    const unsigned int base = (header >> 18) & 0x7FFu;
    const unsigned int extension = header & 0x3FFFFu;
    const unsigned int recessiveMarks = 3u << 19; // SRR and IDE
    return (base << 21) | recessiveMarks | (extension << 1) | remote;
}

unsigned int FrameBits(const CanMessage& frame)
{
    const bool extended = (frame.GetFlags() & CanMessage::FLAG_EXTENDED) != 0;
    const bool remote = (frame.GetFlags() & CanMessage::FLAG_REMOTE) != 0;
    const auto dataBits = remote ? 0 : 8 * static_cast<unsigned int>(frame.GetDataSize());
    return (extended ? 67 : 47) + dataBits;
}

} // namespace tarn
