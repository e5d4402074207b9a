#include <plexa_can/SocketCandText.h>

#include <algorithm>
#include <cstdint>
#include <string_view>

namespace tarn
{

namespace
{

using Element = SocketCandElement;

constexpr unsigned int ERROR_MARK = 0x20000000u;
constexpr unsigned int EXTENDED_MASK = 0x1FFFFFFFu;
constexpr unsigned int STANDARD_MASK = 0x7FFu;
constexpr std::size_t STANDARD_DIGITS = 3;
constexpr std::size_t EXTENDED_DIGITS = 8;
constexpr std::size_t SECOND_DIGITS = 10;
constexpr std::size_t MAX_DECIMALS = 9;
constexpr std::uint64_t NANOSECONDS = 1000000000u;
constexpr std::size_t MAX_BUS_NAME = 64;
/// Room for a complaint beside "< error " and " >".
constexpr std::size_t MAX_COMPLAINT = Element::MAX_SIZE - 16;

bool IsBlank(char character)
{
    return character == ' ' || character == '\t' || character == '\r' || character == '\n';
}

bool IsPrintable(char character)
{
    return character > ' ' && character <= '~';
}

int HexValue(char character)
{
    if (character >= '0' && character <= '9')
        return character - '0';
    if (character >= 'A' && character <= 'F')
        return character - 'A' + 10;
    if (character >= 'a' && character <= 'f')
        return character - 'a' + 10;
    return -1;
}

/// A number of 1 to most digits, and nothing else.
bool Number(std::string_view digits, unsigned int base, std::size_t most, std::uint64_t& value)
{
    value = 0;
    for (const char character : digits) {
        const int digit = HexValue(character);
        if (digit < 0 || static_cast<unsigned int>(digit) >= base)
            return false;
        value = value * base + static_cast<unsigned int>(digit);
    }
    return !digits.empty() && digits.size() <= most;
}

/// The element between its brackets, word by word.
class ElementParser
{
public:
    ElementParser(std::string_view inside, Element& element) : mRest(inside), mElement(element) {}

    bool Parse()
    {
        const std::string_view word = Word();
        if (word.empty())
            return Refuse("no command between the brackets");
        if (word == "send")
            return Send(false);
        if (word == "sendrtr")
            return Send(true);
        if (word == "frame")
            return Frame();
        if (word == "rtr")
            return Remote();
        if (word == "error")
            return Error();
        if (word == "open")
            return Open();
        return Plain(word);
    }

private:
    bool Refuse(const char* reason)
    {
        mElement.kind = Element::KIND_MALFORMED;
        mElement.reason = reason;
        return false;
    }

    bool Accept(Element::tKind kind)
    {
        mElement.kind = kind;
        return true;
    }

    void SkipBlanks()
    {
        while (!mRest.empty() && IsBlank(mRest.front()))
            mRest.remove_prefix(1);
    }

    /// The next word; empty at the end.
    std::string_view Word()
    {
        SkipBlanks();
        const auto* const end = std::find_if(mRest.begin(), mRest.end(), IsBlank);
        const auto size = static_cast<std::size_t>(end - mRest.begin());
        const std::string_view word = mRest.substr(0, size);
        mRest.remove_prefix(size);
        return word;
    }

    bool AtEnd()
    {
        SkipBlanks();
        return mRest.empty();
    }

    bool Plain(std::string_view word)
    {
        static constexpr struct {
            std::string_view word;
            Element::tKind kind;
        } WORDS[] = {{"hi", Element::KIND_HI},
                     {"ok", Element::KIND_OK},
                     {"rawmode", Element::KIND_RAWMODE},
                     {"echo", Element::KIND_ECHO}};
        for (const auto& known : WORDS) {
            if (word == known.word)
                return AtEnd() ? Accept(known.kind) : Refuse("the command takes nothing more");
        }
        SetText(word);
        return Accept(Element::KIND_UNKNOWN);
    }

