#include "ShownText.h"

#include <plexa_can/BusName.h>
#include <plexa_can/CanException.h>

#include <algorithm>

namespace tarn
{

namespace
{

[[noreturn]] void Refuse(const std::string& text, const std::string& reason)
{
    throw CanException("bus name '" + ShownText(text) + "': " + reason +
                       "; write it like virtual:bench or log:drive.log?speed=2&loop=1");
}

bool IsWord(const std::string& text)
{
    return !text.empty() && std::all_of(text.begin(), text.end(), [](char character) {
        return character >= 'a' && character <= 'z';
    });
}

bool HasControlCharacters(const std::string& text)
{
    return std::any_of(text.begin(), text.end(), IsControl);
}

void AddOption(const std::string& text, const std::string& option, BusName& name)
{
    const std::size_t mark = option.find('=');
    const std::string key = option.substr(0, mark);
    if (mark == std::string::npos || !IsWord(key) || mark + 1 == option.size())
        Refuse(text, "'" + ShownText(option) + "' is not of the form key=value");
    const bool twice = std::any_of(name.options.begin(), name.options.end(),
                                   [&](const auto& other) { return other.first == key; });
    if (twice)
        Refuse(text, "the key '" + ShownText(key) + "' comes twice");
    name.options.emplace_back(key, option.substr(mark + 1));
}

} // namespace

BusName ParseBusName(const std::string& text)
{
    if (text.size() > BusName::MAX_SIZE)
        Refuse(text, "longer than " + std::to_string(BusName::MAX_SIZE) + " characters");
    if (HasControlCharacters(text))
        Refuse(text, "has a control character");
    BusName name;
    const std::size_t colon = text.find(':');
    name.scheme = text.substr(0, colon);
    if (colon == std::string::npos || !IsWord(name.scheme))
        Refuse(text, "does not begin with a scheme of letters a to z and a ':'");
    const std::size_t mark = std::min(text.find('?', colon), text.size());
    name.address = text.substr(colon + 1, mark - colon - 1);
    if (name.address.empty())
        Refuse(text, "nothing behind the scheme");
    for (std::size_t at = mark; at < text.size();) {
        const std::size_t end = std::min(text.find('&', at + 1), text.size());
        AddOption(text, text.substr(at + 1, end - at - 1), name);
        at = end;
    }
    return name;
}

} // namespace tarn
