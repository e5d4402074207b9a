#ifndef TARN_TOOLS_FIELD_OPTIONS_H
#define TARN_TOOLS_FIELD_OPTIONS_H

#include "ExclusiveFlags.h"
#include "MessageFields.h"

#include <functional>
#include <string>
#include <vector>

namespace CLI
{
class App;
class Option;
} // namespace CLI

namespace tarn::tool
{

class NamesOption;
struct WordList;

/// The fields and the payload of one message as options.
class FieldOptions
{
public:
    /// Adds the options to a verb.
    /// @param names whose names they take; outlives this object
    void AddOptions(CLI::App& verb, const NamesOption& names);

    /// Adds those of a request to several targets and registers: all but these two, the direction
    /// and the fields of CHCP messages.
    void AddRequestOptions(CLI::App& verb, const NamesOption& names);

    /// True when at least one was given.
    bool AreGiven() const;

    /// The fields as given, the rest as in a new message.
    /// @throws Failure for options that do not go together
    MessageFields GetFields() const { return GetFields(mTarget, mRegister); }

    /// The same for one of several targets and registers, each a number or a name.
    MessageFields GetFields(const std::string& target, const std::string& reg) const;

private:
    using Values = std::vector<std::string>;

    struct ValueOption {
        CLI::Option* option;
        std::string name;
        int dataType; ///< -1: the finest S16F format that holds the values
    };

    void AddAddressOptions(CLI::App& verb);
    void AddHeaderOptions(CLI::App& verb);
    void AddDirectionOptions(CLI::App& verb);
    void AddStatusOption(CLI::App& verb);
    void AddValueOptions(CLI::App& verb);
    void AddChcpOptions(CLI::App& verb);
    void AddNumber(CLI::App& verb, const std::string& name, unsigned int max,
                   unsigned int MessageFields::*field, const std::string& help);
    void AddWord(CLI::App& verb, const std::string& name, const WordList& words,
                 unsigned int MessageFields::*field, const std::string& help);
    static void AddNamed(CLI::App& verb, const std::string& name, std::string& text,
                         const std::string& help);
    void AddValues(CLI::App& verb, const std::string& name, int dataType, int maxCount,
                   const std::string& help);
    std::function<void()> Choose(unsigned int MessageFields::*field, unsigned int value);
    void RememberHeader(CLI::App& verb, const std::vector<std::string>& names);
    CLI::Option* Remember(CLI::Option* option, std::vector<CLI::Option*>& kind);

    void SetAddresses(const std::string& target, const std::string& reg,
                      MessageFields& fields) const;
    void SetPayload(MessageFields& fields) const;
    void SetShownPayload(MessageFields& fields) const;
    void SetChcpPayload(MessageFields& fields) const;
    void CheckKind() const;

    const NamesOption* mNames = nullptr;
    MessageFields mFields;
    std::string mSource = "1";
    std::string mTarget = "0";
    std::string mRegister = "0";
    std::string mModule;
    Values mShownValues;
    ExclusiveFlags mAccessFlags;
    ExclusiveFlags mDirectionFlags;
    ExclusiveFlags mAddressingFlags;
    std::vector<CLI::Option*> mDataOptions;
    std::vector<CLI::Option*> mChcpOptions;
    std::vector<CLI::Option*> mCommonOptions;
    std::vector<ValueOption> mValueOptions;
    CLI::Option* mFormatOption = nullptr;
    CLI::Option* mSetOption = nullptr;
    CLI::Option* mReadOption = nullptr;
    CLI::Option* mPayloadOption = nullptr;
    CLI::Option* mDataTypeOption = nullptr;
    unsigned int mFormat = 0;
};

} // namespace tarn::tool

#endif
