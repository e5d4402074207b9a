#ifndef TARN_TOOLS_MESSAGE_FILTER_H
#define TARN_TOOLS_MESSAGE_FILTER_H

#include "MessageFields.h"
#include "NamesOption.h"
#include "NumberList.h"

#include <optional>
#include <string>
#include <vector>

namespace CLI
{
class App;
}

namespace tarn::tool
{

/// Chooses messages by their fields. A message passes when it passes every part that was given;
/// CHCP messages have no addresses and no register, so they pass none of those.
class MessageFilter
{
public:
    /// Adds --source, --target, --register and --type to a verb.
    /// @param names whose names they take, too; null for none, otherwise it outlives this object
    void AddOptions(CLI::App& verb, const NamesOption* names = nullptr);

    bool Passes(const MessageFields& fields) const;

private:
    const Installation* Names() const { return mNames == nullptr ? nullptr : mNames->Get(); }
    void AddAddresses(CLI::App& verb, const std::string& option, std::optional<NumberSet>& numbers,
                      const std::string& help);
    void SetRegisters(const std::string& list);
    bool IsNamedRegister(const MessageFields& fields) const;

    const NamesOption* mNames = nullptr;
    std::optional<NumberSet> mSources;
    std::optional<NumberSet> mTargets;
    std::optional<NumberSet> mRegisters;
    std::vector<std::string> mRegisterNames;
    /// Bits 0 to 15 are data types, MESSAGE_TYPE_BIT + 0 and + 1 the message types.
    std::optional<NumberSet> mTypes;
};

} // namespace tarn::tool

#endif
