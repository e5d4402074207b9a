#include "JsonFrame.h"

#include "Failure.h"
#include "JsonObject.h"
#include "MessageKeys.h"
#include "Numbers.h"
#include "Payload.h"

#include <plexa_can/CandumpLine.h>

#include <algorithm>
#include <cmath>
#include <optional>
#include <string>
#include <vector>

namespace tarn::tool
{

namespace
{

/// How a message came and remarks for people; no part of the message.
constexpr std::string_view IGNORED_KEYS[] = {
    "time",       "interface",  "busDirection", "latency", "note", "sourceName",
    "targetName", "moduleName", "registerName", "macName", "named"};

const JsonMember* Find(const JsonObject& object, std::string_view key)
{
    const auto found = object.find(key);
    return found == object.end() ? nullptr : &found->second;
}

const std::string& TextOf(std::string_view key, const JsonMember& member)
{
    if (member.isList || member.isObject)
        throw Trouble('"' + std::string(key) + "\": is " +
                      (member.isList ? "a list" : "an object") + "; give one number or word");
    return member.Scalar().text;
}

unsigned int NumberOf(std::string_view key, const JsonMember& member, unsigned int max)
{
    const std::string& text = TextOf(key, member);
    const auto value = ParseWhole(text, max);
    if (!value)
        throw Trouble('"' + std::string(key) + "\" " + text + ": no whole number from 0 to " +
                      std::to_string(max) + "; correct it");
    return static_cast<unsigned int>(*value);
}

/// A word, or the number in its place.
unsigned int WordOf(const WordKey& key, const JsonMember& member)
{
    const std::string& text = TextOf(key.word, member);
    if (!member.Scalar().isNumber) {
        if (const auto value = key.words.Find(text))
            return *value;
    }
    if (const auto value = ParseWhole(text, key.words.count - 1))
        return static_cast<unsigned int>(*value);
    throw Trouble('"' + std::string(key.word) + "\" " + text +
                  ": no such word, nor a number from 0 "
                  "to " +
                  std::to_string(key.words.count - 1) + "; correct it");
}

bool EqualValue(const PayloadValues& values, std::size_t at, const std::string& text)
{
    if (values.kind == PayloadValues::WHOLE)
        return ParseWhole(text, ~std::uint64_t{0}) == values.whole[at];
    const auto number = ParseReal(text);
    const float value = values.real[at];
    return number &&
           (static_cast<float>(*number) == value || (std::isnan(*number) && std::isnan(value)));
}

bool EqualValues(const PayloadValues& values, const JsonMember& member)
{
    if (!member.isList || member.scalars.size() != values.count)
        return false;
    for (std::size_t at = 0; at < values.count; ++at) {
        if (!EqualValue(values, at, member.scalars[at].text))
            return false;
    }
    return true;
}

bool EqualPayload(const MessageFields& fields, const JsonMember& member)
{
    MessageFields other;
    SetRawPayload("\"payload\"", TextOf("payload", member), other);
    return std::equal(fields.payload.begin(), fields.payload.begin() + fields.payloadSize,
                      other.payload.begin(), other.payload.begin() + other.payloadSize);
}

/// An object on its way to a message.
class FrameBuilder
{
public:
    explicit FrameBuilder(const JsonObject& object) : mObject(object)
    {
        for (const auto& [key, member] : mObject)
            CheckKey(key);
    }

    CanMessage Build()
    {
        const JsonMember* const frame = Find(mObject, "frame");
        if (frame != nullptr)
            ReadBase(TextOf("frame", *frame));
        CollectEdits();
        if (frame != nullptr && mEdits.empty())
            return mBaseFrame;
        MessageFields fields = mBase.value_or(MessageFields());
        ApplyWords(fields);
        ApplyPayload(fields);
        ApplyNumbers(fields);
        if (fields.IsChcp())
            PutChcpFields(fields);
        CanMessage built = BuildMessage(fields).RawMessage();
        CheckAgreement(built);
        return built;
    }

private:
    /// "tarn decode" prints no other.
    static void CheckKey(std::string_view key)
    {
        const bool isWord =
            std::any_of(std::begin(WORD_KEYS), std::end(WORD_KEYS), [key](const WordKey& known) {
                return known.word == key || known.number == key;
            });
        const bool isNumber =
            std::any_of(std::begin(NUMBER_KEYS), std::end(NUMBER_KEYS),
                        [key](const NumberKey& known) { return known.name == key; });
        const bool isOther =
            key == "frame" || key == "payload" || key == "values" || IsIgnored(key);
        if (!isWord && !isNumber && !isOther)
            throw Trouble('"' + std::string(key) +
                          "\": no such member; see docs/command.md for the names, or remove it");
    }

    static bool IsIgnored(std::string_view key)
    {
        return std::find(std::begin(IGNORED_KEYS), std::end(IGNORED_KEYS), key) !=
               std::end(IGNORED_KEYS);
    }

