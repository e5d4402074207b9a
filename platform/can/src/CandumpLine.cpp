#include <plexa_can/CandumpLine.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <limits>
#include <string_view>

namespace tarn
{

namespace
{

constexpr unsigned int ERROR_MARK = 0x20000000u;
constexpr unsigned int EXTENDED_MASK = 0x1FFFFFFFu;
constexpr unsigned int STANDARD_MASK = 0x7FFu;
constexpr std::size_t EXTENDED_DIGITS = 8;
constexpr std::size_t STANDARD_DIGITS = 3;
constexpr std::size_t MAX_FD_DATA_SIZE = 64;

constexpr std::uint64_t NANOSECONDS = 1000000000u;
/// candump pads seconds since 1970 to ten digits and differences to three.
constexpr unsigned int ABSOLUTE_SECOND_DIGITS = 10;
/// As many as a time stamp of CanMessage holds, up to the year 2554.
constexpr unsigned int MAX_SECOND_DIGITS = 11;
constexpr unsigned int MAX_DECIMALS = 9;

constexpr unsigned char NO_DIGIT = 0xFF;

constexpr std::array<unsigned char, 256> HexDigits()
{
    std::array<unsigned char, 256> values = {};
    for (auto& value : values)
        value = NO_DIGIT;
    for (unsigned char digit = 0; digit < 10; ++digit)
        values[static_cast<std::size_t>('0' + digit)] = digit;
    for (unsigned char digit = 10; digit < 16; ++digit) {
        values[static_cast<std::size_t>('A' + digit - 10)] = digit;
        values[static_cast<std::size_t>('a' + digit - 10)] = digit;
    }
    return values;
}

constexpr std::array<unsigned char, 256> HEX_DIGITS = HexDigits();

unsigned int HexValue(char character)
{
    return HEX_DIGITS[static_cast<unsigned char>(character)];
}

bool IsBlank(char character)
{
    return character == ' ' || character == '\t';
}

bool IsDecimal(char character)
{
    return character >= '0' && character <= '9';
}

bool IsLower(char character)
{
    return character >= 'a' && character <= 'z';
}

bool IsPrintable(char character)
{
    return character > ' ' && character <= '~';
}

/// Days from 1970-01-01 to a date of the Gregorian calendar.
std::uint64_t DaysSince1970(std::uint64_t year, std::uint64_t month, std::uint64_t day)
{
    // Counted in years that begin in March, so that the leap day is the last of its year.
    const std::uint64_t shifted = month > 2 ? year : year - 1;
    const std::uint64_t monthFromMarch = month > 2 ? month - 3 : month + 9;
    const std::uint64_t dayOfYear = (153 * monthFromMarch + 2) / 5 + day - 1;
    constexpr std::uint64_t DAYS_TO_1970 = 719468;
    return 365 * shifted + shifted / 4 - shifted / 100 + shifted / 400 + dayOfYear - DAYS_TO_1970;
}

std::uint64_t DaysOfMonth(std::uint64_t year, std::uint64_t month)
{
    const std::uint64_t nextYear = month == 12 ? year + 1 : year;
    return DaysSince1970(nextYear, month % 12 + 1, 1) - DaysSince1970(year, month, 1);
}

/// Walks over one line. The operations read a part of it, or return false with reason and column
/// set.
class LineParser
{
public:
    LineParser(std::string_view text, CandumpLine& line)
        : mBegin(text.data()),
          mAt(text.data()),
          mEnd(text.data() + text.size()),
          mLine(line)
    {
    }

    bool Parse()
    {
        const bool tabbed = !AtEnd() && *mAt == '\t';
        SkipBlanks();
        if (AtEnd() || *mAt == '#' || (tabbed && IsErrorExplanation()))
            return Accept(CandumpLine::KIND_COMMENT);
        if (*mAt == '(' && !TimeStamp())
            return false;
        SkipBlanks();
        if (!IsBareFrame() && !InterfaceName())
            return false;
        return Identifier() && (Take('#') ? LogForm() : ConsoleForm()) && End();
    }

private:
    bool AtEnd() const { return mAt == mEnd; }

    bool Is(char character) const { return !AtEnd() && *mAt == character; }

    bool Take(char character)
    {
        const bool found = Is(character);
        if (found)
            ++mAt;
        return found;
    }

    bool Take(std::string_view word)
    {
        const bool found = Rest().substr(0, word.size()) == word;
        if (found)
            mAt += word.size();
        return found;
    }

