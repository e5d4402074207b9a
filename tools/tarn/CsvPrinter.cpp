#include "CsvPrinter.h"

#include "MessageKeys.h"

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
    PutFrame(line.frame, out);
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
    out.Put(",payload,values,note\n");
}

void CsvPrinter::Print(const ReceivedMessage& received, OutputBuffer& out)
{
    const MessageFields& fields = received.fields;
    PutOrigin(received.line, out);
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
    out.Put('\n');
}

} // namespace tarn::tool