    void ReadBase(const std::string& text)
    {
        CandumpLine line;
        const bool understood = ParseCandumpLine(text.data(), text.size(), line) &&
                                line.kind == CandumpLine::KIND_FRAME &&
                                line.interfaceName[0] == '\0';
        const TarnMessage message(line.frame);
        if (!understood || !message || (line.frame.GetFlags() & CanMessage::FLAG_REMOTE) != 0)
            throw Trouble("\"frame\" " + text +
                          ": no Tarn frame; write it like 0F800001#20, or remove it");
        mBaseFrame = line.frame;
        mBase.emplace();
        ReadFields(message, mBaseFrame, *mBase);
    }

    void CollectEdits()
    {
        for (const auto& [key, member] : mObject) {
            const bool isField = key != "frame" && !IsIgnored(key);
            if (isField && !(mBase && Agrees(key, member, *mBase)))
                mEdits.insert_or_assign(key, member);
        }
    }

    /// True when a member says what the fields say.
    static bool Agrees(std::string_view key, const JsonMember& member, const MessageFields& fields)
    {
        if (key == "payload")
            return EqualPayload(fields, member);
        if (key == "values")
            return !fields.IsChcp() && EqualValues(fields.values, member);
        for (const WordKey& known : WORD_KEYS) {
            if (known.word == key)
                return Has(fields, known.owner) && WordOf(known, member) == fields.*known.field;
            if (known.number == key)
                return Has(fields, known.owner) &&
                       NumberOf(key, member, known.words.count - 1) == fields.*known.field;
        }
        for (const NumberKey& known : NUMBER_KEYS) {
            if (known.name == key)
                return Has(fields, known.owner) &&
                       NumberOf(key, member, known.max) == fields.*known.field;
        }
        return false;
    }

    void ApplyWords(MessageFields& fields)
    {
        for (const WordKey& key : WORD_KEYS) {
            if (const JsonMember* const number = Find(mEdits, key.number))
                fields.*key.field = NumberOf(key.number, *number, key.words.count - 1);
            if (const JsonMember* const word = Find(mEdits, key.word))
                fields.*key.field = WordOf(key, *word);
        }
    }

    void ApplyNumbers(MessageFields& fields)
    {
        for (const NumberKey& key : NUMBER_KEYS) {
            const JsonMember* const number = Find(mEdits, key.name);
            if (number == nullptr)
                continue;
            if (!Has(fields, key.owner))
                throw Trouble('"' + std::string(key.name) + "\": no field of a " +
                              std::string(TYPE_WORDS[fields.type]) + " message; remove it");
            fields.*key.field = NumberOf(key.name, *number, key.max);
        }
        if (Find(mEdits, "module") != nullptr && Find(mEdits, "addressingMode") == nullptr &&
            Find(mEdits, "addressingModeNumber") == nullptr)
            fields.addressingMode = fields.module != 0;
    }

    void ApplyPayload(MessageFields& fields)
    {
        if (const JsonMember* const payload = Find(mEdits, "payload"))
            SetRawPayload("\"payload\"", TextOf("payload", *payload), fields);
        else if (ValuesCount(fields))
            ApplyValues(fields);
        else if (!fields.IsChcp() && IsRelabelled())
            throw Trouble("\"dataType\": changed, but payload and values stayed; remove the one "
                          "that is not to be kept");
        if (fields.IsChcp())
            TakeChcpFields(fields);
    }

    /// True when the payload is to be made from the values.
    bool ValuesCount(const MessageFields& fields) const
    {
        if (fields.IsChcp() || Find(mObject, "values") == nullptr)
            return false;
        return Find(mEdits, "values") != nullptr || Find(mObject, "payload") == nullptr;
    }

    bool IsRelabelled() const
    {
        const bool edited =
            Find(mEdits, "dataType") != nullptr || Find(mEdits, "dataTypeNumber") != nullptr;
        return edited && mBase && mBase->values.count > 0 && Find(mObject, "values") != nullptr &&
               Find(mObject, "payload") != nullptr;
    }

    void ApplyValues(MessageFields& fields)
    {
        const JsonMember& member = *Find(mObject, "values");
        if (!member.isList)
            throw Trouble("\"values\": is no list; write it like [100,200]");
        std::vector<std::string> texts;
        for (const JsonScalar& scalar : member.scalars)
            texts.push_back(scalar.text);
        fields.payloadSize = 0;
        if (!texts.empty())
            SetValues("\"values\"", texts, fields);
        mFromValues = true;
    }

    /// Whatever was asked for must be in the result; where one thing was told twice, both.
    void CheckAgreement(CanMessage& built) const
    {
        MessageFields fields;
        ReadFields(TarnMessage(built), built, fields);
        for (const auto& [key, member] : mEdits) {
            const bool isSource = key == "values" && mFromValues;
            if (!isSource && !Agrees(key, member, fields))
                throw Trouble('"' + key +
                              "\": does not agree with the other members; correct or remove it");
        }
    }

    const JsonObject& mObject;
    /// The members that do not say what "frame" says.
    JsonObject mEdits;
    CanMessage mBaseFrame;
    std::optional<MessageFields> mBase;
    bool mFromValues = false;
};

} // namespace

CanMessage ReadJsonFrame(std::string_view text)
{
    const JsonObject object = ReadJsonObject(text);
    return FrameBuilder(object).Build();
}

} // namespace tarn::tool
