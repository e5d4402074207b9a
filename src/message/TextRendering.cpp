#include "lock/ScopedLock.h"
#include "message/HeaderLayout.h"
#include "message/PayloadCodec.h"

#include <tarn/TarnMessage.h>

#include <array>
#include <charconv>
#include <cstring>

namespace tarn
{

namespace
{

/// A text of the tables below. Copying all of its room takes two moves; copying the characters
/// alone would take a call each.
class Word
{
public:
    template <std::size_t Size>
    constexpr Word(const char (&literal)[Size]) // NOLINT(google-explicit-constructor): for tables
        : mLength(Size - 1)
    {
        static_assert(Size - 1 <= ROOM);
        for (std::size_t i = 0; i < mLength; ++i)
            mText[i] = literal[i];
    }

    static constexpr std::size_t ROOM = 32;

    /// Needs ROOM places; gives back the end of the characters.
    char* CopyTo(char* place) const
    {
        std::memcpy(place, mText.data(), ROOM);
        return place + mLength;
    }

private:
    std::array<char, ROOM> mText = {};
    std::size_t mLength;
};

/// Fills a place that has room for everything. Digits and signs are written here and not by
/// streams, because those follow the process's locale, and a log line must not.
class Writer
{
public:
    explicit Writer(char* place) : mPlace(place) {}

    char* End() const { return mPlace; }

    Writer& Text(const Word& word)
    {
        mPlace = word.CopyTo(mPlace);
        return *this;
    }

    Writer& Char(char character)
    {
        *mPlace++ = character;
        return *this;
    }

    Writer& Decimal(std::size_t value)
    {
        mPlace = std::to_chars(mPlace, mPlace + MAX_DIGITS, value).ptr;
        return *this;
    }

    /// At least two digits.
    Writer& TwoDigits(unsigned int value)
    {
        if (value >= 100)
            return Decimal(value);
        return Char(static_cast<char>('0' + value / 10)).Char(static_cast<char>('0' + value % 10));
    }

    Writer& Hex(unsigned int value)
    {
        mPlace = std::to_chars(mPlace, mPlace + MAX_DIGITS, value, 16).ptr;
        return *this;
    }

    Writer& HexByte(unsigned int byte)
    {
        constexpr const char* DIGITS = "0123456789abcdef";
        return Char(DIGITS[byte >> 4]).Char(DIGITS[byte & 0xFu]);
    }

    /// Six significant digits, as printf's %g writes them in the C locale.
    Writer& General(double value)
    {
        mPlace =
            std::to_chars(mPlace, mPlace + MAX_DIGITS, value, std::chars_format::general, 6).ptr;
        return *this;
    }

private:
    static constexpr std::size_t MAX_DIGITS = 24;

