#include "MessageFields.h"

#include "Failure.h"

#include <algorithm>
#include <string>
#include <vector>

namespace tarn::tool
{

namespace
{

/// Bit 28 of the identifier.
constexpr unsigned int CHCP_MARK = 0x10000000u;
constexpr std::size_t CHCP_PAYLOAD_SIZE = 6;
constexpr std::size_t MAX_PAYLOAD_SIZE = 6;

void ReadDataHeader(const TarnMessage& message, MessageFields& fields)
{
    fields.priority = static_cast<unsigned int>(message.GetPriority());
    fields.addressing = static_cast<unsigned int>(message.GetAddressing());
    fields.accessType = static_cast<unsigned int>(message.GetAccessType());
    fields.direction = static_cast<unsigned int>(message.GetDirection());
    fields.addressingMode = static_cast<unsigned int>(message.GetAddressingMode());
    fields.reg = message.GetRegister();
    fields.target = message.GetTargetAddr();
    fields.source = message.GetSourceAddr();
    fields.module = message.GetModule();
}

void ReadChcp(const TarnMessage& message, MessageFields& fields)
{
    fields.mac = message.GetChcpMacID();
    fields.deviceCode = static_cast<unsigned int>(message.GetChcpDeviceCode());
    fields.chcpId = message.GetChcpID();
    fields.chcpCommand = static_cast<unsigned int>(message.GetChcpCommand());
}

void ReadPayload(const CanMessage& frame, MessageFields& fields)
{
    const bool hasModule =
        !fields.IsChcp() && fields.addressingMode == TarnMessage::ADDRESSING_MODE_EXTENDED;
    fields.payloadSize = frame.GetDataSize() - (hasModule ? 2 : 1);
    std::copy_n(frame.GetBytes(), fields.payloadSize, fields.payload.begin());
}

std::uint64_t ToWhole(tarn_u24_t value)
{
    return value.value;
}

template <typename Whole>
std::uint64_t ToWhole(Whole value)
{
    return value;
}

template <typename Element>
void ReadWhole(const TarnMessage& message, PayloadValues& values)
{
    static thread_local std::vector<Element> elements;
    if (!message.GetData(elements))
        return;
    values.kind = PayloadValues::WHOLE;
    values.count = elements.size();
    std::transform(elements.begin(), elements.end(), values.whole.begin(),
                   [](Element element) { return ToWhole(element); });
}

void ReadReal(const TarnMessage& message, PayloadValues& values)
{
    static thread_local std::vector<float> elements;
    elements.clear();
    if (!message.GetData(elements))
        return;
    values.kind = PayloadValues::REAL;
    values.count = elements.size();
    std::copy(elements.begin(), elements.end(), values.real.begin());
}

void ReadValues(const TarnMessage& message, unsigned int dataType, PayloadValues& values)
{
    switch (dataType) {
    case TarnMessage::DATATYPE_U8:
        return ReadWhole<unsigned char>(message, values);
    case TarnMessage::DATATYPE_U16:
        return ReadWhole<unsigned short>(message, values);
    case TarnMessage::DATATYPE_U24:
        return ReadWhole<tarn_u24_t>(message, values);
    case TarnMessage::DATATYPE_U32:
        return ReadWhole<unsigned int>(message, values);
    case TarnMessage::DATATYPE_U48:
        return ReadWhole<unsigned long long>(message, values);
    default:
        return ReadReal(message, values);
    }
}

} // namespace

void ReadFields(const TarnMessage& message, const CanMessage& frame, MessageFields& fields)
{
    fields.type = static_cast<unsigned int>(message.GetType());
    fields.status = static_cast<unsigned int>(message.GetRStatus());
    fields.dataType = static_cast<unsigned int>(message.GetDataType());
    fields.oddity = MessageFields::ODDITY_NONE;
    fields.values = PayloadValues();
    fields.payloadSize = 0;
    if (fields.IsChcp()) {
        ReadChcp(message, fields);
        return ReadPayload(frame, fields);
    }
    ReadDataHeader(message, fields);
    if ((frame.GetHeader() & CHCP_MARK) != 0) {
        fields.oddity = MessageFields::ODDITY_CHCP_LENGTH;
        return;
    }
    ReadPayload(frame, fields);
    if (fields.payloadSize == 0)
        return;
    ReadValues(message, fields.dataType, fields.values);
    if (fields.values.kind == PayloadValues::NONE)
        fields.oddity = MessageFields::ODDITY_PAYLOAD_SIZE;
}

std::string_view Describe(MessageFields::tOddity oddity)
{
    switch (oddity) {
    case MessageFields::ODDITY_CHCP_LENGTH:
        return "CHCP frame without its 7 bytes: reads as an empty DATA message";
    case MessageFields::ODDITY_PAYLOAD_SIZE:
        return "payload does not fit its data type";
    default:
        return {};
    }
}

namespace
{

void CheckPayload(const MessageFields& fields)
{
    const std::string size = std::to_string(fields.payloadSize);
    if (fields.IsChcp() && fields.payloadSize != CHCP_PAYLOAD_SIZE)
        throw UsageFailure("payload: " + size +
                           " bytes, but a CHCP message has 6; give all 6, or its "
                           "fields instead");
    if (fields.payloadSize > MAX_PAYLOAD_SIZE)
        throw UsageFailure("payload: " + size + " bytes, but a message has at most 6; shorten it");
}

void SetPayload(const MessageFields& fields, TarnMessage& message)
{
    std::vector<unsigned char> bytes(fields.payload.begin(),
                                     fields.payload.begin() + fields.payloadSize);
    if (!bytes.empty())
        message.SetData(bytes);
    message.SetDataType(static_cast<TarnMessage::tTarnDataType>(fields.dataType));
    message.SetRStatus(static_cast<TarnMessage::tTarnRStatus>(fields.status));
}

void SetDataHeader(const MessageFields& fields, TarnMessage& message)
{
    message.SetPriority(static_cast<TarnMessage::tTarnMsgPriority>(fields.priority));
    message.SetAddressing(static_cast<TarnMessage::tTarnAddressing>(fields.addressing));
    message.SetAccessType(static_cast<TarnMessage::tTarnAccessType>(fields.accessType));
    message.SetDirection(static_cast<TarnMessage::tTarnDirection>(fields.direction));
    message.SetRegister(static_cast<unsigned char>(fields.reg));
    message.SetTargetAddr(static_cast<unsigned char>(fields.target));
    message.SetSourceAddr(static_cast<unsigned char>(fields.source));
    message.SetModule(static_cast<unsigned char>(fields.module));
    message.SetAddressingMode(static_cast<TarnMessage::tTarnAddressingMode>(fields.addressingMode));
}

} // namespace

TarnMessage BuildMessage(const MessageFields& fields)
{
    CheckPayload(fields);
    TarnMessage message;
    SetPayload(fields, message);
    if (fields.IsChcp()) {
        message.SetType(TarnMessage::TYPE_CHCP);
        message.SetChcpMacID(fields.mac);
    } else {
        SetDataHeader(fields, message);
    }
    return message;
}

} // namespace tarn::tool
