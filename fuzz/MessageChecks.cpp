#include "MessageChecks.h"

#include "Require.h"
#include "message_text.h"

#include <array>
#include <cmath>
#include <string>
#include <vector>

namespace
{

using tarn::CanMessage;
using tarn::tarn_u24_t;
using tarn::TarnMessage;
using Bytes = std::vector<unsigned char>;

void RequireSameFields(const TarnMessage& message, const WireMessage& wire)
{
    const std::uint32_t id = wire.identifier;
    Require(!message == (wire.valid == 0), "validity");
    Require(message.GetFullHeader() == id, "identifier");
    Require(static_cast<unsigned int>(message.GetType()) == WireIsChcp(id), "type");
    Require(static_cast<unsigned int>(message.GetPriority()) == WirePriority(id), "priority");
    Require(static_cast<unsigned int>(message.GetAddressing()) == WireAddressing(id), "addressing");
    Require(static_cast<unsigned int>(message.GetAccessType()) == WireAccess(id), "access type");
    Require(static_cast<unsigned int>(message.GetDirection()) == WireDirection(id), "direction");
    Require(static_cast<unsigned int>(message.GetAddressingMode()) == WireMode(id), "mode");
    Require(message.GetRegister() == WireRegister(id), "register");
    Require(message.GetTargetAddr() == WireTarget(id), "target address");
    Require(message.GetSourceAddr() == WireSource(id), "source address");
    Require(message.GetModule() == wire.module, "module");
    Require(static_cast<unsigned int>(message.GetRStatus()) == wire.status, "status");
    Require(static_cast<unsigned int>(message.GetWStatus()) == wire.status, "status as written");
    Require(static_cast<unsigned int>(message.GetDataType()) == wire.type, "data type");
}

void RequireSameChcpFields(const TarnMessage& message, const WireMessage& wire)
{
    Require(message.GetChcpMacID() == WireMac(wire.identifier), "MAC identifier");
    Require(message.GetChcpID() == WireChcpId(&wire), "CHCP identifier");
    Require(static_cast<unsigned int>(message.GetChcpCommand()) == WireChcpCommand(&wire),
            "CHCP command");
    Require(message.GetChcpDeviceCode() == WireDeviceCode(&wire), "device code");
}

/// What a getter hands out into a vector that holds something; it must take the payload exactly
/// when it is the one for it, and leave the vector alone otherwise.
template <typename Value>
std::vector<Value> Taken(const TarnMessage& message, bool takes, Value before)
{
    std::vector<Value> values = {before, before};
    Require(message.GetData(values) == takes, "the getter that takes the payload");
    Require(takes || values.size() == 2, "a vector left alone");
    return takes ? values : std::vector<Value>();
}

template <typename Value>
void RequireWholes(const TarnMessage& message, const WireMessage& wire, unsigned int type)
{
    const unsigned int count = wire.type == type ? WireValues(&wire) : 0;
    const std::vector<Value> values = Taken<Value>(message, count != 0, 9);
    Require(values.size() == count, "number of whole values");
    for (unsigned int i = 0; i < count; ++i)
        Require(values[i] == WireWhole(&wire, i), "whole value");
}

void RequireU24(const TarnMessage& message, const WireMessage& wire)
{
    const unsigned int count = wire.type == WIRE_U24 ? WireValues(&wire) : 0;
    const std::vector<tarn_u24_t> values = Taken<tarn_u24_t>(message, count != 0, {9});
    Require(values.size() == count, "number of U24 values");
    for (unsigned int i = 0; i < count; ++i)
        Require(values[i].value == WireWhole(&wire, i), "U24 value");
}

bool IsSame(double one, double other)
{
    return (one == other && std::signbit(one) == std::signbit(other)) ||
           (std::isnan(one) && std::isnan(other));
}

void RequireFixed(const TarnMessage& message, const WireMessage& wire)
{
    const unsigned int count = WireValues(&wire);
    const std::vector<float> values = Taken<float>(message, count != 0, 9);
    Require(values.size() == count, "number of S16F values");
    for (unsigned int i = 0; i < count; ++i)
        Require(static_cast<double>(values[i]) == WireFixed(&wire, i), "S16F value");
}

/// A FLOAT is appended to what the vector held.
void RequireSingle(const TarnMessage& message, const WireMessage& wire)
{
    const bool takes = wire.type == WIRE_FLOAT && WireValues(&wire) != 0;
    const std::vector<double> values = Taken<double>(message, takes, 9);
    Require(values.size() == (takes ? 1 : 0), "number of FLOAT values");
    Require(!takes || IsSame(values[0], WireSingle(&wire)), "FLOAT value");
    if (wire.type < WIRE_U8)
        return RequireFixed(message, wire);
    const std::vector<float> appended = Taken<float>(message, takes, 9);
    Require(appended.size() == (takes ? 3 : 0), "FLOAT appended");
    Require(!takes || IsSame(static_cast<double>(appended[2]), WireSingle(&wire)),
            "FLOAT as float");
}

void RequireSamePayload(const TarnMessage& message, const WireMessage& wire)
{
    RequireWholes<unsigned char>(message, wire, WIRE_U8);
    RequireWholes<unsigned short>(message, wire, WIRE_U16);
    RequireU24(message, wire);
    RequireWholes<unsigned int>(message, wire, WIRE_U32);
    RequireWholes<unsigned long long>(message, wire, WIRE_U48);
    RequireSingle(message, wire);
    const unsigned int bytes = wire.type == WIRE_FLOAT ? 6 : WireValueBytes(wire.type);
    Require(message.GetDataSize() == (bytes == 0 ? 0 : wire.size / bytes), "number of values");
}

const char* Refusal(const WireMessage& wire)
{
    return WireIsChcp(wire.identifier) != 0
               ? "tarn::CanMessage tarn::TarnMessage::RawMessage() : TYPE_CHCP : mData.size() != 6!"
               : "tarn::CanMessage tarn::TarnMessage::RawMessage() : TYPE_DATA : mData.size() > 6!";
}

void RequireFrame(CanMessage& frame, const WireMessage& wire, const Bytes& bytes)
{
    Require(frame.GetHeader() == wire.identifier, "identifier of the frame");
    Require(frame.GetFlags() == CanMessage::FLAG_EXTENDED, "flags of the frame");
    Require(frame.GetData() == bytes, "data of the frame");
}

/// The frame read again is what was written, but for a module that does not travel.
void RequireReadBack(TarnMessage& message, const WireMessage& wire, const Bytes& bytes)
{
    const WireMessage again =
        WireRead(1, wire.identifier, bytes.data(), static_cast<unsigned int>(bytes.size()));
    const TarnMessage back(message.RawMessageRef());
    Require(!!back, "validity of a message read back");
    Require((back == message) == (again.module == wire.module), "message read back");
}

void RequireSameFrame(TarnMessage& message, const WireMessage& wire)
{
    Bytes bytes(WIRE_FRAME_BYTES);
    const int size = WireWrite(&wire, bytes.data());
    bytes.resize(static_cast<std::size_t>(size < 0 ? 0 : size));
    try {
        CanMessage frame = message.RawMessage();
        Require(size >= 0, "refusal of a message that fits no frame");
        RequireFrame(frame, wire, bytes);
        RequireFrame(message.RawMessageRef(), wire, bytes);
        RequireReadBack(message, wire, bytes);
    } catch (const std::string& refusal) {
        Require(size < 0, "framing of a message that fits one");
        Require(refusal == Refusal(wire), "text of the refusal");
    }
}

void RequireSameText(const TarnMessage& message, const WireMessage& wire)
{
    std::array<char, MESSAGE_TEXT_ROOM> text = {};
    WireText(&wire, text.data());
    Require(message.ToString() == text.data(), "text in lines");
    WireTextShort(&wire, text.data());
    Require(message.ToStringShort() == text.data(), "text on one line");
}

} // namespace

void RequireSameMessage(TarnMessage& message, const WireMessage& wire)
{
    RequireSameFields(message, wire);
    RequireSameChcpFields(message, wire);
    RequireSamePayload(message, wire);
    RequireSameFrame(message, wire);
    RequireSameText(message, wire);
}