    std::string_view Rest() const { return {mAt, static_cast<std::size_t>(mEnd - mAt)}; }

    bool SkipBlanks()
    {
        const char* const from = mAt;
        while (!AtEnd() && IsBlank(*mAt))
            ++mAt;
        return mAt != from;
    }

    const char* WordEnd() const { return std::find_if(mAt, mEnd, IsBlank); }

    bool Accept(CandumpLine::tKind kind)
    {
        mLine.kind = kind;
        return true;
    }

    bool Refuse(const char* reason, const char* where)
    {
        mLine.kind = CandumpLine::KIND_MALFORMED;
        mLine.reason = reason;
        mLine.column = static_cast<std::size_t>(where - mBegin) + 1;
        return false;
    }

    bool Refuse(const char* reason) { return Refuse(reason, mAt); }

    bool End()
    {
        SkipBlanks();
        return AtEnd() || Refuse("text after the frame");
    }

    /// "controller-problem{rx-error-warning}": a name of lower-case words with hyphens.
    bool IsErrorExplanation() const
    {
        const char* const end = std::find_if(
            mAt, mEnd, [](char character) { return !IsLower(character) && character != '-'; });
        return IsLower(*mAt) && std::find(mAt, end, '-') != end && (end == mEnd || *end == '{');
    }

    /// "0F800001#20" at the place of the interface.
    bool IsBareFrame() const
    {
        const char* const end = WordEnd();
        const char* const mark = std::find(mAt, end, '#');
        return mark != end && mark != mAt &&
               std::all_of(mAt, mark, [](char digit) { return HexValue(digit) != NO_DIGIT; });
    }

    bool InterfaceName()
    {
        const char* const end = WordEnd();
        const auto size = static_cast<std::size_t>(end - mAt);
        if (size == 0)
            return Refuse("nothing after the time stamp");
        if (size >= CandumpLine::INTERFACE_SIZE)
            return Refuse("interface name of more than 15 characters");
        const char* const odd = std::find_if_not(mAt, end, IsPrintable);
        if (odd != end)
            return Refuse("character that no interface name has", odd);
        std::copy(mAt, end, mLine.interfaceName);
        mAt = end;
        return SkipBlanks() ? DirectionAndFlags() : Refuse("nothing after the interface name");
    }

    /// "RX - - ": candump -x.
    bool DirectionAndFlags()
    {
        if (!Direction("RX ", "TX "))
            return true;
        for (const char flag : {'B', 'E'}) {
            SkipBlanks();
            if (!Take(flag) && !Take('-'))
                return Refuse("flags after RX or TX are neither set nor '-'");
        }
        return SkipBlanks() || Refuse("no identifier");
    }

    bool Direction(std::string_view received, std::string_view sent)
    {
        if (Take(received))
            mLine.direction = CandumpLine::DIRECTION_RECEIVED;
        else if (Take(sent))
            mLine.direction = CandumpLine::DIRECTION_SENT;
        return mLine.direction != CandumpLine::DIRECTION_UNKNOWN;
    }

    bool Number(std::size_t minDigits, std::size_t maxDigits, std::uint64_t& value)
    {
        const char* const from = mAt;
        value = 0;
        while (!AtEnd() && IsDecimal(*mAt) && static_cast<std::size_t>(mAt - from) < maxDigits)
            value = 10 * value + static_cast<std::uint64_t>(*mAt++ - '0');
        return static_cast<std::size_t>(mAt - from) >= minDigits ||
               Refuse("no number in the time stamp");
    }

    bool TimeStamp()
    {
        const char* const from = ++mAt;
        const bool dated = Rest().size() > 4 && mAt[4] == '-';
        std::uint64_t seconds = 0;
        std::uint64_t fraction = 0;
        if (!(dated ? Date(seconds) : Seconds(seconds)) || !Fraction(fraction))
            return false;
        if (!Take(')'))
            return Refuse("time stamp does not end with ')'");
        if (seconds > (std::numeric_limits<std::uint64_t>::max() - fraction) / NANOSECONDS)
            return Refuse("time stamp after the year 2554", from);
        mLine.frame.SetTimeStamp(seconds * NANOSECONDS + fraction);
        return true;
    }

    bool Seconds(std::uint64_t& seconds)
    {
        const char* const from = mAt;
        if (!Number(1, MAX_SECOND_DIGITS, seconds))
            return false;
        const bool absolute = static_cast<std::size_t>(mAt - from) >= ABSOLUTE_SECOND_DIGITS;
        mLine.timeForm = absolute ? CandumpLine::TIME_ABSOLUTE : CandumpLine::TIME_RELATIVE;
        return true;
    }

