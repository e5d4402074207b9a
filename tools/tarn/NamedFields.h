#ifndef TARN_TOOLS_NAMED_FIELDS_H
#define TARN_TOOLS_NAMED_FIELDS_H

#include "Installation.h"
#include "MessageFields.h"
#include "NumberList.h"

#include <string>
#include <string_view>
#include <vector>

namespace tarn::tool
{

/// Fields of a message by name or number. Everywhere, an installation may be missing (null): then
/// there are numbers only. To be called in this order, since a register is one of its device.
/// @throws Failure for what is neither, with names like it

/// True for what cannot be a number.
bool LooksLikeName(std::string_view text);

/// A device: "pump", "5".
void SetSource(const std::string& text, const Installation* installation, MessageFields& fields);

/// A device, a module of it or a group: "pump", "pump.drive", "pump.3", "all pumps", "5".
void SetTarget(const std::string& text, const Installation* installation, MessageFields& fields);

/// A module of the device that the message is about: "drive", "3".
void SetModule(const std::string& text, const Installation* installation, MessageFields& fields);

/// A register of that device: "speed", "16". Where no module was told, that of the register is
/// taken.
void SetRegister(const std::string& text, const Installation* installation, MessageFields& fields);

/// All values of the register, in their units: "120.5", or "actual=120.5". Makes a WRITE of it.
void SetShownValues(const std::vector<std::string>& texts, const Installation* installation,
                    MessageFields& fields);

/// A list of devices and groups: "pump,7-9".
NumberSet ParseAddressList(const std::string& option, std::string_view list, unsigned int max,
                           const Installation* installation);

/// The name itself, when a register of some device has it.
std::string RequireRegisterName(const std::string& option, const std::string& name,
                                const Installation& installation);

/// The items of a list: the numbers of "pump,7-9" one by one, names as they are.
std::vector<std::string> ParseItems(const std::string& option, std::string_view list,
                                    unsigned int max, const Installation* installation);

} // namespace tarn::tool

#endif
