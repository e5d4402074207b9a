#include "MonitorText.h"

#include "ErrorFrameWords.h"
#include "Sparkline.h"
#include "TextPrinter.h"
#include "Words.h"

#include <algorithm>
#include <array>
#include <cstdio>

namespace tarn::tool
{

namespace
{

constexpr unsigned int TIME_DECIMALS = 6;

OutputBuffer& Scratch()
{
    static thread_local OutputBuffer out(-1);
    return out;
}

CandumpLine LineOf(const CanMessage& frame)
{
    CandumpLine line;
    line.kind = CandumpLine::KIND_FRAME;
    line.timeForm = CandumpLine::TIME_ABSOLUTE;
    line.timeDecimals = TIME_DECIMALS;
    line.frame = frame;
    return line;
}

char ToLower(char character)
{
    return character >= 'A' && character <= 'Z' ? static_cast<char>(character + ('a' - 'A'))
                                                : character;
}

bool Contains(std::string_view text, std::string_view part)
{
    return std::search(text.begin(), text.end(), part.begin(), part.end(),
                       [](char one, char other) { return ToLower(one) == ToLower(other); }) !=
           text.end();
}

std::string WithDecimals(double number, int decimals)
{
    std::array<char, 40> text = {};
    std::snprintf(text.data(), text.size(), "%.*f", decimals, number);
    return text.data();
}

/// The last minute, the oldest second first, without the one that is running.
std::vector<double> RatesOf(const MonitorRow& row, Duration now)
{
    std::vector<double> rates;
    for (std::int64_t ago = LastMinute<MonitorRow::Second>::SECONDS - 1; ago > 0; --ago) {
        const std::uint32_t count = row.GetSecond(now, ago).count;
        rates.push_back(count == 0 ? std::numeric_limits<double>::quiet_NaN() : count);
    }
    return rates;
}

std::vector<double> NumbersOf(const MonitorRow& row, Duration now)
{
    std::vector<double> numbers;
    for (std::int64_t ago = LastMinute<MonitorRow::Second>::SECONDS - 2; ago >= 0; --ago)
        numbers.push_back(row.GetSecond(now, ago).number);
    return numbers;
}

} // namespace

std::vector<std::string> DataParts(const MessageFields& fields, const Installation* names)
{
    OutputBuffer& out = Scratch();
    std::vector<std::string> parts;
    if (fields.IsChcp()) {
        PutChcp(fields, out);
        return {out.TakeText()};
    }
    const MessageNames known = NamesOf(names, fields);
    if (fields.values.kind == PayloadValues::NONE) {
        PutData(fields, known, out);
        return {out.TakeText()};
    }
    for (std::size_t at = 0; at < fields.values.count; ++at) {
        if (known.values != nullptr)
            out.Put(NamedValue(*known.values, fields.values, at));
        else
            PutValue(fields.values, at, out);
        parts.push_back(out.TakeText());
    }
    return parts;
}

std::string JoinedParts(const std::vector<std::string>& parts)
{
    std::string text;
    for (const std::string& part : parts)
        text += (text.empty() ? "" : " ") + part;
    return text;
}

bool Matches(const MonitorRow& row, const Installation* names, std::string_view text)
{
    if (text.empty())
        return true;
    const std::string line = row.GetAddresses() + ' ' + row.GetRegister() + ' ' + row.GetKind() +
                             ' ' + std::string(STATUS_WORDS[row.GetFields().status]) + ' ' +
                             JoinedParts(DataParts(row.GetFields(), names));
    return Contains(line, text);
}

std::string RateText(std::optional<double> rate)
{
    if (!rate)
        return "-";
    return WithDecimals(*rate, *rate < 99.95 ? 1 : 0);
}

std::string AgeText(Duration age)
{
    using namespace std::chrono;
    const auto seconds = duration_cast<std::chrono::seconds>(age).count();
    if (seconds < 10)
        return WithDecimals(static_cast<double>(age / milliseconds(100)) / 10, 1) + 's';
    if (seconds < 100)
        return std::to_string(seconds) + 's';
    if (seconds < 100 * 60)
        return std::to_string(seconds / 60) + 'm';
    if (seconds < 100 * 3600)
        return std::to_string(seconds / 3600) + 'h';
    return std::to_string(seconds / 86400) + 'd';
}

std::u32string SparklineOf(const MonitorRow& row, Duration now, std::size_t width, bool unicode)
{
    if (!row.HasNumber())
        return DrawSparkline(RatesOf(row, now), 0, width, unicode);
    const std::vector<double> numbers = NumbersOf(row, now);
    return DrawSparkline(numbers, SmallestOf(numbers), width, unicode);
}

CellGrid::tStyle StyleOf(unsigned int status)
{
    if (status == TarnMessage::STATUS_OPERATING)
        return CellGrid::STYLE_GOOD;
    if (status == TarnMessage::STATUS_OPERATING_WITH_WARNING)
        return CellGrid::STYLE_WARNING;
    return status > TarnMessage::STATUS_OPERATING_WITH_WARNING ? CellGrid::STYLE_BAD
                                                               : CellGrid::STYLE_PLAIN;
}

std::string ChangeText(CanMessage frame, const Installation* names)
{
    MessageFields fields;
    ReadFields(TarnMessage(frame), frame, fields);
    OutputBuffer& out = Scratch();
    PutTimeOfDay(LineOf(frame), out);
    out.Put("  ");
    out.Put(STATUS_WORDS[fields.status]);
    if (!fields.IsChcp()) {
        out.Put("  ");
        out.Put(DATA_TYPE_WORDS[fields.dataType]);
    }
    const std::string text = out.TakeText();
    return text + ' ' + JoinedParts(DataParts(fields, names));
}

std::string ErrorText(const CanMessage& frame)
{
    OutputBuffer& out = Scratch();
    PutTimeOfDay(LineOf(frame), out);
    out.Put("  ");
    out.Put(DescribeErrorFrame(frame));
    return out.TakeText();
}

std::vector<std::string> LongForm(CanMessage frame)
{
    const TarnMessage message(frame);
    MessageFields fields;
    ReadFields(message, frame, fields);
    OutputBuffer& out = Scratch();
    LongPrinter().Print({LineOf(frame), message, fields}, out);
    const std::string text = out.TakeText();
    std::vector<std::string> lines;
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t end = std::min(text.find('\n', at), text.size());
        if (end > at)
            lines.push_back(text.substr(at, end - at));
        at = end + 1;
    }
    return lines;
}

} // namespace tarn::tool
