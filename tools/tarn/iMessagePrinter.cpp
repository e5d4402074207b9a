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

/// Of a number up to 255.
std::size_t DigitsOf(unsigned int number)
{
    return number < 10 ? 1 : number < 100 ? 2 : 3;
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
        PutValue(values, at, out);
    }
}

void PutValue(const PayloadValues& values, std::size_t at, OutputBuffer& out)
{
    if (values.kind == PayloadValues::WHOLE)
        out.PutDecimal(values.whole[at]);
    else
        out.PutReal(values.real[at]);
}

void PutData(const MessageFields& fields, const MessageNames& names, OutputBuffer& out)
{
    if (names.values != nullptr)
        return out.Put(ShownValues(*names.values, fields.values));
    if (fields.values.kind != PayloadValues::NONE)
        return PutValues(fields.values, out);
    if (fields.payloadSize == 0)
        return;
    out.Put('[');
    PutPayload(fields, " ", out);
    out.Put(']');
}

void PutTimeOfDay(const CandumpLine& line, OutputBuffer& out)
{
    const std::uint64_t seconds = line.frame.GetTimeStamp() / NANOSECONDS;
    out.PutDecimal(seconds / 3600 % 24, 2);
    out.Put(':');
    out.PutDecimal(seconds / 60 % 60, 2);
    out.Put(':');
    out.PutDecimal(seconds % 60, 2);
    PutDecimals(line, out);
}

std::size_t PutTarget(const MessageFields& fields, OutputBuffer& out)
{
    std::size_t width = DigitsOf(fields.target);
    if (fields.addressing == TarnMessage::ADDRESSING_GROUP) {
        out.Put('g');
        ++width;
    }
    out.PutDecimal(fields.target);
    if (fields.addressingMode == TarnMessage::ADDRESSING_MODE_EXTENDED) {
        out.Put('.');
        out.PutDecimal(fields.module);
        width += 1 + DigitsOf(fields.module);
    }
    return width;
}

void PutChcp(const MessageFields& fields, OutputBuffer& out)
{
    out.Put("device ");
    out.PutHex(fields.deviceCode, 8);
    out.Put("  id ");
    out.PutDecimal(fields.chcpId, 3, ' ');
    out.Put("  cmd ");
    if (fields.chcpCommand < TarnMessage::CHCP_COMMAND_NONE)
        out.PutDecimal(fields.chcpCommand);
    else
        out.Put('-');
}

} // namespace tarn::tool