    bool Date(std::uint64_t& seconds)
    {
        const char* const from = mAt;
        std::uint64_t year = 0, month = 0, day = 0, hour = 0, minute = 0, second = 0;
        if (!Number(4, 4, year) || !Separator('-') || !Number(2, 2, month) || !Separator('-') ||
            !Number(2, 2, day) || !Separator(' ') || !Number(2, 2, hour) || !Separator(':') ||
            !Number(2, 2, minute) || !Separator(':') || !Number(2, 2, second))
            return false;
        const bool exists = year >= 1970 && year <= 2500 && month >= 1 && month <= 12 && day >= 1 &&
                            day <= DaysOfMonth(year, month) && hour < 24 && minute < 60 &&
                            second <= 60;
        if (!exists)
            return Refuse("no such date or time of day", from);
        seconds = ((DaysSince1970(year, month, day) * 24 + hour) * 60 + minute) * 60 + second;
        mLine.timeForm = CandumpLine::TIME_DATE;
        return true;
    }

    bool Separator(char character)
    {
        return Take(character) || Refuse("date is not YYYY-MM-DD HH:MM:SS");
    }

    bool Fraction(std::uint64_t& nanoseconds)
    {
        if (!Take('.'))
            return true;
        const char* const from = mAt;
        if (!Number(1, MAX_DECIMALS, nanoseconds))
            return false;
        mLine.timeDecimals = static_cast<unsigned int>(mAt - from);
        for (unsigned int digit = mLine.timeDecimals; digit < MAX_DECIMALS; ++digit)
            nanoseconds *= 10;
        return true;
    }

    bool Identifier()
    {
        const char* const from = mAt;
        std::uint64_t value = 0;
        while (!AtEnd() && HexValue(*mAt) != NO_DIGIT && mAt - from <= 8)
            value = 16 * value + HexValue(*mAt++);
        const auto digits = static_cast<std::size_t>(mAt - from);
        if (!AtEnd() && *mAt != '#' && !IsBlank(*mAt))
            return Refuse(digits > EXTENDED_DIGITS ? "identifier of more than 8 digits"
                                                   : "character that is no digit of an identifier");
        if (digits != EXTENDED_DIGITS && digits != STANDARD_DIGITS)
            return Refuse("identifier has neither 8 digits nor 3", from);
        return SetIdentifier(static_cast<unsigned int>(value), digits == EXTENDED_DIGITS) ||
               Refuse("identifier is out of range", from);
    }

    bool SetIdentifier(unsigned int value, bool extended)
    {
        const bool error = extended && (value & ERROR_MARK) != 0;
        const unsigned int mask = extended ? EXTENDED_MASK : STANDARD_MASK;
        mLine.frame.SetHeader(value & mask);
        if (error)
            mLine.frame.GetFlags() = CanMessage::FLAG_ERROR;
        else if (extended)
            mLine.frame.GetFlags() = CanMessage::FLAG_EXTENDED;
        return (value & ~(error ? mask | ERROR_MARK : mask)) == 0;
    }

    bool LogForm()
    {
        const char* const data = mAt;
        if (!(Take('#') ? LogFdData() : LogData()))
            return false;
        if (!AtEnd() && !SkipBlanks())
            return Refuse(mAt == data ? "data are no hexadecimal digits"
                                      : "character that is no digit of the data");
        Direction("R", "T");
        return true;
    }

    bool LogFdData()
    {
        if (AtEnd() || HexValue(*mAt) == NO_DIGIT)
            return Refuse("no flags after '##'");
        ++mAt;
        std::array<unsigned char, MAX_FD_DATA_SIZE> bytes = {};
        std::size_t size = 0;
        return Pairs(bytes.data(), MAX_FD_DATA_SIZE, size) && Accept(CandumpLine::KIND_FD_FRAME);
    }

    bool LogData()
    {
        if (Take('R'))
            return LogRemoteLength();
        std::array<unsigned char, CanMessage::MAX_DATA_SIZE> bytes = {};
        std::size_t size = 0;
        if (!Pairs(bytes.data(), bytes.size(), size) || !LengthCode())
            return false;
        mLine.frame.SetBytes(bytes.data(), size);
        return Accept(CandumpLine::KIND_FRAME);
    }

