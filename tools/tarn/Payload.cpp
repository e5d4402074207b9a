#include "Payload.h"

#include "Failure.h"
#include "Numbers.h"
#include "Words.h"

#include <algorithm>
#include <cmath>

namespace tarn::tool
{

namespace
{

/// Steps of S16F above and below 0; format t has steps of 4^t / 8192.
constexpr double MAX_STEP = 32767;
constexpr double MIN_STEP = -32768;

/// "--u16 70000: " and so on.
Failure Refusal(const std::string& what, const std::string& text, const std::string& rest)
{
    return UsageFailure(what + ' ' + text + ": " + rest);
}

std::uint64_t ToWhole(const std::string& what, const std::string& text, unsigned int bits)
{
    const std::uint64_t max = (std::uint64_t{1} << bits) - 1;
    const auto value = ParseWhole(text, max);
    if (!value)
        throw Refusal(what, text,
                      "no whole number from 0 to " + std::to_string(max) +
                          "; write it in decimal or with 0x in hexadecimal digits");
    return *value;
}

double ToReal(const std::string& what, const std::string& text)
{
    const auto value = ParseReal(text);
    if (!value)
        throw Refusal(what, text, "no number; write it like 1.5, -2 or 1e3");
    return *value;
}

float ToFixedPoint(const std::string& what, const std::string& text, unsigned int format)
{
    const double value = ToReal(what, text);
    const double step = std::ldexp(1.0, 2 * static_cast<int>(format) - 13);
    const double steps = std::round(value / step);
    if (!(steps >= MIN_STEP && steps <= MAX_STEP))
        throw Refusal(what, text,
                      "outside the range of S16F" + std::to_string(format) +
                          "; choose a coarser format, or none for the finest that fits");
    return static_cast<float>(value);
}

/// Takes over the payload of a message whose values were set, or refuses their number.
void TakePayload(bool set, const std::string& what, std::size_t count, const TarnMessage& message,
                 MessageFields& fields)
{
    const auto dataType = static_cast<unsigned int>(message.GetDataType());
    if (!set)
        throw UsageFailure(what + ": " + std::to_string(count) +
                           " values do not fit one message; at most 6 bytes and at least one "
                           "value do");
    const CanMessage frame = message.RawMessage();
    fields.dataType = dataType;
    fields.payloadSize = frame.GetDataSize() - 1;
    std::copy_n(frame.GetBytes(), fields.payloadSize, fields.payload.begin());
}

template <typename Element, typename Convert>
void SetElements(const std::string& what, const std::vector<std::string>& texts, Convert convert,
                 MessageFields& fields)
{
    std::vector<Element> elements;
    elements.reserve(texts.size());
    for (const std::string& text : texts)
        elements.push_back(convert(text));
    TarnMessage message;
    const bool set = message.SetData(elements);
    TakePayload(set, what, elements.size(), message, fields);
}

template <typename Element>
void SetWhole(const std::string& what, const std::vector<std::string>& texts, unsigned int bits,
              MessageFields& fields)
{
    const auto convert = [&what, bits](const std::string& text) {
        return static_cast<Element>(ToWhole(what, text, bits));
    };
    SetElements<Element>(what, texts, convert, fields);
}

void SetU24(const std::string& what, const std::vector<std::string>& texts, MessageFields& fields)
{
    const auto convert = [&what](const std::string& text) {
        tarn_u24_t element = {};
        element.value = static_cast<unsigned int>(ToWhole(what, text, 24)) & 0xFFFFFFu;
        return element;
    };
    SetElements<tarn_u24_t>(what, texts, convert, fields);
}

void SetFloat(const std::string& what, const std::vector<std::string>& texts, MessageFields& fields)
{
    const auto convert = [&what](const std::string& text) { return ToReal(what, text); };
    SetElements<double>(what, texts, convert, fields);
}

void SetFixedPoint(const std::string& what, const std::vector<std::string>& texts,
                   unsigned int format, MessageFields& fields)
{
    std::vector<float> elements;
    elements.reserve(texts.size());
    for (const std::string& text : texts)
        elements.push_back(ToFixedPoint(what, text, format));
    TarnMessage message;
    const bool set = message.SetData(elements, static_cast<TarnMessage::tTarnDataType>(format));
    TakePayload(set, what, elements.size(), message, fields);
}

} // namespace

void SetValues(const std::string& what, const std::vector<std::string>& texts,
               MessageFields& fields)
{
    switch (fields.dataType) {
    case TarnMessage::DATATYPE_U8:
        return SetWhole<unsigned char>(what, texts, 8, fields);
    case TarnMessage::DATATYPE_U16:
        return SetWhole<unsigned short>(what, texts, 16, fields);
    case TarnMessage::DATATYPE_U24:
        return SetU24(what, texts, fields);
    case TarnMessage::DATATYPE_U32:
        return SetWhole<unsigned int>(what, texts, 32, fields);
    case TarnMessage::DATATYPE_U48:
        return SetWhole<unsigned long long>(what, texts, 48, fields);
    case TarnMessage::DATATYPE_FLOAT:
        return SetFloat(what, texts, fields);
    default:
        break;
    }
    if (fields.dataType > TarnMessage::DATATYPE_S16F7)
        throw UsageFailure(what + ": data type " + std::string(DATA_TYPE_WORDS[fields.dataType]) +
                           " has no values; give the payload in hexadecimal digits");
    SetFixedPoint(what, texts, fields.dataType, fields);
}

void SetFixedPointValues(const std::string& what, const std::vector<std::string>& texts,
                         MessageFields& fields)
{
    std::vector<float> values;
    values.reserve(texts.size());
    for (const std::string& text : texts)
        values.push_back(static_cast<float>(ToReal(what, text)));
    // Where the message refuses, the widest format either takes the values or names the culprit.
    TarnMessage message;
    const bool chosen = message.SetData(values);
    const auto format = chosen ? message.GetDataType() : TarnMessage::DATATYPE_S16F7;
    SetFixedPoint(what, texts, static_cast<unsigned int>(format), fields);
}

void SetRawPayload(const std::string& what, std::string_view digits, MessageFields& fields)
{
    std::string pairs;
    std::copy_if(digits.begin(), digits.end(), std::back_inserter(pairs),
                 [](char character) { return character != ' ' && character != '.'; });
    fields.payloadSize = 0;
    for (std::size_t at = 0; at < pairs.size(); at += 2) {
        const auto byte = ParseWhole("0x" + pairs.substr(at, 2), 0xFF);
        if (!byte || at + 1 >= pairs.size() || fields.payloadSize == fields.payload.size())
            throw UsageFailure(what + ' ' + std::string(digits) +
                               ": not bytes of two hexadecimal digits each, 8 at most; write them "
                               "like 6400C8");
        fields.payload[fields.payloadSize++] = static_cast<unsigned char>(*byte);
    }
}

namespace
{

/// A CHCP message with the payload of the fields, zeroes where there is none.
TarnMessage ChcpMessage(const MessageFields& fields)
{
    TarnMessage message;
    std::vector<unsigned char> bytes(fields.payload.begin(),
                                     fields.payload.begin() + fields.payloadSize);
    message.SetData(bytes);
    message.SetType(TarnMessage::TYPE_CHCP);
    return message;
}

} // namespace

void PutChcpFields(MessageFields& fields)
{
    TarnMessage message = ChcpMessage(fields);
    if (static_cast<unsigned int>(message.GetChcpDeviceCode()) != fields.deviceCode)
        message.SetChcpDeviceCode(static_cast<TarnMessage::tTarnDeviceCode>(fields.deviceCode));
    if (message.GetChcpID() != fields.chcpId)
        message.SetChcpID(static_cast<unsigned char>(fields.chcpId));
    const auto command = static_cast<TarnMessage::tTarnChcpCommand>(fields.chcpCommand);
    if (message.GetChcpCommand() != command && !message.SetChcpCommand(command))
        throw UsageFailure("CHCP command " + std::to_string(fields.chcpCommand) +
                           ": means that there is no valid one; choose 0 to 5, or give the "
                           "payload");
    const CanMessage frame = message.RawMessage();
    fields.payloadSize = frame.GetDataSize() - 1;
    std::copy_n(frame.GetBytes(), fields.payloadSize, fields.payload.begin());
}

void TakeChcpFields(MessageFields& fields)
{
    const TarnMessage message = ChcpMessage(fields);
    fields.deviceCode = static_cast<unsigned int>(message.GetChcpDeviceCode());
    fields.chcpId = message.GetChcpID();
    fields.chcpCommand = static_cast<unsigned int>(message.GetChcpCommand());
}

} // namespace tarn::tool
