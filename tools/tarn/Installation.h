#ifndef TARN_TOOLS_INSTALLATION_H
#define TARN_TOOLS_INSTALLATION_H

#include "Duration.h"
#include "Motion.h"
#include "RegisterMap.h"
#include "SimulatedDevice.h"

#include <array>
#include <cstddef>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace tarn::tool
{

/// One value of a register, as people know it: the number on the bus * scale + offset.
struct InstalledValue {
    std::string name;
    std::string unit;
    double scale = 1;
    double offset = 0;
    Motion motion; ///< in the unit

    double Shown(double number) const { return number * scale + offset; }
    double OnBus(double value) const { return (value - offset) / scale; }
};

struct InstalledRegister {
    std::string name;
    RegisterMap::Place place;
    TarnMessage::tTarnDataType dataType = TarnMessage::DATATYPE_U16;
    RegisterMap::tAccess access = RegisterMap::READ_WRITE;
    std::vector<InstalledValue> values;
};

/// What a simulated device sends without being asked.
struct UnaskedReport {
    Duration interval = Duration::zero();
    unsigned char target = 0;
    TarnMessage::tTarnAddressing addressing = TarnMessage::ADDRESSING_DEVICE;
    std::vector<std::size_t> registers; ///< places in the registers of the device
};

struct InstalledDevice {
    std::string name;
    std::optional<unsigned int> mac;
    unsigned int deviceCode = 0;
    std::map<unsigned char, std::string> modules;
    std::vector<InstalledRegister> registers;
    /// False for one that is only named, such as the controller.
    bool simulated = true;
    SimulatedDevice::Options options; ///< the address stands here too
    std::optional<UnaskedReport> report;

    unsigned char Address() const { return options.address; }
    /// Null for none.
    const InstalledRegister* Find(RegisterMap::Place place) const;
};

/// The devices of an installation: what they are called, what is in their registers, how they
/// behave when they are simulated.
struct Installation {
    std::vector<InstalledDevice> devices;
    std::map<unsigned char, std::string> groups;

    /// Null for none.
    const InstalledDevice* Find(unsigned int address) const;
    const InstalledDevice* FindDevice(std::string_view name) const;
    /// By name or address.
    /// @param option begins the text of a refusal
    /// @throws Failure that tells names like it
    const InstalledDevice& RequireDevice(const std::string& option, const std::string& name) const;
};

/// "did you mean pump or pump-2?", or which names there are.
std::string SuggestNames(std::string_view name, const std::vector<std::string>& known);

/// Reads a file; docs/command.md describes its form.
/// @throws Failure that names line, member, reason and remedy
Installation ReadInstallation(const std::string& file);

/// Reads a text.
/// @param file begins the text of a refusal
Installation ParseInstallation(const std::string& file, std::string_view text);

} // namespace tarn::tool

#endif