    bool LogRemoteLength()
    {
        mLine.frame.GetFlags() |= CanMessage::FLAG_REMOTE;
        if (!AtEnd() && IsDecimal(*mAt) && *mAt++ > '8')
            return Refuse("length of more than 8", mAt - 1);
        return LengthCode() && Accept(CandumpLine::KIND_FRAME);
    }

    /// "_9": the length code that stood on the wire for 8 bytes.
    bool LengthCode()
    {
        if (!Take('_'))
            return true;
        if (AtEnd() || HexValue(*mAt) == NO_DIGIT)
            return Refuse("no length code after '_'");
        ++mAt;
        return true;
    }

    bool Pairs(unsigned char* bytes, std::size_t room, std::size_t& size)
    {
        while (!AtEnd() && HexValue(*mAt) != NO_DIGIT) {
            if (size == room)
                return Refuse(room == MAX_FD_DATA_SIZE ? "more than 64 data bytes"
                                                       : "more than 8 data bytes");
            if (!Pair(bytes[size++]))
                return false;
            if (Is('.'))
                ++mAt;
        }
        return true;
    }

    bool Pair(unsigned char& byte)
    {
        const bool both =
            mEnd - mAt >= 2 && HexValue(mAt[0]) != NO_DIGIT && HexValue(mAt[1]) != NO_DIGIT;
        if (!both)
            return Refuse("data byte has not two hexadecimal digits");
        byte = static_cast<unsigned char>(16 * HexValue(mAt[0]) + HexValue(mAt[1]));
        mAt += 2;
        return true;
    }

    bool ConsoleForm()
    {
        SkipBlanks();
        std::size_t size = 0;
        bool flexible = false;
        if (!Length(size, flexible))
            return false;
        SkipBlanks();
        if (!flexible && Take("remote request")) {
            mLine.frame.GetFlags() |= CanMessage::FLAG_REMOTE;
            return Accept(CandumpLine::KIND_FRAME);
        }
        return ConsoleData(size, flexible) && ConsoleRemark(size);
    }

    /// "[8]"; a CAN FD frame has two digits.
    bool Length(std::size_t& size, bool& flexible)
    {
        const char* const from = mAt;
        if (!Take('['))
            return Refuse("neither '#' nor '[' after the identifier");
        while (!AtEnd() && IsDecimal(*mAt) && mAt - from <= 2)
            size = 10 * size + static_cast<std::size_t>(*mAt++ - '0');
        flexible = mAt - from == 3;
        if (mAt - from == 1 || !Take(']'))
            return Refuse("length in brackets is no number of one or two digits");
        if (size > (flexible ? MAX_FD_DATA_SIZE : CanMessage::MAX_DATA_SIZE))
            return Refuse(flexible ? "length of more than 64" : "length of more than 8", from);
        return true;
    }

    bool ConsoleData(std::size_t size, bool flexible)
    {
        std::array<unsigned char, MAX_FD_DATA_SIZE> bytes = {};
        for (std::size_t at = 0; at < size; ++at) {
            SkipBlanks();
            if (AtEnd())
                return Refuse("fewer data bytes than the length says");
            if (!Pair(bytes[at]))
                return false;
            if (Is('`'))
                return Refuse("data bytes in swapped order (candump -S)");
            if (!AtEnd() && !IsBlank(*mAt))
                return Refuse("data byte of more than two digits");
        }
        if (flexible)
            return Accept(CandumpLine::KIND_FD_FRAME);
        mLine.frame.SetBytes(bytes.data(), size);
        return Accept(CandumpLine::KIND_FRAME);
    }

    /// What candump puts behind the data: ERRORFRAME, and with -a the data as text.
    bool ConsoleRemark(std::size_t size)
    {
        SkipBlanks();
        if (Take("ERRORFRAME"))
            mLine.frame.GetFlags() = CanMessage::FLAG_ERROR;
        SkipBlanks();
        const std::size_t quoted = size + 2;
        const std::string_view rest = Rest();
        if (Is('\'') && rest.size() >= quoted && rest[quoted - 1] == '\'')
            mAt += quoted;
        if (!AtEnd() && HexValue(*mAt) != NO_DIGIT)
            return Refuse("more data bytes than the length says");
        return true;
    }

    const char* mBegin;
    const char* mAt;
    const char* mEnd;
    CandumpLine& mLine;
};

} // namespace

bool ParseCandumpLine(const char* text, std::size_t size, CandumpLine& line)
{
    if (size > 0 && text[size - 1] == '\r')
        --size;
    line = CandumpLine();
    return LineParser(std::string_view(text, size), line).Parse();
}

} // namespace tarn
