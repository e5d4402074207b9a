#include "JsonPrinter.h"

#include "MessageKeys.h"
#include "MessageNames.h"

#include <rapidjson/writer.h>

#include <cmath>

namespace tarn::tool
{

namespace
{

using Writer = rapidjson::Writer<OutputBuffer>;

void PutKey(std::string_view key, Writer& writer)
{
    writer.Key(key.data(), static_cast<rapidjson::SizeType>(key.size()));
}

void PutString(std::string_view text, Writer& writer)
{
    writer.String(text.data(), static_cast<rapidjson::SizeType>(text.size()));
}

/// Announces a number or a string whose characters the caller puts out himself.
void PutRaw(rapidjson::Type type, Writer& writer)
{
    writer.RawValue("", 0, type);
}

/// A member whose text needs no escapes.
template <typename PUT>
void PutQuoted(std::string_view key, const PUT& put, Writer& writer, OutputBuffer& out)
{
    PutKey(key, writer);
    PutRaw(rapidjson::kStringType, writer);
    out.Put('"');
    put();
    out.Put('"');
}

void PutOrigin(const CandumpLine& line, Writer& writer, OutputBuffer& out)
{
    if (line.timeForm != CandumpLine::TIME_NONE) {
        PutKey("time", writer);
        PutRaw(rapidjson::kNumberType, writer);
        PutSeconds(line, out);
    }
    if (line.interfaceName[0] != '\0') {
        PutKey("interface", writer);
        PutString(line.interfaceName, writer);
    }
    if (line.direction != CandumpLine::DIRECTION_UNKNOWN) {
        PutKey("busDirection", writer);
        PutString(line.direction == CandumpLine::DIRECTION_RECEIVED ? "rx" : "tx", writer);
    }
}

/// Seconds.
void PutLatency(Duration latency, Writer& writer, OutputBuffer& out)
{
    constexpr std::uint64_t SECOND = 1000000000;
    const auto nanoseconds = static_cast<std::uint64_t>(latency.count());
    PutKey("latency", writer);
    PutRaw(rapidjson::kNumberType, writer);
    out.PutDecimal(nanoseconds / SECOND);
    out.Put('.');
    out.PutDecimal(nanoseconds % SECOND, 9);
}

void PutFields(const MessageFields& fields, Writer& writer)
{
    for (const WordKey& key : WORD_KEYS) {
        if (!Has(fields, key.owner))
            continue;
        PutKey(key.word, writer);
        PutString(key.words[fields.*key.field], writer);
        PutKey(key.number, writer);
        writer.Uint(fields.*key.field);
    }
    for (const NumberKey& key : NUMBER_KEYS) {
        if (!Has(fields, key.owner))
            continue;
        PutKey(key.name, writer);
        writer.Uint(fields.*key.field);
    }
}

void PutRealValue(float value, Writer& writer, OutputBuffer& out)
{
    if (std::isnan(value))
        return PutString("nan", writer);
    if (std::isinf(value))
        return PutString(value > 0 ? "inf" : "-inf", writer);
    PutRaw(rapidjson::kNumberType, writer);
    out.PutReal(value);
}

void PutValueArray(const PayloadValues& values, Writer& writer, OutputBuffer& out)
{
    PutKey("values", writer);
    writer.StartArray();
    for (std::size_t at = 0; at < values.count; ++at) {
        if (values.kind == PayloadValues::WHOLE)
            writer.Uint64(values.whole[at]);
        else
            PutRealValue(values.real[at], writer, out);
    }
    writer.EndArray();
}

void PutNameMember(std::string_view key, std::string_view name, Writer& writer)
{
    if (name.empty())
        return;
    PutKey(key, writer);
    PutString(name, writer);
}

/// "actual":{"value":120.5,"unit":"rpm"}
void PutNamedValue(const InstalledValue& value, const std::string& number, Writer& writer)
{
    PutKey(value.name, writer);
    writer.StartObject();
    PutKey("value", writer);
    // Numbers begin with a digit; "nan" and "inf" are no numbers in JSON.
    if (number.find_first_of("0123456789") != std::string::npos)
        writer.RawValue(number.data(), number.size(), rapidjson::kNumberType);
    else
        PutString(number, writer);
    PutNameMember("unit", value.unit, writer);
    writer.EndObject();
}

void PutNames(const MessageNames& names, const MessageFields& fields, Writer& writer)
{
    PutNameMember("sourceName", names.source, writer);
    PutNameMember("targetName", names.target, writer);
    PutNameMember("moduleName", names.module, writer);
    PutNameMember("registerName", names.reg, writer);
    PutNameMember("macName", names.mac, writer);
    if (names.values == nullptr)
        return;
    PutKey("named", writer);
    writer.StartObject();
    for (std::size_t at = 0; at < fields.values.count; ++at) {
        const InstalledValue& value = names.values->values[at];
        PutNamedValue(value, ShownValue(value, fields.values, at), writer);
    }
    writer.EndObject();
}

} // namespace

void JsonPrinter::Print(const ReceivedMessage& received, OutputBuffer& out)
{
    const MessageFields& fields = received.fields;
    Writer writer(out);
    writer.StartObject();
    PutOrigin(received.line, writer, out);
    if (received.latency)
        PutLatency(*received.latency, writer, out);
    PutQuoted(
        "frame", [&] { PutFrame(received.line.frame, out); }, writer, out);
    PutFields(fields, writer);
    PutQuoted(
        "payload", [&] { PutPayload(fields, {}, out); }, writer, out);
    if (!fields.IsChcp())
        PutValueArray(fields.values, writer, out);
    if (mNames != nullptr)
        PutNames(NamesOf(*mNames, fields), fields, writer);
    if (fields.oddity != MessageFields::ODDITY_NONE) {
        PutKey("note", writer);
        PutString(Describe(fields.oddity), writer);
    }
    writer.EndObject();
    out.Put('\n');
}

void JsonPrinter::PrintError(const CandumpLine& line, std::string_view words, OutputBuffer& out)
{
    Writer writer(out);
    writer.StartObject();
    PutOrigin(line, writer, out);
    PutKey("frame", writer);
    PutString(line.frame.ToString(), writer);
    PutKey("error", writer);
    PutString(words, writer);
    writer.EndObject();
    out.Put('\n');
}

} // namespace tarn::tool
