#include "lock/ScopedLock.h"
#include "message/HeaderLayout.h"
#include "message/PayloadCodec.h"

#include <tarn/TarnMessage.h>

#include <array>
#include <charconv>

namespace tarn
{

namespace
{

/// Appends to a text. Digits and signs are written here and not by streams, because those follow
/// the process's locale, and a log line must not.
class Writer
{
public:
    explicit Writer(std::string& text) : mText(text) {}

    Writer& Text(const char* text)
    {
        mText += text;
        return *this;
    }

    Writer& Char(char character)
    {
        mText += character;
        return *this;
    }

    Writer& Decimal(std::size_t value, unsigned int width = 1) { return Number(value, 10, width); }

    Writer& Hex(std::uint64_t value, unsigned int width = 1) { return Number(value, 16, width); }

    /// Six significant digits, as printf's %g writes them in the C locale.
    Writer& General(double value)
    {
        std::array<char, 32> digits = {};
        const auto end = std::to_chars(digits.data(), digits.data() + digits.size(), value,
                                       std::chars_format::general, 6);
        mText.append(digits.data(), end.ptr);
        return *this;
    }

private:
    Writer& Number(std::uint64_t value, int base, unsigned int width)
    {
        std::array<char, 24> digits = {};
        const auto end = std::to_chars(digits.data(), digits.data() + digits.size(), value, base);
        const auto count = static_cast<std::size_t>(end.ptr - digits.data());
        if (count < width)
            mText.append(width - count, '0');
        mText.append(digits.data(), count);
        return *this;
    }

