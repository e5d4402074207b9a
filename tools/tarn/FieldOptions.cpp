#include "FieldOptions.h"

#include "Failure.h"
#include "NamedFields.h"
#include "NamesOption.h"
#include "Numbers.h"
#include "Payload.h"
#include "Words.h"

#include <CLI/CLI.hpp>

#include <algorithm>

namespace tarn::tool
{

namespace
{

constexpr const char* HEADER_GROUP = "DATA messages";
constexpr const char* VALUE_GROUP = "Payload of DATA messages, one of";
constexpr const char* CHCP_GROUP = "CHCP messages";
constexpr int CHOSEN_FORMAT = -1;

unsigned int ParseNumber(const std::string& name, const std::string& text, unsigned int max)
{
    const auto value = ParseWhole(text, max);
    if (!value)
        throw UsageFailure(name + ' ' + text + ": no whole number from 0 to " +
                           std::to_string(max) +
                           "; write it in decimal or with 0x in hexadecimal "
                           "digits");
    return static_cast<unsigned int>(*value);
}

unsigned int ParseWord(const std::string& name, const std::string& text, const WordList& words)
{
    if (const auto value = words.Find(text))
        return *value;
    if (const auto value = ParseWhole(text, words.count - 1))
        return static_cast<unsigned int>(*value);
    std::string choice;
    for (unsigned int value = 0; value < words.count; ++value)
        choice += (value == 0 ? "'" : ", '") + std::string(words[value]) + '\'';
    throw UsageFailure(name + ' ' + text + ": no such word or number; choose 0 to " +
                       std::to_string(words.count - 1) + " or one of " + choice);
}

const CLI::Option* FirstGiven(const std::vector<CLI::Option*>& options)
{
    const auto given = std::find_if(options.begin(), options.end(),
                                    [](const CLI::Option* option) { return !option->empty(); });
    return given == options.end() ? nullptr : *given;
}

} // namespace

void FieldOptions::AddOptions(CLI::App& verb, const NamesOption& names)
{
    mNames = &names;
    AddAddressOptions(verb);
    AddHeaderOptions(verb);
    AddDirectionOptions(verb);
    AddValueOptions(verb);
    AddChcpOptions(verb);
    AddStatusOption(verb);
}

void FieldOptions::AddRequestOptions(CLI::App& verb, const NamesOption& names)
{
    mNames = &names;
    AddHeaderOptions(verb);
    AddValueOptions(verb);
    AddStatusOption(verb);
}

void FieldOptions::AddAddressOptions(CLI::App& verb)
{
    AddNamed(verb, "--target", mTarget, "Target address, 0 to 127, default 0");
    AddNamed(verb, "--register", mRegister, "Register, 0 to 255, default 0");
    RememberHeader(verb, {"--target", "--register"});
}

void FieldOptions::AddHeaderOptions(CLI::App& verb)
{
    AddNamed(verb, "--source", mSource, "Source address, 0 to 127, default 1");
    AddNamed(verb, "--module", mModule,
             "Module of the target, 0 to 255; sends a module byte.\nDefault: none");
    AddWord(verb, "--priority", PRIORITY_WORDS, &MessageFields::priority,
            "SYNC, EMRGENCY, CONTROL or DATA, or 0 to 3, default DATA");
    mAccessFlags.Add(verb, "--read", Choose(&MessageFields::accessType, TarnMessage::ACCESS_READ),
                     "Reads the register (default)");
    mReadOption = verb.get_option("--read");
    mAccessFlags.Add(verb, "--write", Choose(&MessageFields::accessType, TarnMessage::ACCESS_WRITE),
                     "Writes the register");
    mAddressingFlags.Add(verb, "--device",
                         Choose(&MessageFields::addressing, TarnMessage::ADDRESSING_DEVICE),
                         "The target is a device (default)");
    mAddressingFlags.Add(verb, "--group",
                         Choose(&MessageFields::addressing, TarnMessage::ADDRESSING_GROUP),
                         "The target is a group");
    RememberHeader(
        verb, {"--source", "--module", "--priority", "--read", "--write", "--device", "--group"});
}

void FieldOptions::AddDirectionOptions(CLI::App& verb)
{
    mDirectionFlags.Add(verb, "--request",
                        Choose(&MessageFields::direction, TarnMessage::DIRECTION_REQUEST),
                        "Is a request (default)");
    mDirectionFlags.Add(verb, "--response",
                        Choose(&MessageFields::direction, TarnMessage::DIRECTION_RESPONSE),
                        "Is a response");
    RememberHeader(verb, {"--request", "--response"});
}

void FieldOptions::AddStatusOption(CLI::App& verb)
{
    AddWord(verb, "--status", STATUS_WORDS, &MessageFields::status,
            "Status, a word or 0 to 15, default POWERUP (2)");
    Remember(verb.get_option("--status"), mCommonOptions);
}

std::function<void()> FieldOptions::Choose(unsigned int MessageFields::*field, unsigned int value)
{
    return [this, field, value] { mFields.*field = value; };
}

void FieldOptions::RememberHeader(CLI::App& verb, const std::vector<std::string>& names)
{
    for (const std::string& name : names)
        Remember(verb.get_option(name)->group(HEADER_GROUP), mDataOptions);
}

void FieldOptions::AddValueOptions(CLI::App& verb)
{
    AddValues(verb, "--u8", TarnMessage::DATATYPE_U8, 6, "1 to 6 whole numbers, 0 to 255");
    AddValues(verb, "--u16", TarnMessage::DATATYPE_U16, 3, "1 to 3 whole numbers, 0 to 65535");
    AddValues(verb, "--u24", TarnMessage::DATATYPE_U24, 2, "1 or 2 whole numbers, 0 to 16777215");
    AddValues(verb, "--u32", TarnMessage::DATATYPE_U32, 1, "A whole number, 0 to 4294967295");
    AddValues(verb, "--u48", TarnMessage::DATATYPE_U48, 1, "A whole number, 0 to 281474976710655");
    AddValues(verb, "--float", TarnMessage::DATATYPE_FLOAT, 1,
              "A number in IEEE 754 single precision; nan, inf, -inf too");
    AddValues(verb, "--s16", CHOSEN_FORMAT, 3,
              "1 to 3 numbers in 16-bit fixed point, -65536 to 65534");
    mFormatOption = verb.add_option_function<std::string>(
        "--format", [this](const std::string& text) { mFormat = ParseNumber("--format", text, 7); },
        "Fixed-point format of --s16, 0 (step 2^-13) to 7 (step 2).\n"
        "Default: the finest that holds the values");
    mFormatOption->type_name("N")->group(VALUE_GROUP);
    mPayloadOption = verb.add_option_function<std::string>(
        "--payload", [this](const std::string& text) { SetRawPayload("--payload", text, mFields); },
        "Bytes in hexadecimal digits, 6 at most (a CHCP message: exactly 6)");
    mPayloadOption->type_name("HEX")->group(VALUE_GROUP);
    AddWord(verb, "--data-type", DATA_TYPE_WORDS, &MessageFields::dataType,
            "Data type without values or of --payload, a word or 0 to 15,\ndefault S16F0 (0)");
    mDataTypeOption = verb.get_option("--data-type")->group(VALUE_GROUP);
    mSetOption = verb.add_option("--set", mShownValues,
                                 "With --names: all values of the register, in their units:\n"
                                 "120.5, or actual=120.5; makes a WRITE of it");
    mSetOption->expected(1, 6)->type_name("VALUE")->group(VALUE_GROUP);
    Remember(mSetOption, mDataOptions);
    Remember(mFormatOption, mDataOptions);
    Remember(mPayloadOption, mCommonOptions);
    Remember(mDataTypeOption, mCommonOptions);
}

void FieldOptions::AddChcpOptions(CLI::App& verb)
{
    CLI::Option* const chcp = verb.add_flag_function(
        "--chcp", [this](std::int64_t) { mFields.type = TarnMessage::TYPE_CHCP; },
        "Is a CHCP message");
    Remember(chcp->group(CHCP_GROUP), mChcpOptions);
    AddNumber(verb, "--mac", 0x0FFFFFFF, &MessageFields::mac,
              "MAC identifier, 0 to 0xFFFFFFF, default 0");
    AddNumber(verb, "--device-code", 0xFFFFFFFF, &MessageFields::deviceCode,
              "Device code, 0 to 0xFFFFFFFF, default 0");
    AddNumber(verb, "--id", 127, &MessageFields::chcpId, "CHCP identifier, 0 to 127, default 0");
    AddNumber(verb, "--command", 5, &MessageFields::chcpCommand, "CHCP command, 0 to 5, default 0");
    for (const char* const name : {"--mac", "--device-code", "--id", "--command"}) {
        verb.get_option(name)->group(CHCP_GROUP);
        Remember(verb.get_option(name), mChcpOptions);
    }
}

void FieldOptions::AddNumber(CLI::App& verb, const std::string& name, unsigned int max,
                             unsigned int MessageFields::*field, const std::string& help)
{
    verb.add_option_function<std::string>(
            name,
            [this, name, max, field](const std::string& text) {
                mFields.*field = ParseNumber(name, text, max);
            },
            help)
        ->type_name("N");
}

void FieldOptions::AddNamed(CLI::App& verb, const std::string& name, std::string& text,
                            const std::string& help)
{
    verb.add_option(name, text, help)->type_name("N");
}

void FieldOptions::AddWord(CLI::App& verb, const std::string& name, const WordList& words,
                           unsigned int MessageFields::*field, const std::string& help)
{
    verb.add_option_function<std::string>(
            name,
            [this, name, &words, field](const std::string& text) {
                mFields.*field = ParseWord(name, text, words);
            },
            help)
        ->type_name("WORD");
}

void FieldOptions::AddValues(CLI::App& verb, const std::string& name, int dataType, int maxCount,
                             const std::string& help)
{
    CLI::Option* const option = verb.add_option_function<Values>(
        name, [](const Values&) {}, help);
    option->expected(1, maxCount)->type_name("N")->group(VALUE_GROUP);
    Remember(option, mDataOptions);
    mValueOptions.push_back({option, name, dataType});
}

CLI::Option* FieldOptions::Remember(CLI::Option* option, std::vector<CLI::Option*>& kind)
{
    kind.push_back(option);
    return option;
}

bool FieldOptions::AreGiven() const
{
    return FirstGiven(mDataOptions) != nullptr || FirstGiven(mChcpOptions) != nullptr ||
           FirstGiven(mCommonOptions) != nullptr;
}

MessageFields FieldOptions::GetFields(const std::string& target, const std::string& reg) const
{
    CheckKind();
    MessageFields fields = mFields;
    SetAddresses(target, reg, fields);
    if (fields.IsChcp())
        SetChcpPayload(fields);
    else
        SetPayload(fields);
    return fields;
}

void FieldOptions::SetAddresses(const std::string& target, const std::string& reg,
                                MessageFields& fields) const
{
    const Installation* const installation = mNames->Get();
    SetSource(mSource, installation, fields);
    SetTarget(target, installation, fields);
    if (!mModule.empty())
        SetModule(mModule, installation, fields);
    SetRegister(reg, installation, fields);
}

void FieldOptions::CheckKind() const
{
    const CLI::Option* const data = FirstGiven(mDataOptions);
    const CLI::Option* const chcp = FirstGiven(mChcpOptions);
    if (mFields.IsChcp() && data != nullptr)
        throw UsageFailure(data->get_name() +
                           ": no field of a CHCP message; leave it or --chcp out");
    if (!mFields.IsChcp() && chcp != nullptr)
        throw UsageFailure(chcp->get_name() + ": no field of a DATA message; add --chcp");
}

void FieldOptions::SetShownPayload(MessageFields& fields) const
{
    std::vector<CLI::Option*> rivals = {mPayloadOption, mDataTypeOption, mFormatOption,
                                        mReadOption};
    for (const ValueOption& option : mValueOptions)
        rivals.push_back(option.option);
    if (const CLI::Option* const rival = FirstGiven(rivals))
        throw UsageFailure("--set: does not go with " + rival->get_name() + "; give one of them");
    SetShownValues(mShownValues, mNames->Get(), fields);
}

void FieldOptions::SetPayload(MessageFields& fields) const
{
    if (!mSetOption->empty())
        return SetShownPayload(fields);
    const ValueOption* chosen = nullptr;
    for (const ValueOption& candidate : mValueOptions) {
        if (candidate.option->empty())
            continue;
        const CLI::Option* const rival = chosen != nullptr           ? chosen->option
                                         : !mPayloadOption->empty()  ? mPayloadOption
                                         : !mDataTypeOption->empty() ? mDataTypeOption
                                                                     : nullptr;
        if (rival != nullptr)
            throw UsageFailure(candidate.name + ": does not go with " + rival->get_name() +
                               "; give one of them");
        chosen = &candidate;
    }
    const bool fixedPoint = chosen != nullptr && chosen->dataType == CHOSEN_FORMAT;
    if (!mFormatOption->empty() && !fixedPoint)
        throw UsageFailure("--format: goes with --s16 alone; add --s16 or leave it out");
    if (chosen == nullptr)
        return;
    if (fixedPoint && mFormatOption->empty())
        return SetFixedPointValues(chosen->name, chosen->option->results(), fields);
    fields.dataType = fixedPoint ? mFormat : static_cast<unsigned int>(chosen->dataType);
    SetValues(chosen->name, chosen->option->results(), fields);
}

void FieldOptions::SetChcpPayload(MessageFields& fields) const
{
    if (!mPayloadOption->empty()) {
        const CLI::Option* const field = FirstGiven({mChcpOptions.begin() + 2, mChcpOptions.end()});
        if (field != nullptr)
            throw UsageFailure(field->get_name() +
                               ": does not go with --payload; give one of them");
        return;
    }
    PutChcpFields(fields);
}

} // namespace tarn::tool
