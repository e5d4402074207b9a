#ifndef TARN_TOOLS_FIELD_OPTIONS_H
#define TARN_TOOLS_FIELD_OPTIONS_H

#include "ExclusiveFlags.h"
#include "MessageFields.h"

#include <string>
#include <vector>

namespace CLI
{
class App;
class Option;
} // namespace CLI

namespace tarn::tool
{

struct WordList;

/// The fields and the payload of one message as options.
class FieldOptions
{
public:
    /// Adds the options to a verb.
    void AddOptions(CLI::App& verb);

    /// True when at least one was given.
    bool AreGiven() const;

    /// The fields as given, the rest as in a new message.
    /// @throws Failure for options that do not go together
    MessageFields GetFields() const;

private:
    using Values = std::vector<std::string>;

    struct ValueOption {
        CLI::Option* option;
        std::string name;
        int dataType; ///< -1: the finest S16F format that holds the values
    };

    void AddHeaderOptions(CLI::App& verb);
    void AddValueOptions(CLI::App& verb);
    void AddChcpOptions(CLI::App& verb);
    void AddNumber(CLI::App& verb, const std::string& name, unsigned int max,
                   unsigned int MessageFields::*field, const std::string& help);
    void AddWord(CLI::App& verb, const std::string& name, const WordList& words,
                 unsigned int MessageFields::*field, const std::string& help);
    void AddValues(CLI::App& verb, const std::string& name, int dataType, int maxCount,
                   const std::string& help);
    CLI::Option* Remember(CLI::Option* option, std::vector<CLI::Option*>& kind);

    void SetPayload(MessageFields& fields) const;
    void SetChcpPayload(MessageFields& fields) const;
    void CheckKind() const;

    MessageFields mFields;
    ExclusiveFlags mAccessFlags;
    ExclusiveFlags mDirectionFlags;
    ExclusiveFlags mAddressingFlags;
    std::vector<CLI::Option*> mDataOptions;
    std::vector<CLI::Option*> mChcpOptions;
    std::vector<CLI::Option*> mCommonOptions;
    std::vector<ValueOption> mValueOptions;
    CLI::Option* mFormatOption = nullptr;
    CLI::Option* mModuleOption = nullptr;
    CLI::Option* mPayloadOption = nullptr;
    CLI::Option* mDataTypeOption = nullptr;
    unsigned int mFormat = 0;
};

} // namespace tarn::tool

#endif
