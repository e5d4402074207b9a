#include "MessageFilter.h"

#include "Failure.h"
#include "MessageNames.h"
#include "NamedFields.h"
#include "Words.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <string_view>

namespace tarn::tool
{

namespace
{

constexpr unsigned int MESSAGE_TYPE_BIT = 16;
constexpr unsigned int S16F_FORMATS = 8;

void AddType(std::string_view word, NumberSet& types)
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

} // namespace

void MessageFilter::AddOptions(CLI::App& verb, const NamesOption* names)
{
    mNames = names;
    AddAddresses(verb, "--source", mSources,
                 "Only DATA messages from these addresses, 0 to 127: 5,7-9");
    AddAddresses(verb, "--target", mTargets, "Only DATA messages to these addresses, 0 to 127");
    verb.add_option_function<std::string>(
            "--register", [this](const std::string& list) { SetRegisters(list); },
            "Only DATA messages on these registers, 0 to 255: 0x10-0x13,40")
        ->type_name("LIST")
        ->group("Filters");
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

void MessageFilter::AddAddresses(CLI::App& verb, const std::string& option,
                                 std::optional<NumberSet>& numbers, const std::string& help)
{
    constexpr unsigned int MAX_ADDRESS = 127;
    verb.add_option_function<std::string>(
            option,
            [this, option, &numbers](const std::string& list) {
                numbers = ParseAddressList(option, list, MAX_ADDRESS, Names());
            },
            help)
        ->type_name("LIST")
        ->group("Filters");
}

void MessageFilter::SetRegisters(const std::string& list)
{
    constexpr unsigned int MAX_REGISTER = 255;
    mRegisters.emplace();
    for (const std::string& item : ParseItems("--register", list, MAX_REGISTER, Names())) {
        if (!LooksLikeName(item))
            *mRegisters |= ParseNumberList("--register", item, MAX_REGISTER);
        else
            mRegisterNames.push_back(RequireRegisterName("--register", item, *Names()));
    }
}

bool MessageFilter::IsNamedRegister(const MessageFields& fields) const
{
    if (mRegisterNames.empty() || fields.IsChcp())
        return false;
    const std::string_view name = NamesOf(*Names(), fields).reg;
    return std::any_of(mRegisterNames.begin(), mRegisterNames.end(),
                       [name](const std::string& wanted) { return EqualWords(wanted, name); });
}

bool MessageFilter::Passes(const MessageFields& fields) const
{
    const auto passes = [&fields](const std::optional<NumberSet>& numbers, unsigned int number) {
        return !numbers || (!fields.IsChcp() && numbers->test(number));
    };
    const bool typePasses =
        !mTypes || mTypes->test(MESSAGE_TYPE_BIT + fields.type) || passes(mTypes, fields.dataType);
    return typePasses && passes(mSources, fields.source) && passes(mTargets, fields.target) &&
           (passes(mRegisters, fields.reg) || IsNamedRegister(fields));
}

} // namespace tarn::tool