    std::string& mText;
};

constexpr const char* TYPE_WORDS[] = {"DATA", "CHCP"};
constexpr const char* PRIORITY_WORDS[] = {"SYNC", "EMRGENCY", "CONTROL", "DATA"};
constexpr const char* ADDRESSING_WORDS[] = {"GROUP", "DEVICE"};
constexpr const char* ACCESS_TYPE_WORDS[] = {"WRITE", "READ"};
constexpr const char* DIRECTION_WORDS[] = {"RESPONSE", "REQUEST"};
constexpr const char* ADDRESSING_MODE_WORDS[] = {"STANDARD", "EXTENDED"};
constexpr const char* STATUS_WORDS[] = {"UNKNOWN",
                                        "OFFLINE",
                                        "POWERUP",
                                        "STANDBY",
                                        "STARTUP",
                                        "OPERATING",
                                        "OPERATING WITH WARNING",
                                        "OPERATING WITH FAILURE",
                                        "STOPPED BY HW-FAILURE",
                                        "STOPPED BY EXTERNAL",
                                        "STOPPED BY INTERNAL",
                                        "RESOURCE NOT EXISTING",
                                        "RESOURCE EXCLUSIVE RESERVED",
                                        "RESOURCE OVERLOADED",
                                        "FRAME-FAILURE",
                                        "ACCESS NOT GRANTED"};
constexpr const char* DATA_TYPE_WORDS[] = {
    "S16F0", "S16F1", "S16F2", "S16F3", "S16F4", "S16F5", "S16F6",   "S16F7",
    "U8",    "U16",   "U24",   "U32",   "U48",   "FLOAT", "INVALID", "NOT A TYPE"};

/// What stands before each item and after it.
struct Form {
    const char* dataType; ///< before the type word of a DATA message
    const char* chcpType;
    const char* priority;
    const char* addressing;
    const char* accessType;
    const char* direction;
    const char* addressingMode;
    const char* reg;
    const char* targetAddr;
    const char* sourceAddr;
    const char* module;
    const char* status;
    const char* payloadType;
    const char* data;
    const char* rawHeader;
    const char* rawData;
    const char* end;
};

constexpr Form LONG_FORM = {"Type:            ",
                            "Type:            ",
                            "Priority:        ",
                            "Addressing:      ",
                            "AccessType:      ",
                            "Direction:       ",
                            "AddressingMode:  ",
                            "Register:        ",
                            "TargetAddr:      ",
                            "SourceAddr:      ",
                            "Module:          ",
                            "Status:          ",
                            "DataType:        ",
                            "Data(",
                            "Raw-Header : ",
                            "Raw-Data(",
                            "\n"};

// Only the type of a DATA message goes without a comma: log readers tell the two kinds apart by it.
constexpr Form SHORT_FORM = {"Type: ",
                             ",Type: ",
                             ",Priority: ",
                             ",Addressing: ",
                             ",AccessType: ",
                             ",Direction: ",
                             ",AddressingMode: ",
                             ",Register:",
                             ",TargetAddr:",
                             ",SourceAddr:",
                             ",Module:",
                             ",Status: ",
                             ",DataType: ",
                             ",Data(",
                             ",Raw-Header : ",
                             ",Raw-Data(",
                             ""};

/// Room for either form with every value at its longest, without the payload.
constexpr std::size_t HEADER_TEXT_ROOM = 512;
constexpr std::size_t TEXT_ROOM_PER_BYTE = 24;

void WriteHeader(Writer& out, const Form& form, unsigned int header, unsigned int module)
{
    const unsigned int type = layout::Type::Get(header);
    out.Text(type == TarnMessage::TYPE_DATA ? form.dataType : form.chcpType);
    out.Text(TYPE_WORDS[type]).Text(form.end);
    out.Text(form.priority).Text(PRIORITY_WORDS[layout::Priority::Get(header)]).Text(form.end);
    out.Text(form.addressing)
        .Text(ADDRESSING_WORDS[layout::Addressing::Get(header)])
        .Text(form.end);
    out.Text(form.accessType)
        .Text(ACCESS_TYPE_WORDS[layout::AccessType::Get(header)])
        .Text(form.end);
    out.Text(form.direction).Text(DIRECTION_WORDS[layout::Direction::Get(header)]).Text(form.end);
    out.Text(form.addressingMode);
    out.Text(ADDRESSING_MODE_WORDS[layout::AddressingMode::Get(header)]).Text(form.end);
    out.Text(form.reg).Decimal(layout::Register::Get(header), 2).Text(form.end);
    out.Text(form.targetAddr).Decimal(layout::TargetAddr::Get(header), 2).Text(form.end);
    out.Text(form.sourceAddr).Decimal(layout::SourceAddr::Get(header), 2).Text(form.end);
    out.Text(form.module).Decimal(module, 2).Text(form.end);
}

/// " 0x" and the digits of a Coding's word.
template <typename Coding>
void WriteElement(Writer& out, const Coding&, std::uint64_t word)
{
    out.Text(" 0x").Hex(word, 2 * Coding::WIDTH);
}

void WriteElement(Writer& out, const payload::FixedPoint& coding, std::uint64_t word)
{
    out.General(static_cast<double>(coding.ToValue(word)));
}

void WriteElement(Writer& out, const payload::Float&, std::uint64_t word)
{
    out.General(payload::Float::ToValue(word));
}

template <typename Coding>
void WriteElements(Writer& out, const std::vector<unsigned char>& data, Coding coding)
{
    const std::size_t size = payload::Holds<Coding>(data.size()) ? data.size() : 0;
    out.Decimal(size / Coding::WIDTH).Text(") : ");
    for (std::size_t at = 0; at < size; at += Coding::WIDTH) {
        WriteElement(out, coding, payload::ReadWord<Coding::WIDTH>(&data[at]));
        out.Text(" - ");
    }
}

void WriteElementsByType(Writer& out, const std::vector<unsigned char>& data, unsigned int type)
{
    switch (type) {
    case TarnMessage::DATATYPE_U8:
        return WriteElements(out, data, payload::U8());
    case TarnMessage::DATATYPE_U16:
        return WriteElements(out, data, payload::U16());
    case TarnMessage::DATATYPE_U24:
        return WriteElements(out, data, payload::U24());
    case TarnMessage::DATATYPE_U32:
        return WriteElements(out, data, payload::U32());
    case TarnMessage::DATATYPE_U48:
        return WriteElements(out, data, payload::U48());
    case TarnMessage::DATATYPE_FLOAT:
        return WriteElements(out, data, payload::Float());
    default:
        return WriteElements(out, data, payload::FixedPoint{type});
    }
}

/// isprint() of the C locale.
bool IsPrintable(unsigned char byte)
{
    return byte >= 0x20 && byte < 0x7F;
}

void WriteRawData(Writer& out, const Form& form, const std::vector<unsigned char>& data)
{
    out.Text(form.rawData).Decimal(data.size()).Text(") : ");
    for (const unsigned char byte : data) {
        out.Text(" - 0x").Hex(byte, 2).Char('(');
        if (IsPrintable(byte))
            out.Char(static_cast<char>(byte));
        out.Char(')');
    }
}

struct Content {
    unsigned int header;
    unsigned int module;
    unsigned int status;
    unsigned int dataType;
    const std::vector<unsigned char>& data;
};

void Render(std::string& text, const Form& form, const Content& content)
{
    text.reserve(HEADER_TEXT_ROOM + TEXT_ROOM_PER_BYTE * content.data.size());
    Writer out(text);
    WriteHeader(out, form, content.header, content.module);
    out.Text(form.status).Text(STATUS_WORDS[content.status]).Text(form.end);
    out.Text(form.payloadType).Text(DATA_TYPE_WORDS[content.dataType]).Text(form.end);
    if (content.dataType <= TarnMessage::DATATYPE_FLOAT) {
        out.Text(form.data);
        WriteElementsByType(out, content.data, content.dataType);
        out.Text(form.end);
    }
    out.Text(form.rawHeader).Hex(content.header).Text(form.end);
    WriteRawData(out, form, content.data);
}

} // namespace

// In both, the text outlives the lock, so that a failing unlock releases it too.

std::string TarnMessage::ToString() const
{
    std::string text;
    {
        ScopedLock lock(mMutex);
        Render(text, LONG_FORM, {mHeader, mModule, mStatus, mDataType, mData});
    }
    return text;
}

std::string TarnMessage::ToStringShort() const
{
    std::string text;
    {
        ScopedLock lock(mMutex);
        Render(text, SHORT_FORM, {mHeader, mModule, mStatus, mDataType, mData});
    }
    return text;
}

} // namespace tarn
