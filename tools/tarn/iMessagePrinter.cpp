#include "iMessagePrinter.h"

namespace tarn::tool
{

namespace
{

constexpr std::uint64_t NANOSECONDS = 1000000000u;

std::uint64_t ToDecimals(std::uint64_t nanoseconds, unsigned int decimals)
{
    for (unsigned int digits = 9; digits > decimals; --digits)
        nanoseconds /= 10;
    return nanoseconds;
}

void PutBytes(const unsigned char* bytes, std::size_t size, std::string_view separator,
              OutputBuffer& out)
{
    for (std::size_t at = 0; at < size; ++at) {
        if (at > 0)
            out.Put(separator);
        out.PutHex(bytes[at], 2);
    }
}

} // namespace

void PutSeconds(const CandumpLine& line, OutputBuffer& out)
{
    if (line.timeForm == CandumpLine::TIME_NONE)
        return;
    const std::uint64_t time = line.frame.GetTimeStamp();
    out.PutDecimal(time / NANOSECONDS);
    PutDecimals(line, out);
}

void PutDecimals(const CandumpLine& line, OutputBuffer& out)
{
    if (line.timeDecimals == 0)
        return;
    out.Put('.');
    out.PutDecimal(ToDecimals(line.frame.GetTimeStamp() % NANOSECONDS, line.timeDecimals),
                   line.timeDecimals);
}

void PutFrame(const CanMessage& frame, OutputBuffer& out)
{
    out.PutHex(frame.GetHeader(), 8);
    out.Put('#');
    PutBytes(frame.GetBytes(), frame.GetDataSize(), {}, out);
}

void PutPayload(const MessageFields& fields, std::string_view separator, OutputBuffer& out)
{
    PutBytes(fields.payload.data(), fields.payloadSize, separator, out);
}

void PutValues(const PayloadValues& values, OutputBuffer& out)
{
    for (std::size_t at = 0; at < values.count; ++at) {
        if (at > 0)
            out.Put(' ');
        if (values.kind == PayloadValues::WHOLE)
            out.PutDecimal(values.whole[at]);
        else
            out.PutReal(values.real[at]);
    }
}

} // namespace tarn::tool
