#include "JsonPrinter.h"

#include "MessageKeys.h"

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

} // namespace

void JsonPrinter::Print(const ReceivedMessage& received, OutputBuffer& out)
{
    const MessageFields& fields = received.fields;
    Writer writer(out);
    writer.StartObject();
    PutOrigin(received.line, writer, out);
    PutKey("frame", writer);
    PutRaw(rapidjson::kStringType, writer);
    out.Put('"');
    PutFrame(received.line.frame, out);
    out.Put('"');
    PutFields(fields, writer);
    PutKey("payload", writer);
    PutRaw(rapidjson::kStringType, writer);
    out.Put('"');
    PutPayload(fields, {}, out);
    out.Put('"');
    if (!fields.IsChcp())
        PutValueArray(fields.values, writer, out);
    if (fields.oddity != MessageFields::ODDITY_NONE) {
        PutKey("note", writer);
        PutString(Describe(fields.oddity), writer);
    }
    writer.EndObject();
    out.Put('\n');
}

} // namespace tarn::tool