    bool Open()
    {
        const std::string_view name = Word();
        if (!IsSocketCandBusName(std::string(name.substr(0, MAX_BUS_NAME + 1))))
            return Refuse("a bus has a name of 1 to 64 printable characters");
        if (!AtEnd())
            return Refuse("more than the name of one bus");
        SetText(name);
        return Accept(Element::KIND_OPEN);
    }

    bool Send(bool remote)
    {
        std::size_t size = 0;
        if (!Identifier(Word()) || !Length(Word(), size))
            return false;
        if (remote && mElement.frame.HasError())
            return Refuse("an error frame is no remote request");
        std::array<unsigned char, CanMessage::MAX_DATA_SIZE> bytes = {};
        for (std::size_t at = 0; !remote && at < size; ++at) {
            std::uint64_t byte = 0;
            if (!Number(Word(), 16, 2, byte))
                return Refuse("not as many bytes of 1 or 2 hexadecimal digits as the length says");
            bytes[at] = static_cast<unsigned char>(byte);
        }
        if (!AtEnd())
            return Refuse("more bytes than the length says");
        SetData(remote, bytes.data(), size);
        return Accept(Element::KIND_SEND);
    }

    bool Frame()
    {
        return Identifier(Word()) && Time(Word()) && Data() && Accept(Element::KIND_FRAME);
    }

    bool Remote()
    {
        std::size_t size = 0;
        if (!Identifier(Word()) || !Time(Word()) || !Length(Word(), size))
            return false;
        if (!AtEnd())
            return Refuse("a remote request has no bytes");
        if (mElement.frame.HasError())
            return Refuse("an error frame is no remote request");
        SetData(true, nullptr, size);
        return Accept(Element::KIND_FRAME);
    }

    /// An error frame where a class and a time follow, else a complaint in words.
    bool Error()
    {
        const std::string_view words = mRest;
        std::uint64_t errorClass = 0;
        const bool isFrame = Number(Word(), 16, EXTENDED_DIGITS, errorClass) && Time(Word());
        if (!isFrame) {
            mRest = words;
            SkipBlanks();
            SetText(mRest);
            mElement.frame = CanMessage();
            mElement.reason = "";
            return Accept(Element::KIND_ERROR);
        }
        mElement.frame.SetHeader(static_cast<unsigned int>(errorClass) & EXTENDED_MASK);
        mElement.frame.GetFlags() = CanMessage::FLAG_ERROR;
        return Data() && Accept(Element::KIND_FRAME);
    }

    bool Identifier(std::string_view word)
    {
        std::uint64_t value = 0;
        if (!Number(word, 16, EXTENDED_DIGITS, value))
            return Refuse("the identifier is no number of 1 to 8 hexadecimal digits");
        const bool error = (value & ERROR_MARK) != 0;
        if ((value & ~std::uint64_t{EXTENDED_MASK | ERROR_MARK}) != 0)
            return Refuse("the identifier is above 1FFFFFFF");
        const bool extended = word.size() > STANDARD_DIGITS || value > STANDARD_MASK;
        mElement.frame.SetHeader(static_cast<unsigned int>(value) & EXTENDED_MASK);
        if (error)
            mElement.frame.GetFlags() = CanMessage::FLAG_ERROR;
        else if (extended)
            mElement.frame.GetFlags() = CanMessage::FLAG_EXTENDED;
        return true;
    }

    bool Length(std::string_view word, std::size_t& size)
    {
        std::uint64_t value = 0;
        if (!Number(word, 16, 2, value) || value > CanMessage::MAX_DATA_SIZE)
            return Refuse("the length is no number from 0 to 8");
        size = static_cast<std::size_t>(value);
        return true;
    }

