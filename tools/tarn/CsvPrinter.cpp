#include "CsvPrinter.h"

#include "MessageKeys.h"
#include "MessageNames.h"

namespace tarn::tool
{

namespace
{

/// In quotation marks, for a text that may have commas or quotation marks in it.
void PutQuoted(std::string_view text, OutputBuffer& out)
{
    if (text.find_first_of(",\"") == std::string_view::npos)
        return out.Put(text);
    out.Put('"');
    for (const char character : text) {
        if (character == '"')
            out.Put('"');
        out.Put(character);
    }
    out.Put('"');
}

void PutOrigin(const CandumpLine& line, OutputBuffer& out)
{
    PutSeconds(line, out);
    out.Put(',');
    PutQuoted(line.interfaceName, out);
    out.Put(',');
    if (line.direction != CandumpLine::DIRECTION_UNKNOWN)
        out.Put(line.direction == CandumpLine::DIRECTION_RECEIVED ? "rx" : "tx");
    out.Put(',');
}

constexpr std::string_view NAME_COLUMNS =
    ",sourceName,targetName,moduleName,registerName,macName,named";
constexpr std::size_t NAME_COUNT = 6;

void PutNames(const MessageNames& names, const MessageFields& fields, OutputBuffer& out)
{
    for (const std::string_view name :
         {names.source, names.target, names.module, names.reg, names.mac}) {
        out.Put(',');
        PutQuoted(name, out);
    }
    out.Put(',');
    if (names.values != nullptr)
        PutQuoted(ShownValues(*names.values, fields.values), out);
}

} // namespace

void CsvPrinter::Begin(OutputBuffer& out)
{
    out.Put("time,interface,busDirection,frame");
    for (const WordKey& key : WORD_KEYS) {
        out.Put(',');
        out.Put(key.word);
    }
    for (const NumberKey& key : NUMBER_KEYS) {
        out.Put(',');
        out.Put(key.name);
    }
    out.Put(",payload,values,note");
    if (mNames != nullptr)
        out.Put(NAME_COLUMNS);
    out.Put('\n');
}

void CsvPrinter::Print(const ReceivedMessage& received, OutputBuffer& out)
{
    const MessageFields& fields = received.fields;
    PutOrigin(received.line, out);
    PutFrame(received.line.frame, out);
    for (const WordKey& key : WORD_KEYS) {
        out.Put(',');
        if (Has(fields, key.owner))
            out.Put(key.words[fields.*key.field]);
    }
    for (const NumberKey& key : NUMBER_KEYS) {
        out.Put(',');
        if (Has(fields, key.owner))
            out.PutDecimal(fields.*key.field);
    }
    out.Put(',');
    PutPayload(fields, {}, out);
    out.Put(',');
    PutValues(fields.values, out);
    out.Put(',');
    out.Put(Describe(fields.oddity));
    if (mNames != nullptr)
        PutNames(NamesOf(*mNames, fields), fields, out);
    out.Put('\n');
}

void CsvPrinter::PrintError(const CandumpLine& line, std::string_view words, OutputBuffer& out)
{
    PutOrigin(line, out);
    out.Put(line.frame.ToString());
    out.Fill(',', std::size(WORD_KEYS) + std::size(NUMBER_KEYS) + 3);
    PutQuoted(words, out);
    if (mNames != nullptr)
        out.Fill(',', NAME_COUNT);
    out.Put('\n');
}

} // namespace tarn::tool
