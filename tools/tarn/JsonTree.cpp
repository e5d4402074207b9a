#include "JsonTree.h"

#include "Numbers.h"

#include <rapidjson/error/en.h>
#include <rapidjson/memorystream.h>
#include <rapidjson/reader.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <iterator>
#include <memory>
#include <system_error>

namespace tarn::tool
{

namespace
{

constexpr std::size_t MAX_BYTES = 16 * 1024 * 1024;
constexpr std::size_t MAX_VALUES = 1000000;
constexpr std::size_t MAX_LEVELS = 16;

/// Counts the lines of a text up to places that never go back.
class LineCounter
{
public:
    explicit LineCounter(std::string_view text) : mText(text) {}

    unsigned int LineAt(std::size_t offset)
    {
        for (; mAt < std::min(offset, mText.size()); ++mAt)
            mLine += mText[mAt] == '\n' ? 1u : 0u;
        return mLine;
    }

private:
    std::string_view mText;
    std::size_t mAt = 0;
    unsigned int mLine = 1;
};

Failure Refusal(const std::string& file, unsigned int line, const std::string& text)
{
    return Trouble(file + ':' + std::to_string(line) + ": " + text);
}

/// Makes the tree of what the parser finds.
class TreeHandler : public rapidjson::BaseReaderHandler<rapidjson::UTF8<>, TreeHandler>
{
public:
    TreeHandler(const std::string& file, std::string_view text,
                const rapidjson::MemoryStream& stream)
        : mFile(file),
          mLines(text),
          mStream(stream)
    {
    }

    JsonNode TakeRoot() { return std::move(mRoot); }

    bool Null() { return Add(JsonNode::NOTHING, "null"); }
    bool Bool(bool value) { return Add(JsonNode::TRUTH, value ? "true" : "false"); }
    bool String(const char* text, rapidjson::SizeType size, bool)
    {
        return Add(JsonNode::TEXT, {text, size});
    }
    bool RawNumber(const char* text, rapidjson::SizeType size, bool)
    {
        return Add(JsonNode::NUMBER, {text, size});
    }
    bool Key(const char* text, rapidjson::SizeType size, bool)
    {
        mName.assign(text, size);
        return true;
    }
    bool StartObject() { return Open(JsonNode::OBJECT); }
    bool StartArray() { return Open(JsonNode::LIST); }
    bool EndObject(rapidjson::SizeType)
    {
        RefuseDoubles(*mOpen.back());
        mOpen.pop_back();
        return true;
    }
    bool EndArray(rapidjson::SizeType)
    {
        mOpen.pop_back();
        return true;
    }

private:
    /// Nodes that are open do not move: only the innermost one grows.
    JsonNode& Place()
    {
        if (mOpen.empty())
            return mRoot;
        return mOpen.back()->items.emplace_back();
    }

    bool Add(JsonNode::tKind kind, std::string_view text)
    {
        const unsigned int line = mLines.LineAt(mStream.Tell());
        if (++mCount > MAX_VALUES)
            throw Refusal(mFile, line, "has more than a million values; divide it");
        JsonNode& node = Place();
        node.kind = kind;
        node.name.swap(mName);
        mName.clear();
        node.text = text;
        node.line = line;
        return true;
    }

    bool Open(JsonNode::tKind kind)
    {
        if (mOpen.size() == MAX_LEVELS)
            throw Refusal(mFile, mLines.LineAt(mStream.Tell()),
                          "lists and objects lie more than 16 deep; correct it");
        Add(kind, {});
        mOpen.push_back(mOpen.empty() ? &mRoot : &mOpen.back()->items.back());
        return true;
    }

    void RefuseDoubles(const JsonNode& object) const
    {
        std::vector<const JsonNode*> members;
        for (const JsonNode& member : object.items)
            members.push_back(&member);
        std::stable_sort(members.begin(), members.end(), [](const auto* one, const auto* other) {
            return one->name < other->name;
        });
        const auto twice = std::adjacent_find(
            members.begin(), members.end(),
            [](const auto* one, const auto* other) { return one->name == other->name; });
        if (twice != members.end())
            throw Refusal(mFile, (*std::next(twice))->line,
                          '"' + (*twice)->name + "\": stands there twice; the first is in line " +
                              std::to_string((*twice)->line) + ", remove one");
    }

