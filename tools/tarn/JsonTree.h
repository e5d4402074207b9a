#ifndef TARN_TOOLS_JSON_TREE_H
#define TARN_TOOLS_JSON_TREE_H

#include "Failure.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tarn::tool
{

/// A value of a JSON text.
struct JsonNode {
    enum tKind { NOTHING, NUMBER, TEXT, TRUTH, LIST, OBJECT };

    tKind kind = NOTHING;
    std::string name;            ///< of a member of an object
    std::string text;            ///< the characters of a number, a text, "true" or "false"
    std::vector<JsonNode> items; ///< of a list or an object, in their order
    unsigned int line = 1;
};

/// Reads a text of at most 16 MB, a million values and 16 levels.
/// @param file begins the text of a refusal
/// @throws Failure for anything else and for a member that stands twice in its object, with the
///     line
JsonNode ReadJsonTree(const std::string& file, std::string_view text);

/// Reads a file, of at most 16 MB.
/// @throws Failure for a file that cannot be read
std::string ReadWholeFile(const std::string& file);

/// A value of a file and where it stands, so that every refusal can say so.
class JsonPlace
{
public:
    /// The node must outlive this object.
    JsonPlace(std::string file, std::string path, const JsonNode& node)
        : mFile(std::move(file)),
          mPath(std::move(path)),
          mNode(&node)
    {
    }

    /// "plant.json:12: devices[0].address 200: " and the text, which says why and what to do.
    Failure Refusal(const std::string& text) const;

    bool IsObject() const { return mNode->kind == JsonNode::OBJECT; }

    /// A number that may stand in quotation marks, as hexadecimal ones do.
    unsigned int Whole(unsigned int min, unsigned int max) const;
    double Real() const;
    double RealFrom(double min, double max) const;
    const std::string& Text() const;
    bool Truth() const;

    void ForEachItem(const std::function<void(const JsonPlace&)>& use) const;
    void
    ForEachMember(const std::function<void(const std::string& name, const JsonPlace&)>& use) const;

    /// @throws Failure when this is no object, or has a member that is not known
    void RequireMembers(std::initializer_list<std::string_view> known) const;
    std::optional<JsonPlace> Find(std::string_view name) const;
    JsonPlace Need(std::string_view name) const;

private:
    void RequireKind(JsonNode::tKind kind, const char* word) const;

    std::string mFile;
    std::string mPath;
    const JsonNode* mNode;
};

} // namespace tarn::tool

#endif