    char* mPlace;
};

constexpr Word TYPE_WORDS[] = {"DATA", "CHCP"};
constexpr Word PRIORITY_WORDS[] = {"SYNC", "EMRGENCY", "CONTROL", "DATA"};
constexpr Word ADDRESSING_WORDS[] = {"GROUP", "DEVICE"};
constexpr Word ACCESS_TYPE_WORDS[] = {"WRITE", "READ"};
constexpr Word DIRECTION_WORDS[] = {"RESPONSE", "REQUEST"};
constexpr Word ADDRESSING_MODE_WORDS[] = {"STANDARD", "EXTENDED"};
constexpr Word STATUS_WORDS[] = {"UNKNOWN",
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
constexpr Word DATA_TYPE_WORDS[] = {"S16F0", "S16F1", "S16F2",   "S16F3",     "S16F4", "S16F5",
                                    "S16F6", "S16F7", "U8",      "U16",       "U24",   "U32",
                                    "U48",   "FLOAT", "INVALID", "NOT A TYPE"};
constexpr Word AFTER_COUNT = ") : ";
constexpr Word AFTER_ELEMENT = " - ";
constexpr Word BEFORE_HEX = " 0x";
constexpr Word BEFORE_RAW_BYTE = " - 0x";

/// What stands before each item.
struct Form {
    Word dataType; ///< before the type word of a DATA message
    Word chcpType;
    Word priority;
    Word addressing;
    Word accessType;
    Word direction;
    Word addressingMode;
    Word reg;
    Word targetAddr;
    Word sourceAddr;
    Word module;
    Word status;
    Word payloadType;
    Word data;
    Word rawHeader;
    Word rawData;
};

constexpr Form LONG_FORM = {"Type:            ",   "Type:            ",
                            "\nPriority:        ", "\nAddressing:      ",
                            "\nAccessType:      ", "\nDirection:       ",
                            "\nAddressingMode:  ", "\nRegister:        ",
                            "\nTargetAddr:      ", "\nSourceAddr:      ",
                            "\nModule:          ", "\nStatus:          ",
                            "\nDataType:        ", "\nData(",
                            "\nRaw-Header : ",     "\nRaw-Data("};

// Only the type of a DATA message goes without a comma: log readers tell the two kinds apart by it.
constexpr Form SHORT_FORM = {"Type: ",        ",Type: ",      ",Priority: ",       ",Addressing: ",
                             ",AccessType: ", ",Direction: ", ",AddressingMode: ", ",Register:",
                             ",TargetAddr:",  ",SourceAddr:", ",Module:",          ",Status: ",
                             ",DataType: ",   ",Data(",       ",Raw-Header : ",    ",Raw-Data("};

/// Room for either form with every value at its longest, without the payload.
constexpr std::size_t HEADER_TEXT_ROOM = 512;
/// The most that a payload byte adds: as an element of its own and as raw data.
constexpr std::size_t TEXT_ROOM_PER_BYTE = 24;

void WriteHeader(Writer& out, const Form& form, unsigned int header, unsigned int module)
{
    const unsigned int type = layout::Type::Get(header);
    out.Text(type == TarnMessage::TYPE_DATA ? form.dataType : form.chcpType);
    out.Text(TYPE_WORDS[type]);
    out.Text(form.priority).Text(PRIORITY_WORDS[layout::Priority::Get(header)]);
    out.Text(form.addressing).Text(ADDRESSING_WORDS[layout::Addressing::Get(header)]);
    out.Text(form.accessType).Text(ACCESS_TYPE_WORDS[layout::AccessType::Get(header)]);
    out.Text(form.direction).Text(DIRECTION_WORDS[layout::Direction::Get(header)]);
    out.Text(form.addressingMode);
    out.Text(ADDRESSING_MODE_WORDS[layout::AddressingMode::Get(header)]);
    out.Text(form.reg).TwoDigits(layout::Register::Get(header));
    out.Text(form.targetAddr).TwoDigits(layout::TargetAddr::Get(header));
    out.Text(form.sourceAddr).TwoDigits(layout::SourceAddr::Get(header));
    out.Text(form.module).TwoDigits(module);
}

/// Writes each element of so many bytes by write(first byte), and their count before them.
template <typename Write>
void WriteElements(Writer& out, const std::vector<unsigned char>& data, std::size_t width,
                   Write write)
{
    const std::size_t size = payload::Holds(data.size(), width) ? data.size() : 0;
    out.Decimal(size / width).Text(AFTER_COUNT);
    for (std::size_t at = 0; at < size; at += width) {
        write(&data[at]);
        out.Text(AFTER_ELEMENT);
    }
}

void WriteIntegers(Writer& out, const std::vector<unsigned char>& data, std::size_t width)
{
    WriteElements(out, data, width, [&](const unsigned char* bytes) {
        out.Text(BEFORE_HEX);
        for (std::size_t i = width; i > 0; --i)
            out.HexByte(bytes[i - 1]);
    });
}

template <typename Coding>
void WriteNumbers(Writer& out, const std::vector<unsigned char>& data, Coding coding)
{
    WriteElements(out, data, Coding::WIDTH, [&](const unsigned char* bytes) {
        out.General(static_cast<double>(coding.ToValue(payload::ReadWord<Coding::WIDTH>(bytes))));
    });
}

void WriteElementsByType(Writer& out, const std::vector<unsigned char>& data, unsigned int type)
{
    switch (type) {
    case TarnMessage::DATATYPE_U8:
        return WriteIntegers(out, data, payload::U8::WIDTH);
    case TarnMessage::DATATYPE_U16:
        return WriteIntegers(out, data, payload::U16::WIDTH);
    case TarnMessage::DATATYPE_U24:
        return WriteIntegers(out, data, payload::U24::WIDTH);
    case TarnMessage::DATATYPE_U32:
        return WriteIntegers(out, data, payload::U32::WIDTH);
    case TarnMessage::DATATYPE_U48:
        return WriteIntegers(out, data, payload::U48::WIDTH);
    case TarnMessage::DATATYPE_FLOAT:
        return WriteNumbers(out, data, payload::Float());
    default:
        return WriteNumbers(out, data, payload::FixedPoint{type});
    }
}

/// isprint() of the C locale.
bool IsPrintable(unsigned char byte)
{
    return byte >= 0x20 && byte < 0x7F;
}

void WriteRawData(Writer& out, const Form& form, const std::vector<unsigned char>& data)
{
    out.Text(form.rawData).Decimal(data.size()).Text(AFTER_COUNT);
    for (const unsigned char byte : data) {
        out.Text(BEFORE_RAW_BYTE).HexByte(byte).Char('(');
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

std::string Render(const Form& form, const Content& content)
{
    std::string text(HEADER_TEXT_ROOM + TEXT_ROOM_PER_BYTE * content.data.size(), '\0');
    Writer out(text.data());
    WriteHeader(out, form, content.header, content.module);
    out.Text(form.status).Text(STATUS_WORDS[content.status]);
    out.Text(form.payloadType).Text(DATA_TYPE_WORDS[content.dataType]);
    if (content.dataType <= TarnMessage::DATATYPE_FLOAT) {
        out.Text(form.data);
        WriteElementsByType(out, content.data, content.dataType);
    }
    out.Text(form.rawHeader).Hex(content.header);
    WriteRawData(out, form, content.data);
    text.resize(static_cast<std::size_t>(out.End() - text.data()));
    return text;
}

} // namespace

// In both, the text outlives the lock, so that a failing unlock releases it too.

std::string TarnMessage::ToString() const
{
    std::string text;
    {
        ScopedLock lock(mMutex);
        text = Render(LONG_FORM, {mHeader, mModule, mStatus, mDataType, mData});
    }
    return text;
}

std::string TarnMessage::ToStringShort() const
{
    std::string text;
    {
        ScopedLock lock(mMutex);
        text = Render(SHORT_FORM, {mHeader, mModule, mStatus, mDataType, mData});
    }
    return text;
}

} // namespace tarn
