// docs/wire-format.md is what peers in other languages are written from: every example on it is
// run.

#include <tarn/TarnMessage.h>

#include <gtest/gtest.h>

#include <fstream>
#include <functional>
#include <map>
#include <sstream>

namespace
{

using tarn::CanMessage;
using tarn::TarnMessage;
using Bytes = std::vector<unsigned char>;
using Lines = std::vector<std::string>;

std::vector<std::string> Split(const std::string& text, char separator)
{
    std::vector<std::string> parts;
    std::istringstream in(text);
    for (std::string part; std::getline(in, part, separator);)
        parts.push_back(part);
    return parts;
}

std::string Trimmed(const std::string& text)
{
    const std::size_t first = text.find_first_not_of(" `");
    return first == std::string::npos ? ""
                                      : text.substr(first, text.find_last_not_of(" `") - first + 1);
}

/// As the page shows it: editors cut blanks at the end of a line.
std::string ShownText(const TarnMessage& message)
{
    const std::string text = message.ToStringShort();
    return text.substr(0, text.find_last_not_of(' ') + 1);
}

/// The lines between a line that equals begin and the first after it that satisfies isEnd.
Lines Between(const std::string& begin, const std::function<bool(const std::string&)>& isEnd)
{
    std::ifstream page(WIRE_FORMAT_PAGE);
    Lines lines;
    bool inside = false;
    for (std::string line; std::getline(page, line);) {
        if (inside && isEnd(line))
            break;
        if (inside)
            lines.push_back(line);
        inside = inside || line == begin;
    }
    return lines;
}

Lines Fenced(const std::string& name)
{
    return Between("```" + name, [](const std::string& line) { return line == "```"; });
}

/// The rows of the table under a heading, without its head.
std::vector<std::vector<std::string>> Table(const std::string& heading)
{
    std::vector<std::vector<std::string>> rows;
    for (const std::string& line :
         Between("### " + heading, [](const std::string& text) { return text[0] == '#'; })) {
        std::vector<std::string> cells;
        for (const std::string& cell : Split(line, '|'))
            cells.push_back(Trimmed(cell));
        if (cells.size() == 4 && cells[1].find_first_not_of("0123456789") == std::string::npos)
            rows.push_back({cells.begin() + 1, cells.end()});
    }
    return rows;
}

Bytes FromHex(const std::string& digits)
{
    Bytes bytes;
    for (std::size_t at = 0; at + 1 < digits.size(); at += 2)
        bytes.push_back(static_cast<unsigned char>(std::stoul(digits.substr(at, 2), nullptr, 16)));
    return bytes;
}

/// The frame that candump writes so.
CanMessage Frame(const std::string& literal)
{
    const std::size_t mark = literal.find('#');
    const unsigned long identifier = std::stoul(literal.substr(0, mark), nullptr, 16);
    CanMessage frame;
    frame.SetHeader(identifier & 0x1FFFFFFFu);
    if ((identifier & 0x20000000u) != 0)
        frame.GetFlags() |= CanMessage::FLAG_ERROR;
    if (mark == 8)
        frame.GetFlags() |= CanMessage::FLAG_EXTENDED;
    frame.SetData(FromHex(literal.substr(mark + 1)));
    return frame;
}

TEST(WireFormatPage, ShowsFramesAsTheLibraryReadsAndWritesThem)
{
    const Lines lines = Fenced("frames");
    ASSERT_EQ(lines.size(), 10U);
    for (std::size_t i = 0; i < lines.size(); i += 2) {
        CanMessage frame = Frame(lines[i]);
        TarnMessage message(frame);
        EXPECT_EQ(ShownText(message), lines[i + 1]);
        EXPECT_EQ(message.RawMessage().ToString(), lines[i]);
    }
}

TEST(WireFormatPage, ShowsOddFramesAsTheLibraryReadsThem)
{
    const Lines lines = Fenced("quirks");
    ASSERT_EQ(lines.size(), 6U);
    for (std::size_t i = 0; i < lines.size(); i += 2) {
        CanMessage frame = Frame(lines[i]);
        const TarnMessage message(frame);
        EXPECT_FALSE(!message) << lines[i];
        EXPECT_EQ(ShownText(message), lines[i + 1]);
    }
}

TEST(WireFormatPage, NamesFramesThatAreNoMessages)
{
    const Lines lines = Fenced("refused");
    ASSERT_EQ(lines.size(), 4U);
    for (const std::string& line : lines) {
        CanMessage frame = Frame(line);
        EXPECT_TRUE(!TarnMessage(frame)) << line;
    }
}

struct Words {
    std::string heading;
    std::string label;
    std::size_t count;
    std::function<bool(TarnMessage&, int)> set;
};

void PrintTo(const Words& words, std::ostream* out)
{
    *out << words.heading;
}

class WireFormatPageWords : public testing::TestWithParam<Words>
{
};

TEST_P(WireFormatPageWords, AreTheOnesPrinted)
{
    const auto rows = Table(GetParam().heading);
    ASSERT_EQ(rows.size(), GetParam().count);
    for (std::size_t i = 0; i < rows.size(); ++i) {
        TarnMessage message;
        ASSERT_EQ(rows[i][0], std::to_string(i));
        ASSERT_TRUE(GetParam().set(message, static_cast<int>(i)));
        const std::string item = GetParam().label + rows[i][2] + ",";
        EXPECT_NE((',' + message.ToStringShort()).find(item), std::string::npos) << item;
    }
}

template <typename Enum>
std::function<bool(TarnMessage&, int)> Setter(bool (TarnMessage::*set)(Enum))
{
    return
        [set](TarnMessage& message, int value) { return (message.*set)(static_cast<Enum>(value)); };
}

INSTANTIATE_TEST_SUITE_P(
    Tables, WireFormatPageWords,
    testing::Values(Words{"Type", ",Type: ", 2, Setter(&TarnMessage::SetType)},
                    Words{"Priority", ",Priority: ", 4, Setter(&TarnMessage::SetPriority)},
                    Words{"Addressing", ",Addressing: ", 2, Setter(&TarnMessage::SetAddressing)},
                    Words{"AccessType", ",AccessType: ", 2, Setter(&TarnMessage::SetAccessType)},
                    Words{"Direction", ",Direction: ", 2, Setter(&TarnMessage::SetDirection)},
                    Words{"AddressingMode", ",AddressingMode: ", 2,
                          Setter(&TarnMessage::SetAddressingMode)},
                    Words{"Status", ",Status: ", 16, Setter(&TarnMessage::SetRStatus)},
                    Words{"DataType", ",DataType: ", 16, Setter(&TarnMessage::SetDataType)}),
    [](const auto& words) { return words.param.heading; });

double FloatingFrom(const std::string& text)
{
    return std::stod(text);
}

unsigned long long IntegerFrom(const std::string& text)
{
    return std::stoull(text, nullptr, 16);
}

template <typename Value, typename From>
std::vector<Value> Values(const std::string& text, From from)
{
    std::vector<Value> values;
    for (const std::string& word : Split(Trimmed(text), ' '))
        values.push_back(static_cast<Value>(from(word)));
    return values;
}

/// One line of the page: its type, the values written, the payload, the values read.
struct Example {
    std::string type;
    std::string written;
    std::string bytes;
    std::string read;
};

std::string Payload(TarnMessage& message)
{
    const std::string frame = message.RawMessage().ToString();
    const std::string hex = frame.substr(9, frame.size() - 9 - 2);
    std::string text;
    for (std::size_t at = 0; at < hex.size(); at += 2)
        text += (at == 0 ? "" : " ") + hex.substr(at, 2);
    return text;
}

template <typename Value, typename From>
void Try(const Example& example, From from)
{
    TarnMessage message;
    std::vector<Value> values = Values<Value>(example.written, from);
    ASSERT_TRUE(message.SetData(values));
    EXPECT_EQ(Payload(message), example.bytes);
    ASSERT_TRUE(message.GetData(values));
    EXPECT_EQ(values, Values<Value>(example.read, from));
}

void TryU24(const Example& example)
{
    TarnMessage message;
    std::vector<tarn::tarn_u24_t> values;
    for (const unsigned int value : Values<unsigned int>(example.written, IntegerFrom))
        values.push_back({value & 0xFFFFFFu});
    ASSERT_TRUE(message.SetData(values));
    EXPECT_EQ(Payload(message), example.bytes);
    ASSERT_TRUE(message.GetData(values));
    std::vector<unsigned int> read;
    for (const tarn::tarn_u24_t& value : values)
        read.push_back(value.value);
    EXPECT_EQ(read, Values<unsigned int>(example.read, IntegerFrom));
}

void TryFixedPoint(const Example& example)
{
    const bool choose = example.type.rfind("choose", 0) == 0;
    const auto format = static_cast<TarnMessage::tTarnDataType>(example.type.back() - '0');
    TarnMessage message;
    std::vector<float> values = Values<float>(example.written, FloatingFrom);
    ASSERT_TRUE(choose ? message.SetData(values) : message.SetData(values, format));
    EXPECT_EQ(message.GetDataType(), format);
    EXPECT_EQ(Payload(message), example.bytes);
    ASSERT_TRUE(message.GetData(values));
    EXPECT_EQ(values, Values<float>(example.read, FloatingFrom));
}

TEST(WireFormatPage, ShowsPayloadsAsTheLibraryWritesThem)
{
    const std::map<std::string, std::function<void(const Example&)>> tries = {
        {"U8", [](const Example& e) { Try<unsigned char>(e, IntegerFrom); }},
        {"U16", [](const Example& e) { Try<unsigned short>(e, IntegerFrom); }},
        {"U24", TryU24},
        {"U32", [](const Example& e) { Try<unsigned int>(e, IntegerFrom); }},
        {"U48", [](const Example& e) { Try<unsigned long long>(e, IntegerFrom); }},
        {"FLOAT", [](const Example& e) { Try<double>(e, FloatingFrom); }}};
    const Lines lines = Fenced("payloads");
    ASSERT_EQ(lines.size(), 21U);
    for (const std::string& line : lines) {
        SCOPED_TRACE(line);
        const auto parts = Split(line, ':');
        ASSERT_EQ(parts.size(), 4U);
        const Example example = {parts[0], Trimmed(parts[1]), Trimmed(parts[2]), Trimmed(parts[3])};
        const auto found = tries.find(example.type);
        found == tries.end() ? TryFixedPoint(example) : found->second(example);
    }
}

} // namespace
