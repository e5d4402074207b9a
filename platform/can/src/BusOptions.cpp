#include "BusOptions.h"

#include "ShownText.h"

#include <plexa_can/CanException.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <limits>
#include <system_error>

namespace tarn
{

namespace
{

/// False when the text is not a number from end to end.
template <typename Number>
bool Parse(const std::string& text, Number& number)
{
    const char* const end = text.data() + text.size();
    const auto result = std::from_chars(text.data(), end, number);
    return result.ec == std::errc() && result.ptr == end;
}

} // namespace

void BusOptions::ParseWhole(const char* key, unsigned long long& value, unsigned long long min,
                            unsigned long long max)
{
    const std::string* const text = Find(key);
    if (text == nullptr)
        return;
    if (!Parse(*text, value) || value < min || value > max)
        Refuse(key, *text,
               "a whole number from " + std::to_string(min) + " to " + std::to_string(max));
}

void BusOptions::ReadProbability(const char* key, double& value)
{
    const std::string* const text = Find(key);
    if (text != nullptr && !(Parse(*text, value) && value >= 0 && value <= 1))
        Refuse(key, *text, "a probability from 0 to 1");
}

void BusOptions::ReadSpeed(const char* key, double& value)
{
    const std::string* const text = Find(key);
    if (text == nullptr)
        return;
    if (*text == "max")
        value = std::numeric_limits<double>::infinity();
    else if (!(Parse(*text, value) && value > 0 && std::isfinite(value)))
        Refuse(key, *text, "a factor above 0, or max");
}

void BusOptions::ReadSwitch(const char* key, bool& value)
{
    ReadChoice(key, "0", "1", value);
}

void BusOptions::ReadChoice(const char* key, const char* no, const char* yes, bool& value)
{
    const std::string* const text = Find(key);
    if (text == nullptr)
        return;
    if (*text != no && *text != yes)
        Refuse(key, *text, std::string(no) + " or " + yes);
    value = *text == yes;
}

void BusOptions::ReadText(const char* key, std::string& value)
{
    const std::string* const text = Find(key);
    if (text != nullptr)
        value = *text;
}

bool BusOptions::Has(const char* key) const
{
    return std::any_of(mName.options.begin(), mName.options.end(),
                       [key](const auto& option) { return option.first == key; });
}

const std::string* BusOptions::Find(const char* key)
{
    mKnown.emplace_back(key);
    for (const auto& option : mName.options) {
        if (option.first == key)
            return &option.second;
    }
    return nullptr;
}

void BusOptions::RequireAllKnown() const
{
    for (const auto& option : mName.options) {
        if (std::find(mKnown.begin(), mKnown.end(), option.first) != mKnown.end())
            continue;
        std::string list;
        for (const std::string& key : mKnown)
            list += (list.empty() ? "" : ", ") + key;
        throw CanException(ShownBus() + ": unknown option '" + ShownText(option.first) +
                           "'; there are: " + list);
    }
}

void BusOptions::Refuse(const char* key, const std::string& value, const std::string& wanted) const
{
    throw CanException(ShownBus() + ": option " + key + ": '" + ShownText(value) + "' is not " +
                       wanted);
}

std::string BusOptions::ShownBus() const
{
    return "bus " + ShownText(mName.scheme + ':' + mName.address);
}

} // namespace tarn
