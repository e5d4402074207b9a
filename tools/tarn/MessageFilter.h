#ifndef TARN_TOOLS_MESSAGE_FILTER_H
#define TARN_TOOLS_MESSAGE_FILTER_H

#include "MessageFields.h"

#include <bitset>
#include <optional>
#include <string>

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
    void AddOptions(CLI::App& verb);

    bool Passes(const MessageFields& fields) const;

private:
    using Numbers = std::bitset<256>;

    std::optional<Numbers> mSources;
    std::optional<Numbers> mTargets;
    std::optional<Numbers> mRegisters;
    /// Bits 0 to 15 are data types, MESSAGE_TYPE_BIT + 0 and + 1 the message types.
    std::optional<Numbers> mTypes;
};

} // namespace tarn::tool

#endif