    bool Time(std::string_view word)
    {
        const std::size_t point = std::min(word.find('.'), word.size());
        const std::string_view decimals = word.substr(std::min(point + 1, word.size()));
        std::uint64_t seconds = 0;
        std::uint64_t fraction = 0;
        const bool whole = Number(word.substr(0, point), 10, SECOND_DIGITS, seconds);
        if (!whole || !Number(decimals, 10, MAX_DECIMALS, fraction))
            return Refuse("the time is not SECONDS.FRACTION");
        for (std::size_t digit = decimals.size(); digit < MAX_DECIMALS; ++digit)
            fraction *= 10;
        mElement.frame.SetTimeStamp(seconds * NANOSECONDS + fraction);
        return true;
    }

    /// Bytes of two digits in a row, or parted by blanks.
    bool Data()
    {
        std::array<unsigned char, CanMessage::MAX_DATA_SIZE> bytes = {};
        std::size_t size = 0;
        while (!AtEnd()) {
            std::string_view word = Word();
            for (; !word.empty(); word.remove_prefix(2)) {
                std::uint64_t byte = 0;
                if (word.size() < 2 || !Number(word.substr(0, 2), 16, 2, byte))
                    return Refuse("a byte has not two hexadecimal digits");
                if (size == bytes.size())
                    return Refuse("more than 8 bytes");
                bytes[size++] = static_cast<unsigned char>(byte);
            }
        }
        mElement.frame.SetBytes(bytes.data(), size);
        return true;
    }

    /// A remote request is a question without data, whatever length it asks for.
    void SetData(bool remote, const unsigned char* bytes, std::size_t size)
    {
        if (remote)
            mElement.frame.GetFlags() |= CanMessage::FLAG_REMOTE;
        else
            mElement.frame.SetBytes(bytes, size);
    }

    void SetText(std::string_view text)
    {
        while (!text.empty() && IsBlank(text.back()))
            text.remove_suffix(1);
        const std::size_t size = std::min(text.size(), mElement.text.size() - 1);
        std::transform(text.begin(), text.begin() + static_cast<std::ptrdiff_t>(size),
                       mElement.text.begin(), [](char character) {
                           return IsPrintable(character) || character == ' ' ? character : '?';
                       });
    }

