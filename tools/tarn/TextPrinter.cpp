#include "TextPrinter.h"

#include "Words.h"

#include <algorithm>

namespace tarn::tool
{

namespace
{

constexpr std::string_view GAP = "  ";
constexpr std::size_t INTERFACE_WIDTH = 6;
/// "g127.255"
constexpr std::size_t TARGET_WIDTH = 8;
/// "RESOURCE EXCLUSIVE RESERVED"
constexpr std::size_t STATUS_WIDTH = 27;
/// "S16F0"
constexpr std::size_t DATA_TYPE_WIDTH = 5;

constexpr std::string_view DIM = "\x1b[2m";
constexpr std::string_view GREEN = "\x1b[32m";
constexpr std::string_view YELLOW = "\x1b[33m";
constexpr std::string_view RED = "\x1b[31m";
constexpr std::string_view PLAIN = "\x1b[0m";

void PutTime(const CandumpLine& line, OutputBuffer& out)
{
    if (line.timeForm == CandumpLine::TIME_NONE)
        return;
    if (line.timeForm == CandumpLine::TIME_RELATIVE)
        PutSeconds(line, out);
    else
        PutTimeOfDay(line, out);
    out.Put(GAP);
}

/// A name in a column, with a blank ahead; nothing where the column has no width.
void PutName(std::string_view name, std::string_view part, std::size_t width, OutputBuffer& out)
{
    if (width == 0)
        return;
    out.Put(' ');
    out.Put(name);
    std::size_t used = WidthOf(name);
    if (!part.empty()) {
        out.Put('.');
        out.Put(part);
        used += 1 + WidthOf(part);
    }
    out.Fill(' ', width - std::min(width, used));
}

/// The widest name of a device, with that of a module behind it, and of a group.
std::size_t TargetWidth(const Installation& names)
{
    std::size_t width = 1;
    for (const InstalledDevice& device : names.devices) {
        width = std::max(width, WidthOf(device.name));
        for (const auto& module : device.modules)
            width = std::max(width, WidthOf(device.name) + 1 + WidthOf(module.second));
    }
    for (const auto& group : names.groups)
        width = std::max(width, WidthOf(group.second));
    return width;
}

std::size_t SourceWidth(const Installation& names)
{
    std::size_t width = 1;
    for (const InstalledDevice& device : names.devices)
        width = std::max(width, WidthOf(device.name));
    return width;
}

std::size_t RegisterWidth(const Installation& names)
{
    std::size_t width = 1;
    for (const InstalledDevice& device : names.devices) {
        for (const InstalledRegister& entry : device.registers)
            width = std::max(width, WidthOf(entry.name));
    }
    return width;
}

/// As wide as the header of a DATA message.
void PutChcpHeader(const MessageFields& fields, OutputBuffer& out)
{
    out.Put("CHCP ");
    out.PutHex(fields.mac, 7);
    out.Put(GAP);
    PutChcp(fields, out);
    out.Put("     ");
}

void PutTypeAndData(const MessageFields& fields, const MessageNames& names, OutputBuffer& out)
{
    out.Put(GAP);
    if (fields.payloadSize == 0)
        return out.Put(DATA_TYPE_WORDS[fields.dataType]);
    out.PutLeft(DATA_TYPE_WORDS[fields.dataType], DATA_TYPE_WIDTH);
    out.Put(' ');
    PutData(fields, names, out);
}

std::string_view ColourOf(unsigned int status)
{
    if (status == TarnMessage::STATUS_OPERATING)
        return GREEN;
    if (status == TarnMessage::STATUS_OPERATING_WITH_WARNING)
        return YELLOW;
    return status > TarnMessage::STATUS_OPERATING_WITH_WARNING ? RED : std::string_view();
}

} // namespace

TextPrinter::TextPrinter(bool colour, const Installation* names) : mColour(colour), mNames(names)
{
    if (mNames == nullptr)
        return;
    mSourceWidth = SourceWidth(*mNames);
    mTargetWidth = TargetWidth(*mNames);
    mRegisterWidth = RegisterWidth(*mNames);
}

void TextPrinter::Print(const ReceivedMessage& received, OutputBuffer& out)
{
    const MessageFields& fields = received.fields;
    const MessageNames names = NamesOf(mNames, fields);
    PutOrigin(received.line, out);
    if (fields.IsChcp())
        PutChcpHeader(fields, out);
    else
        PutDataHeader(fields, names, out);
    PutStatus(fields.status, fields.IsChcp() ? 0 : STATUS_WIDTH, out);
    if (!fields.IsChcp())
        PutTypeAndData(fields, names, out);
    if (!names.mac.empty())
        PutNote(names.mac, {}, out);
    PutNotes(fields, out);
    out.Put('\n');
}

void TextPrinter::PrintError(const CandumpLine& line, std::string_view words, OutputBuffer& out)
{
    PutOrigin(line, out);
    PutColour(RED, out);
    out.Put("ERROR FRAME");
    PutColour(PLAIN, out);
    out.Put(GAP);
    out.Put(words);
    out.Put('\n');
}

void TextPrinter::PutOrigin(const CandumpLine& line, OutputBuffer& out) const
{
    PutColour(DIM, out);
    PutTime(line, out);
    if (line.interfaceName[0] != '\0') {
        out.PutLeft(line.interfaceName, INTERFACE_WIDTH);
        out.Put(GAP);
    }
    if (line.direction != CandumpLine::DIRECTION_UNKNOWN)
        out.Put(line.direction == CandumpLine::DIRECTION_RECEIVED ? "rx  " : "tx  ");
    PutColour(PLAIN, out);
}

void TextPrinter::PutDataHeader(const MessageFields& fields, const MessageNames& names,
                                OutputBuffer& out) const
{
    const bool read = fields.accessType == TarnMessage::ACCESS_READ;
    const bool request = fields.direction == TarnMessage::DIRECTION_REQUEST;
    // A module is one of the device whose register this is: the target of a request alone.
    const std::string_view module = request ? names.module : std::string_view();
    out.PutDecimal(fields.source, 3, ' ');
    PutName(names.source, {}, mSourceWidth, out);
    out.Put(" -> ");
    out.Fill(' ', TARGET_WIDTH - PutTarget(fields, out));
    PutName(names.target, module, mTargetWidth, out);
    out.Put("  reg ");
    out.PutDecimal(fields.reg, 3, ' ');
    out.Put(" (0x");
    out.PutHex(fields.reg, 2);
    out.Put(')');
    PutName(names.reg, {}, mRegisterWidth, out);
    out.Put(read ? "  READ  " : "  WRITE ");
    out.Put(request ? "request   " : "response  ");
}

void TextPrinter::PutStatus(unsigned int status, std::size_t width, OutputBuffer& out) const
{
    const std::string_view colour = ColourOf(status);
    if (!colour.empty())
        PutColour(colour, out);
    out.PutLeft(STATUS_WORDS[status], width);
    if (!colour.empty())
        PutColour(PLAIN, out);
}

void TextPrinter::PutNotes(const MessageFields& fields, OutputBuffer& out) const
{
    if (!fields.IsChcp() && fields.priority != TarnMessage::PRIORITY_DATA)
        PutNote("priority ", PRIORITY_WORDS[fields.priority], out);
    if (fields.IsChcp() && fields.dataType != 0)
        PutNote("data type ", DATA_TYPE_WORDS[fields.dataType], out);
    if (fields.oddity != MessageFields::ODDITY_NONE)
        PutNote(Describe(fields.oddity), {}, out);
}

void TextPrinter::PutNote(std::string_view note, std::string_view word, OutputBuffer& out) const
{
    out.Put(GAP);
    PutColour(YELLOW, out);
    out.Put('(');
    out.Put(note);
    out.Put(word);
    out.Put(')');
    PutColour(PLAIN, out);
}

void TextPrinter::PutColour(std::string_view code, OutputBuffer& out) const
{
    if (mColour)
        out.Put(code);
}

void ShortPrinter::Print(const ReceivedMessage& received, OutputBuffer& out)
{
    out.Put(received.message.ToStringShort());
    out.Put('\n');
}

void ShortPrinter::PrintError(const CandumpLine&, std::string_view words, OutputBuffer& out)
{
    out.Put("ERROR FRAME ");
    out.Put(words);
    out.Put('\n');
}

void LongPrinter::Print(const ReceivedMessage& received, OutputBuffer& out)
{
    out.Put(received.message.ToString());
    out.Put("\n\n");
}

void LongPrinter::PrintError(const CandumpLine&, std::string_view words, OutputBuffer& out)
{
    out.Put("ERROR FRAME ");
    out.Put(words);
    out.Put("\n\n");
}

} // namespace tarn::tool
