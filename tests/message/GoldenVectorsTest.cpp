#include "support/Frames.h"

#include <tarn/TarnMessage.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

// The files under tests/vectors, which say by what rule they were worked out.

namespace
{

using support::Bytes;
using support::Frame;
using support::PayloadOf;
using tarn::CanMessage;
using tarn::tarn_u24_t;
using tarn::TarnMessage;

/// The lines of a file without its comments.
std::vector<std::string> LinesOf(const std::string& name)
{
    std::ifstream file(std::string(TEST_VECTORS) + "/" + name);
    std::vector<std::string> lines;
    for (std::string line; std::getline(file, line);) {
        if (!line.empty() && line[0] != '#')
            lines.push_back(line);
    }
    return lines;
}

unsigned int Hex(const std::string& digits)
{
    return static_cast<unsigned int>(std::stoul(digits, nullptr, 16));
}

Bytes HexBytes(const std::string& digits)
{
    Bytes bytes;
    for (std::size_t at = 0; digits != "-" && at < digits.size(); at += 2)
        bytes.push_back(static_cast<unsigned char>(Hex(digits.substr(at, 2))));
    return bytes;
}

CanMessage FrameOf(const std::string& literal, unsigned int flags = support::EXTENDED)
{
    return Frame(Hex(literal.substr(0, 8)), HexBytes(literal.substr(9)), flags);
}

template <typename Enumeration>
Enumeration As(int value)
{
    return static_cast<Enumeration>(value);
}

struct DataFields {
    int priority, addressing, access, direction, mode, reg, target, source, module, status, type;
    std::string payload;
};

std::istream& operator>>(std::istream& in, DataFields& f)
{
    return in >> f.priority >> f.addressing >> f.access >> f.direction >> f.mode >> f.reg >>
           f.target >> f.source >> f.module >> f.status >> f.type >> f.payload;
}

TarnMessage MessageOf(const DataFields& f)
{
    using M = TarnMessage;
    TarnMessage message;
    Bytes payload = HexBytes(f.payload);
    message.SetData(payload);
    message.SetDataType(As<M::tTarnDataType>(f.type));
    message.SetModule(static_cast<unsigned char>(f.module));
    message.SetPriority(As<M::tTarnMsgPriority>(f.priority));
    message.SetAddressing(As<M::tTarnAddressing>(f.addressing));
    message.SetAccessType(As<M::tTarnAccessType>(f.access));
    message.SetDirection(As<M::tTarnDirection>(f.direction));
    message.SetAddressingMode(As<M::tTarnAddressingMode>(f.mode));
    message.SetRegister(static_cast<unsigned char>(f.reg));
    message.SetTargetAddr(static_cast<unsigned char>(f.target));
    message.SetSourceAddr(static_cast<unsigned char>(f.source));
    message.SetRStatus(As<M::tTarnRStatus>(f.status));
    return message;
}

void ExpectFields(const TarnMessage& message, const DataFields& f)
{
    EXPECT_FALSE(!message);
    EXPECT_EQ(message.GetType(), TarnMessage::TYPE_DATA);
    EXPECT_EQ(message.GetPriority(), f.priority);
    EXPECT_EQ(message.GetAddressing(), f.addressing);
    EXPECT_EQ(message.GetAccessType(), f.access);
    EXPECT_EQ(message.GetDirection(), f.direction);
    EXPECT_EQ(message.GetAddressingMode(), f.mode);
    EXPECT_EQ(message.GetRegister(), f.reg);
    EXPECT_EQ(message.GetTargetAddr(), f.target);
    EXPECT_EQ(message.GetSourceAddr(), f.source);
    EXPECT_EQ(message.GetModule(), f.module);
    EXPECT_EQ(message.GetRStatus(), f.status);
    EXPECT_EQ(message.GetDataType(), f.type);
    EXPECT_EQ(PayloadOf(message), HexBytes(f.payload));
}

TEST(GoldenVectors, OfDataFramesHoldInBothDirections)
{
    const auto lines = LinesOf("data-frames.txt");
    ASSERT_FALSE(lines.empty());
    for (const std::string& line : lines) {
        SCOPED_TRACE(line);
        std::istringstream in(line);
        std::string literal;
        DataFields fields = {};
        ASSERT_TRUE(in >> literal >> fields);
        CanMessage frame = FrameOf(literal);
        ExpectFields(TarnMessage(frame), fields);
        EXPECT_EQ(MessageOf(fields).RawMessage().ToString(), literal);
    }
}

struct ChcpFields {
    std::string mac, code;
    int id, command, status, type;
};

std::istream& operator>>(std::istream& in, ChcpFields& f)
{
    return in >> f.mac >> f.code >> f.id >> f.command >> f.status >> f.type;
}

TarnMessage MessageOf(const ChcpFields& f)
{
    using M = TarnMessage;
    TarnMessage message;
    message.SetChcpMacID(Hex(f.mac));
    message.SetChcpDeviceCode(static_cast<M::tTarnDeviceCode>(Hex(f.code)));
    message.SetChcpID(static_cast<unsigned char>(f.id));
    message.SetChcpCommand(As<M::tTarnChcpCommand>(f.command));
    message.SetRStatus(As<M::tTarnRStatus>(f.status));
    message.SetDataType(As<M::tTarnDataType>(f.type));
    return message;
}

void ExpectFields(const TarnMessage& message, const ChcpFields& f)
{
    EXPECT_FALSE(!message);
    EXPECT_EQ(message.GetType(), TarnMessage::TYPE_CHCP);
    EXPECT_EQ(message.GetChcpMacID(), Hex(f.mac));
    EXPECT_EQ(message.GetChcpDeviceCode(), Hex(f.code));
    EXPECT_EQ(message.GetChcpID(), f.id);
    EXPECT_EQ(message.GetChcpCommand(), f.command);
    EXPECT_EQ(message.GetRStatus(), f.status);
    EXPECT_EQ(message.GetDataType(), f.type);
    EXPECT_EQ(message.GetModule(), 0);
}

TEST(GoldenVectors, OfChcpFramesHoldInBothDirections)
{
    const auto lines = LinesOf("chcp-frames.txt");
    ASSERT_FALSE(lines.empty());
    for (const std::string& line : lines) {
        SCOPED_TRACE(line);
        std::istringstream in(line);
        std::string literal;
        ChcpFields fields = {};
        ASSERT_TRUE(in >> literal >> fields);
        CanMessage frame = FrameOf(literal);
        ExpectFields(TarnMessage(frame), fields);
        EXPECT_EQ(MessageOf(fields).RawMessage().ToString(), literal);
    }
}

TEST(GoldenVectors, OfRefusedFramesGiveInvalidZeroMessages)
{
    const auto lines = LinesOf("refused-frames.txt");
    ASSERT_FALSE(lines.empty());
    for (const std::string& line : lines) {
        SCOPED_TRACE(line);
        CanMessage frame = FrameOf(line.substr(2), Hex(line.substr(0, 1)));
        const TarnMessage message(frame);
        EXPECT_TRUE(!message);
        EXPECT_EQ(message.ToStringShort(),
                  "Type: DATA,Priority: SYNC,Addressing: GROUP,AccessType: WRITE,"
                  "Direction: RESPONSE,AddressingMode: STANDARD,Register:00,TargetAddr:00,"
                  "SourceAddr:00,Module:00,Status: UNKNOWN,DataType: S16F0,Data(0) : ,"
                  "Raw-Header : 0,Raw-Data(0) : ");
    }
}

struct PayloadLine {
    std::string type;
    Bytes payload;
    std::vector<std::string> values;
};

PayloadLine ParsePayload(const std::string& line)
{
    PayloadLine parsed;
    std::string payload;
    std::istringstream in(line);
    in >> parsed.type >> payload;
    parsed.payload = HexBytes(payload);
    for (std::string value; in >> value;)
        parsed.values.push_back(value);
    return parsed;
}

template <typename Value>
Value ValueOf(const std::string& text)
{
    return static_cast<Value>(std::stoull(text, nullptr, 0));
}

template <>
double ValueOf<double>(const std::string& text)
{
    return std::strtod(text.c_str(), nullptr);
}

template <>
float ValueOf<float>(const std::string& text)
{
    return std::strtof(text.c_str(), nullptr);
}

template <>
tarn_u24_t ValueOf<tarn_u24_t>(const std::string& text)
{
    return tarn_u24_t{ValueOf<unsigned int>(text) & 0xFFFFFFu};
}

template <typename Value>
std::vector<Value> ValuesOf(const PayloadLine& line)
{
    std::vector<Value> values;
    for (const std::string& text : line.values)
        values.push_back(ValueOf<Value>(text));
    return values;
}

double Number(tarn_u24_t value)
{
    return value.value;
}

template <typename Value>
double Number(Value value)
{
    return static_cast<double>(value);
}

template <typename Value>
std::vector<double> Numbers(const std::vector<Value>& values)
{
    std::vector<double> numbers;
    for (const Value value : values)
        numbers.push_back(Number(value));
    return numbers;
}

template <typename Value, typename Setter>
void ExpectPayload(const PayloadLine& line, int dataType, Setter set)
{
    std::vector<Value> values = ValuesOf<Value>(line);
    TarnMessage written;
    ASSERT_TRUE(set(written, values));
    EXPECT_EQ(written.GetDataType(), dataType);
    EXPECT_EQ(PayloadOf(written), line.payload);
    std::vector<Value> read;
    ASSERT_TRUE(
        support::WithPayload(static_cast<unsigned int>(dataType), line.payload).GetData(read));
    EXPECT_EQ(Numbers(read), Numbers(values));
}

template <typename Value>
void ExpectPayload(const PayloadLine& line, int dataType)
{
    ExpectPayload<Value>(line, dataType, [](TarnMessage& message, std::vector<Value>& values) {
        return message.SetData(values);
    });
}

void ExpectFixedPoint(const PayloadLine& line)
{
    const int format = std::stoi(line.type.substr(4));
    ExpectPayload<float>(line, format, [format](TarnMessage& message, std::vector<float>& values) {
        return message.SetData(values, As<TarnMessage::tTarnDataType>(format));
    });
}

void ExpectPayload(const PayloadLine& line)
{
    if (line.type == "U8")
        ExpectPayload<unsigned char>(line, 8);
    else if (line.type == "U16")
        ExpectPayload<unsigned short>(line, 9);
    else if (line.type == "U24")
        ExpectPayload<tarn_u24_t>(line, 10);
    else if (line.type == "U32")
        ExpectPayload<unsigned int>(line, 11);
    else if (line.type == "U48")
        ExpectPayload<unsigned long long>(line, 12);
    else if (line.type == "FLOAT")
        ExpectPayload<double>(line, 13);
    else
        ExpectFixedPoint(line);
}

TEST(GoldenVectors, OfPayloadsHoldInBothDirections)
{
    const auto lines = LinesOf("payloads.txt");
    ASSERT_FALSE(lines.empty());
    for (const std::string& line : lines) {
        SCOPED_TRACE(line);
        ExpectPayload(ParsePayload(line));
    }
}

} // namespace
