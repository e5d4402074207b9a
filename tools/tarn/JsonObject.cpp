#include "JsonObject.h"

#include "Failure.h"

#include <rapidjson/error/en.h>
#include <rapidjson/memorystream.h>
#include <rapidjson/reader.h>

namespace tarn::tool
{

namespace
{

/// Takes what the parser finds. An operation that returns false ends the parse.
class ObjectHandler : public rapidjson::BaseReaderHandler<rapidjson::UTF8<>, ObjectHandler>
{
public:
    explicit ObjectHandler(JsonObject& object) : mObject(object) {}

    const std::string& GetRefusal() const { return mRefusal; }

    /// Whatever has no operation of its own.
    bool Default() { return Refuse("only numbers, texts and one list of them are known"); }

    bool StartObject()
    {
        ++mDepth;
        if (mDepth == 1)
            return true;
        if (mMember == nullptr || mMember->isList)
            return Default();
        mMember->isObject = true;
        return true;
    }

    bool EndObject(rapidjson::SizeType)
    {
        --mDepth;
        return true;
    }

    bool Key(const char* text, rapidjson::SizeType size, bool)
    {
        if (mDepth > 1)
            return true;
        const auto [place, isNew] = mObject.try_emplace(std::string(text, size));
        mMember = &place->second;
        mName = place->first;
        return isNew || Refuse("stands there twice");
    }

    bool StartArray()
    {
        if (mMember == nullptr || mMember->isList || mDepth > 1)
            return Default();
        mMember->isList = true;
        return true;
    }

    bool EndArray(rapidjson::SizeType) { return true; }

    bool String(const char* text, rapidjson::SizeType size, bool)
    {
        return Scalar({false, std::string(text, size)});
    }

    bool RawNumber(const char* text, rapidjson::SizeType size, bool)
    {
        return Scalar({true, std::string(text, size)});
    }

private:
    bool Scalar(JsonScalar scalar)
    {
        if (mMember == nullptr)
            return Default();
        if (mDepth > 1)
            return true;
        mMember->scalars.push_back(std::move(scalar));
        return true;
    }

    bool Refuse(const char* reason)
    {
        mRefusal = (mName.empty() ? "" : '"' + mName + "\": ") + reason;
        return false;
    }

    JsonObject& mObject;
    JsonMember* mMember = nullptr;
    std::string mName;
    std::string mRefusal;
    std::size_t mDepth = 0;
};

} // namespace

JsonObject ReadJsonObject(std::string_view text)
{
    constexpr unsigned int FLAGS = rapidjson::kParseNumbersAsStringsFlag |
                                   rapidjson::kParseValidateEncodingFlag |
                                   rapidjson::kParseIterativeFlag;
    JsonObject object;
    ObjectHandler handler(object);
    rapidjson::MemoryStream stream(text.data(), text.size());
    rapidjson::Reader reader;
    const rapidjson::ParseResult result = reader.Parse<FLAGS>(stream, handler);
    if (!handler.GetRefusal().empty())
        throw Trouble(handler.GetRefusal() + "; give an object as 'tarn decode --json' prints it");
    if (!result)
        throw Trouble("no JSON, column " + std::to_string(result.Offset() + 1) + ": " +
                      rapidjson::GetParseError_En(result.Code()) +
                      " Give one object a line, as 'tarn decode --json' prints it");
    return object;
}

} // namespace tarn::tool
