#include "WireFormatOracle.h"

#include <tarn/TarnMessage.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <iostream>
#include <string>
#include <vector>

// Reads any frame that a bus can hand over and holds the message against WireFormatOracle.h.
//
// Input: 4 bytes identifier, highest first; 1 byte flags; up to 8 bytes data. What is longer is
// not a frame and left alone.

namespace
{

using tarn::CanMessage;
using tarn::tarn_u24_t;
using tarn::TarnMessage;
using Bytes = std::vector<unsigned char>;

constexpr std::size_t HEAD_BYTES = 5;

void Require(bool holds, const char* what)
{
    if (holds)
        return;
    std::cerr << "does not hold: " << what << '\n';
    std::abort();
}

void RequireSameFields(const TarnMessage& message, const WireMessage& wire)
{
    Require(!message == (wire.valid == 0), "validity");
    Require(message.GetFullHeader() == wire.identifier, "identifier");
    Require(static_cast<unsigned int>(message.GetRStatus()) == wire.status, "status");
    Require(static_cast<unsigned int>(message.GetDataType()) == wire.type, "data type");
    Require(message.GetModule() == wire.module, "module");
    Require(message.GetSourceAddr() == wire.identifier % 128, "source address");
    Require(message.GetTargetAddr() == wire.identifier / 128 % 128, "target address");
    Require(message.GetRegister() == wire.identifier / 16384 % 256, "register");
    Require(message.GetChcpMacID() == wire.identifier % 268435456u, "MAC identifier");
}

void RequireChcpFields(const TarnMessage& message, const WireMessage& wire)
{
    const bool chcp = (wire.identifier & WIRE_CHCP) != 0;
    const unsigned int command = chcp ? std::min<unsigned int>(wire.payload[5], 6) : 6;
    const std::uint64_t code = wire.payload[0] + 256ull * wire.payload[1] +
                               65536ull * wire.payload[2] + 16777216ull * wire.payload[3];
    Require(message.GetChcpID() == (chcp ? wire.payload[4] % 128 : 0), "CHCP identifier");
    Require(static_cast<unsigned int>(message.GetChcpCommand()) == command, "CHCP command");
    Require(message.GetChcpDeviceCode() == (chcp ? code : 0), "device code");
}

/// The values that a getter hands out; it must take the payload exactly when it is the one for it.
template <typename Value>
std::vector<Value> Values(const TarnMessage& message, bool takes, unsigned int count)
{
    std::vector<Value> values;
    Require(message.GetData(values) == takes, "the getter that takes the payload");
    Require(values.size() == (takes ? count : 0), "number of values");
    return values;
}

/// The whole number in the bytes of the nth value.
std::uint64_t Number(const WireMessage& wire, std::size_t n)
{
    const unsigned int bytes = WireValueBytes(wire.type);
    std::uint64_t number = 0;
    for (unsigned int i = bytes; i > 0; --i)
        number = number * 256 + wire.payload[n * bytes + i - 1];
    return number;
}

template <typename Value>
void RequireIntegers(const TarnMessage& message, const WireMessage& wire, unsigned int type)
{
    const unsigned int count = WireValues(&wire);
    const auto values = Values<Value>(message, wire.type == type && count != 0, count);
    for (std::size_t i = 0; i < values.size(); ++i)
        Require(values[i] == Number(wire, i), "whole number");
}

void RequireU24(const TarnMessage& message, const WireMessage& wire)
{
    const unsigned int count = WireValues(&wire);
    const auto values = Values<tarn_u24_t>(message, wire.type == 10 && count != 0, count);
    for (std::size_t i = 0; i < values.size(); ++i)
        Require(values[i].value == Number(wire, i), "U24 value");
}

void RequireFractions(const TarnMessage& message, const WireMessage& wire)
{
    const unsigned int count = WireValues(&wire);
    const auto doubles = Values<double>(message, wire.type == 13 && count != 0, count);
    const bool fixedPoint = wire.type < 8;
    const auto floats =
        Values<float>(message, (fixedPoint || wire.type == 13) && count != 0, count);
    for (std::size_t i = 0; fixedPoint && i < floats.size(); ++i) {
        const auto word = static_cast<int>(Number(wire, i));
        const int steps = word < 32768 ? word : word - 65536;
        Require(static_cast<double>(floats[i]) == steps * double(1 << (2 * wire.type)) / 8192,
                "S16F value");
    }
    for (std::size_t i = 0; i < doubles.size(); ++i)
        Require(static_cast<float>(doubles[i]) == floats[i] || doubles[i] != doubles[i],
                "FLOAT value as float");
}

void RequirePayload(const TarnMessage& message, const WireMessage& wire)
{
    RequireIntegers<unsigned char>(message, wire, 8);
    RequireIntegers<unsigned short>(message, wire, 9);
    RequireU24(message, wire);
    RequireIntegers<unsigned int>(message, wire, 11);
    RequireIntegers<unsigned long long>(message, wire, 12);
    RequireFractions(message, wire);
    if (WireValues(&wire) != 0 && wire.type != 13)
        Require(message.GetDataSize() == WireValues(&wire), "number of values by size");
}

void RequireFraming(TarnMessage& message, const WireMessage& wire)
{
    Bytes expected(8);
    const int size = WireWrite(&wire, expected.data());
    try {
        CanMessage& frame = message.RawMessageRef();
        Require(size >= 0, "refusal of a message that fits no frame");
        expected.resize(static_cast<std::size_t>(size));
        Require(frame.GetData() == expected, "data of the frame");
        Require(frame.GetHeader() == wire.identifier, "identifier of the frame");
        Require(frame.GetFlags() == 1, "flags of the frame");
        Require(TarnMessage(frame) == message, "message read back from its frame");
    } catch (const std::string&) {
        Require(size < 0, "framing of a message that fits one");
    }
}

void RequireText(const TarnMessage& message, const WireMessage& wire)
{
    const std::string line = message.ToStringShort();
    const std::string lines = message.ToString();
    Require(line.find('\n') == std::string::npos, "one line in the short form");
    Require(std::count(lines.begin(), lines.end(), '\n') == (wire.type < 14 ? 14 : 13),
            "number of lines in the long form");
    const std::string end = "Raw-Data(" + std::to_string(wire.size) + ") : ";
    Require(line.find(end) != std::string::npos && lines.find(end) != std::string::npos,
            "number of raw bytes");
    Require(line.size() < 1024 && lines.size() < 1024, "a text of bounded length");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* input, std::size_t size)
{
    if (size < HEAD_BYTES || size > HEAD_BYTES + CanMessage::MAX_DATA_SIZE)
        return -1;
    const std::uint32_t identifier = static_cast<std::uint32_t>(input[0]) << 24 |
                                     static_cast<std::uint32_t>(input[1]) << 16 |
                                     static_cast<std::uint32_t>(input[2]) << 8 | input[3];
    CanMessage frame;
    frame.SetHeader(identifier);
    frame.GetFlags() = input[4];
    frame.SetData(Bytes(input + HEAD_BYTES, input + size));
    const WireMessage wire = WireRead(input[4], identifier, input + HEAD_BYTES,
                                      static_cast<unsigned int>(size - HEAD_BYTES));
    TarnMessage message(frame);
    RequireSameFields(message, wire);
    RequireChcpFields(message, wire);
    RequirePayload(message, wire);
    RequireFraming(message, wire);
    RequireText(message, wire);
    return 0;
}