    const std::string& mFile;
    LineCounter mLines;
    const rapidjson::MemoryStream& mStream;
    JsonNode mRoot;
    std::vector<JsonNode*> mOpen;
    std::string mName;
    std::size_t mCount = 0;
};

std::size_t ColumnAt(std::string_view text, std::size_t offset)
{
    const std::size_t before = text.substr(0, offset).rfind('\n');
    return before == std::string_view::npos ? offset + 1 : offset - before;
}

} // namespace

JsonNode ReadJsonTree(const std::string& file, std::string_view text)
{
    constexpr unsigned int FLAGS = rapidjson::kParseNumbersAsStringsFlag |
                                   rapidjson::kParseValidateEncodingFlag |
                                   rapidjson::kParseIterativeFlag;
    if (text.size() > MAX_BYTES)
        throw Trouble(file + ": has more than 16 MB; divide it");
    rapidjson::MemoryStream stream(text.data(), text.size());
    TreeHandler handler(file, text, stream);
    rapidjson::Reader reader;
    const rapidjson::ParseResult result = reader.Parse<FLAGS>(stream, handler);
    if (!result)
        throw Refusal(file, LineCounter(text).LineAt(result.Offset()),
                      "column " + std::to_string(ColumnAt(text, result.Offset())) + ": no JSON: " +
                          rapidjson::GetParseError_En(result.Code()) + " Correct it");
    return handler.TakeRoot();
}

std::string ReadWholeFile(const std::string& file)
{
    const auto close = [](std::FILE* stream) { std::fclose(stream); };
    const std::unique_ptr<std::FILE, decltype(close)> stream(std::fopen(file.c_str(), "rbe"),
                                                             close);
    std::string text;
    std::size_t size = 0;
    char block[65536]; // NOLINT(cppcoreguidelines-pro-type-member-init): fread() fills it
    while (stream && (size = std::fread(block, 1, sizeof block, stream.get())) > 0 &&
           text.size() <= MAX_BYTES)
        text.append(block, size);
    if (!stream || std::ferror(stream.get()) != 0)
        throw Trouble(file + ": cannot be read: " + std::generic_category().message(errno) +
                      "; check name and rights");
    return text;
}

Failure JsonPlace::Refusal(const std::string& text) const
{
    std::string value;
    if (mNode->kind == JsonNode::TEXT)
        value = " \"" + mNode->text + '"';
    else if (mNode->kind == JsonNode::NUMBER || mNode->kind == JsonNode::TRUTH)
        value = ' ' + mNode->text;
    return tool::Refusal(mFile, mNode->line,
                         (mPath.empty() ? "the file" : mPath) + value + ": " + text);
}

void JsonPlace::RequireKind(JsonNode::tKind kind, const char* word) const
{
    if (mNode->kind != kind)
        throw Refusal(std::string("is no ") + word + "; write one");
}

unsigned int JsonPlace::Whole(unsigned int min, unsigned int max) const
{
    const auto value = ParseWhole(mNode->text, max);
    if (!value || *value < min)
        throw Refusal("no whole number from " + std::to_string(min) + " to " + std::to_string(max) +
                      "; write it like 16 or \"0x10\"");
    return static_cast<unsigned int>(*value);
}

double JsonPlace::Real() const
{
    constexpr std::uint64_t MAX_EXACT = std::uint64_t{1} << 53;
    if (mNode->kind == JsonNode::TEXT) {
        if (const auto whole = ParseWhole(mNode->text, MAX_EXACT))
            return static_cast<double>(*whole);
    }
    const auto value = mNode->kind == JsonNode::NUMBER ? ParseReal(mNode->text) : std::nullopt;
    if (!value)
        throw Refusal("is no number, or too large; write it like 1.5, -2e3 or \"0x10\"");
    return *value;
}

double JsonPlace::RealFrom(double min, double max) const
{
    const double value = Real();
    if (!(value >= min && value <= max))
        throw Refusal("is not from " + std::to_string(static_cast<int>(min)) + " to " +
                      std::to_string(static_cast<int>(max)) + "; correct it");
    return value;
}

const std::string& JsonPlace::Text() const
{
    RequireKind(JsonNode::TEXT, "text in quotation marks");
    return mNode->text;
}

bool JsonPlace::Truth() const
{
    RequireKind(JsonNode::TRUTH, "true or false");
    return mNode->text == "true";
}

void JsonPlace::ForEachItem(const std::function<void(const JsonPlace&)>& use) const
{
    RequireKind(JsonNode::LIST, "list in brackets");
    for (std::size_t at = 0; at < mNode->items.size(); ++at)
        use({mFile, mPath + '[' + std::to_string(at) + ']', mNode->items[at]});
}

void JsonPlace::ForEachMember(
    const std::function<void(const std::string& name, const JsonPlace&)>& use) const
{
    RequireKind(JsonNode::OBJECT, "object in braces");
    for (const JsonNode& member : mNode->items)
        use(member.name, {mFile, (mPath.empty() ? "" : mPath + '.') + member.name, member});
}

void JsonPlace::RequireMembers(std::initializer_list<std::string_view> known) const
{
    ForEachMember([&](const std::string& name, const JsonPlace& place) {
        if (std::find(known.begin(), known.end(), name) != known.end())
            return;
        std::string list;
        for (const std::string_view word : known)
            list += (list.empty() ? "" : ", ") + std::string(word);
        throw place.Refusal("no such member; choose from " + list);
    });
}

std::optional<JsonPlace> JsonPlace::Find(std::string_view name) const
{
    for (const JsonNode& member : mNode->items) {
        if (member.name == name)
            return JsonPlace(mFile, (mPath.empty() ? "" : mPath + '.') + member.name, member);
    }
    return std::nullopt;
}

JsonPlace JsonPlace::Need(std::string_view name) const
{
    const auto found = Find(name);
    if (!found)
        throw Refusal('"' + std::string(name) + "\" is missing; add it");
    return *found;
}

} // namespace tarn::tool
