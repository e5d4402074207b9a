#include "MessageFilter.h"

#include "Failure.h"
#include "Numbers.h"
#include "Words.h"

#include <CLI/CLI.hpp>

#include <functional>
#include <string_view>

namespace tarn::tool
{

namespace
{

using Numbers = std::bitset<256>;

constexpr unsigned int MESSAGE_TYPE_BIT = 16;
constexpr unsigned int S16F_FORMATS = 8;

/// Hands every item of "a,b,c" to a function.
void ForEachItem(std::string_view list, const std::function<void(std::string_view)>& use)
{
    for (;;) {
        const std::size_t comma = list.find(',');
        use(list.substr(0, comma));
        if (comma == std::string_view::npos)
            return;
        list.remove_prefix(comma + 1);
    }
}

void AddRange(const std::string& option, std::string_view item, unsigned int max, Numbers& numbers)
{
    const std::size_t dash = item.find('-');
    const auto first = ParseWhole(item.substr(0, dash), max);
    const auto last =
        dash == std::string_view::npos ? first : ParseWhole(item.substr(dash + 1), max);
    if (!first || !last || *first > *last)
        throw UsageFailure(option + " " + std::string(item) + ": no number or range from 0 to " +
                           std::to_string(max) + "; write it like 5,7-9 or 0x10-0x13");
    for (auto number = *first; number <= *last; ++number)
        numbers.set(number);
}

void AddType(std::string_view word, Numbers& types)
{
    if (const auto type = TYPE_WORDS.Find(word)) {
        types.set(MESSAGE_TYPE_BIT + *type);
    } else if (const auto dataType = DATA_TYPE_WORDS.Find(word)) {
        types.set(*dataType);
    } else if (EqualWords(word, "S16F")) {
        for (unsigned int format = 0; format < S16F_FORMATS; ++format)
            types.set(format);
    } else {
        throw UsageFailure("--type " + std::string(word) +
                           ": no type of message or data; choose from DATA, CHCP, S16F, S16F0 to "
                           "S16F7, U8, U16, U24, U32, U48, FLOAT");
    }
}

void AddRangeOption(CLI::App& verb, const std::string& option, unsigned int max,
                    std::optional<Numbers>& numbers, const std::string& help)
{
    verb.add_option_function<std::string>(
            option,
            [option, max, &numbers](const std::string& list) {
                numbers.emplace();
                ForEachItem(list,
                            [&](std::string_view item) { AddRange(option, item, max, *numbers); });
            },
            help)
        ->type_name("LIST")
        ->group("Filters");
}

} // namespace

void MessageFilter::AddOptions(CLI::App& verb)
{
    constexpr unsigned int MAX_ADDRESS = 127;
    constexpr unsigned int MAX_REGISTER = 255;
    AddRangeOption(verb, "--source", MAX_ADDRESS, mSources,
                   "Only DATA messages from these addresses, 0 to 127: 5,7-9");
    AddRangeOption(verb, "--target", MAX_ADDRESS, mTargets,
                   "Only DATA messages to these addresses, 0 to 127");
    AddRangeOption(verb, "--register", MAX_REGISTER, mRegisters,
                   "Only DATA messages on these registers, 0 to 255: 0x10-0x13,40");
    verb.add_option_function<std::string>(
            "--type",
            [this](const std::string& list) {
                mTypes.emplace();
                ForEachItem(list, [this](std::string_view word) { AddType(word, *mTypes); });
            },
            "Only messages of these types: DATA, CHCP; or DATA messages\n"
            "with these data types: S16F, S16F0 to S16F7, U8, U16, U24, U32,\n"
            "U48, FLOAT")
        ->type_name("LIST")
        ->group("Filters");
}

bool MessageFilter::Passes(const MessageFields& fields) const
{
    const auto passes = [&fields](const std::optional<Numbers>& numbers, unsigned int number) {
        return !numbers || (!fields.IsChcp() && numbers->test(number));
    };
    const bool typePasses =
        !mTypes || mTypes->test(MESSAGE_TYPE_BIT + fields.type) || passes(mTypes, fields.dataType);
    return typePasses && passes(mSources, fields.source) && passes(mTargets, fields.target) &&
           passes(mRegisters, fields.reg);
}

} // namespace tarn::tool
