#ifndef TARN_TOOLS_JSON_OBJECT_H
#define TARN_TOOLS_JSON_OBJECT_H

#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace tarn::tool
{

/// A number or a string of a JSON text; numbers keep their characters.
struct JsonScalar {
    bool isNumber = false;
    std::string text;
};

/// One member of a JSON object: a scalar, a list of them, or an object whose content is not kept.
struct JsonMember {
    bool isList = false;
    bool isObject = false;
    std::vector<JsonScalar> scalars;

    const JsonScalar& Scalar() const { return scalars.front(); }
};

using JsonObject = std::map<std::string, JsonMember, std::less<>>;

/// Reads an object without booleans and nulls inside.
/// @throws Failure for anything else and for a name that stands there twice
JsonObject ReadJsonObject(std::string_view text);

} // namespace tarn::tool

#endif