    std::string_view mRest;
    Element& mElement;
};

void AppendHex(std::string& text, unsigned int value, std::size_t digits)
{
    for (std::size_t digit = digits; digit > 0; --digit)
        text += "0123456789ABCDEF"[(value >> (4 * (digit - 1))) & 0xFu];
}

void AppendIdentifier(std::string& text, const CanMessage& frame)
{
    if ((frame.GetFlags() & CanMessage::FLAG_EXTENDED) != 0)
        AppendHex(text, frame.GetHeader() & EXTENDED_MASK, EXTENDED_DIGITS);
    else
        AppendHex(text, frame.GetHeader() & STANDARD_MASK, STANDARD_DIGITS);
}

/// Of an error frame: 3 digits where they do, as the first classes of linux/can/error.h.
void AppendClass(std::string& text, unsigned int errorClass)
{
    AppendHex(text, errorClass, errorClass > 0xFFFu ? EXTENDED_DIGITS : STANDARD_DIGITS);
}

void AppendTime(std::string& text, unsigned long long nanoseconds)
{
    constexpr std::size_t DECIMALS = 6;
    const std::string fraction = std::to_string(nanoseconds % NANOSECONDS / 1000);
    text += ' ' + std::to_string(nanoseconds / NANOSECONDS) + '.';
    text.append(DECIMALS - fraction.size(), '0');
    text += fraction;
}

void AppendBytes(std::string& text, const CanMessage& frame, const char* between)
{
    for (std::size_t at = 0; at < frame.GetDataSize(); ++at) {
        text += between;
        AppendHex(text, frame.GetBytes()[at], 2);
    }
}

} // namespace

bool ParseSocketCandElement(const char* text, std::size_t size, SocketCandElement& element)
{
    element = SocketCandElement();
    const bool whole = size >= 2 && text[0] == '<' && text[size - 1] == '>';
    if (!whole || size > Element::MAX_SIZE) {
        element.reason = whole ? "longer than 256 characters" : "not between '<' and '>'";
        return false;
    }
    const std::string_view inside(text + 1, size - 2);
    const bool plain = std::all_of(inside.begin(), inside.end(), [](char character) {
        return (IsPrintable(character) && character != '<' && character != '>') ||
               IsBlank(character);
    });
    if (plain)
        return ElementParser(inside, element).Parse();
    element.reason = "a character that is not printable, or a bracket";
    return false;
}

// The stream.

bool SocketCandReader::Next(const char*& at, const char* end, SocketCandElement& element)
{
    while (at != end) {
        if (Take(*at++, element))
            return true;
    }
    return false;
}

void SocketCandReader::Reset()
{
    mState = STATE_BETWEEN;
    mSize = 0;
}

bool SocketCandReader::Take(char character, SocketCandElement& element)
{
    switch (mState) {
    case STATE_INSIDE:
        return TakeInside(character, element);
    case STATE_TOO_LONG:
        if (character == '>')
            mState = STATE_BETWEEN;
        return false;
    default:
        return Begin(character, element);
    }
}

bool SocketCandReader::Begin(char character, SocketCandElement& element)
{
    if (character == '<') {
        mState = STATE_INSIDE;
        mText[0] = character;
        mSize = 1;
        return false;
    }
    if (mState == STATE_JUNK || IsBlank(character))
        return false;
    mState = STATE_JUNK;
    element = SocketCandElement();
    element.reason = "characters that stand in no brackets";
    return true;
}

bool SocketCandReader::TakeInside(char character, SocketCandElement& element)
{
    if (mSize == mText.size()) {
        mState = character == '>' ? STATE_BETWEEN : STATE_TOO_LONG;
        element = SocketCandElement();
        element.reason = "longer than 256 characters";
        return true;
    }
    mText[mSize++] = character;
    if (character != '>')
        return false;
    mState = STATE_BETWEEN;
    ParseSocketCandElement(mText.data(), mSize, element);
    return true;
}

// Writing.

void AppendSocketCandFrame(const CanMessage& frame, std::string& text)
{
    const bool remote = (frame.GetFlags() & CanMessage::FLAG_REMOTE) != 0;
    if (frame.HasError()) {
        text += "< error ";
        AppendClass(text, frame.GetHeader() & EXTENDED_MASK);
    } else {
        text += remote ? "< rtr " : "< frame ";
        AppendIdentifier(text, frame);
    }
    AppendTime(text, frame.GetTimeStamp());
    if (remote && !frame.HasError()) {
        text += " 0 >";
        return;
    }
    // A frame without bytes keeps the blank ahead of them: there are clients that look for it.
    if (!frame.HasError() || frame.GetDataSize() != 0)
        text += ' ';
    AppendBytes(text, frame, "");
    text += " >";
}

void AppendSocketCandSend(const CanMessage& frame, std::string& text)
{
    const bool remote = (frame.GetFlags() & CanMessage::FLAG_REMOTE) != 0 && !frame.HasError();
    text += remote ? "< sendrtr " : "< send ";
    if (frame.HasError())
        AppendHex(text, (frame.GetHeader() & EXTENDED_MASK) | ERROR_MARK, EXTENDED_DIGITS);
    else
        AppendIdentifier(text, frame);
    text += ' ';
    AppendHex(text, remote ? 0 : static_cast<unsigned int>(frame.GetDataSize()), 1);
    if (!remote)
        AppendBytes(text, frame, " ");
    text += " >";
}

void AppendSocketCandError(const std::string& complaint, std::string& text)
{
    text += "< error ";
    for (const char character : complaint.substr(0, MAX_COMPLAINT)) {
        const bool fits = (IsPrintable(character) && character != '<' && character != '>');
        text += fits || character == ' ' ? character : '?';
    }
    text += " >";
}

bool IsSocketCandBusName(const std::string& name)
{
    return !name.empty() && name.size() <= MAX_BUS_NAME &&
           std::all_of(name.begin(), name.end(), [](char character) {
               return IsPrintable(character) && character != '<' && character != '>';
           });
}

} // namespace tarn
