#ifndef TARN_TOOLS_MESSAGE_NAMES_H
#define TARN_TOOLS_MESSAGE_NAMES_H

#include "Installation.h"
#include "MessageFields.h"

#include <string>
#include <string_view>

namespace tarn::tool
{

/// What the numbers of a message are called; empty where there is no name. Lives as long as the
/// installation.
struct MessageNames {
    std::string_view source;
    std::string_view target; ///< a device or a group
    std::string_view module;
    std::string_view reg;
    std::string_view mac; ///< the device that a CHCP message is about
    /// Null when the values have no names, or are of another type or number than the file says.
    const InstalledRegister* values = nullptr;
};

MessageNames NamesOf(const Installation& installation, const MessageFields& fields);

/// The same; without an installation (null) there are no names.
MessageNames NamesOf(const Installation* installation, const MessageFields& fields);

/// The device whose register a message is about: the source of a response, the target of a request;
/// of a request to a group, the first device of the group that has such a register. Null for none.
const InstalledDevice* OwnerOf(const Installation& installation, const MessageFields& fields);

/// A value in its unit, with as many digits as the number on the bus bears.
std::string ShownValue(const InstalledValue& value, const PayloadValues& values, std::size_t at);

/// "set=50 %": the same with its name and unit.
std::string NamedValue(const InstalledRegister& entry, const PayloadValues& values, std::size_t at);

/// "set=50 %, actual=49.75 %": all values of a message.
std::string ShownValues(const InstalledRegister& entry, const PayloadValues& values);

/// Letters rather than bytes, for columns.
std::size_t WidthOf(std::string_view name);

} // namespace tarn::tool

#endif
