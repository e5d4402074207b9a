#include "MessageNames.h"

#include <algorithm>
#include <array>
#include <charconv>

namespace tarn::tool
{

namespace
{

/// Digits that a float and a whole number of 48 bits bear.
constexpr int REAL_DIGITS = 7;
constexpr int WHOLE_DIGITS = 15;

bool AreOneType(unsigned int one, unsigned int other)
{
    return one == other ||
           (one <= TarnMessage::DATATYPE_S16F7 && other <= TarnMessage::DATATYPE_S16F7);
}

std::string_view GroupName(const Installation& installation, unsigned int group)
{
    const auto found = installation.groups.find(static_cast<unsigned char>(group));
    return found == installation.groups.end() ? std::string_view() : found->second;
}

std::string_view DeviceName(const Installation& installation, unsigned int address)
{
    const InstalledDevice* const device = installation.Find(address);
    return device == nullptr ? std::string_view() : device->name;
}

RegisterMap::Place PlaceOf(const MessageFields& fields)
{
    const bool hasModule = fields.addressingMode == TarnMessage::ADDRESSING_MODE_EXTENDED;
    return {static_cast<unsigned char>(hasModule ? fields.module : 0),
            static_cast<unsigned char>(fields.reg)};
}

std::string_view MacName(const Installation& installation, unsigned int mac)
{
    for (const InstalledDevice& device : installation.devices) {
        if (device.mac == mac)
            return device.name;
    }
    return {};
}

void NameRegister(const InstalledDevice& owner, const MessageFields& fields, MessageNames& names)
{
    const RegisterMap::Place place = PlaceOf(fields);
    const auto module = owner.modules.find(place.module);
    if (module != owner.modules.end())
        names.module = module->second;
    const InstalledRegister* const entry = owner.Find(place);
    if (entry == nullptr)
        return;
    names.reg = entry->name;
    if (AreOneType(static_cast<unsigned int>(entry->dataType), fields.dataType) &&
        entry->values.size() == fields.values.count)
        names.values = entry;
}

std::string InWords(double number, int digits)
{
    std::array<char, 40> text = {};
    const auto result = std::to_chars(text.data(), text.data() + text.size(), number,
                                      std::chars_format::general, digits);
    return {text.data(), result.ptr};
}

} // namespace

const InstalledDevice* OwnerOf(const Installation& installation, const MessageFields& fields)
{
    if (fields.direction == TarnMessage::DIRECTION_RESPONSE)
        return installation.Find(fields.source);
    if (fields.addressing == TarnMessage::ADDRESSING_DEVICE)
        return installation.Find(fields.target);
    const auto found = std::find_if(
        installation.devices.begin(), installation.devices.end(),
        [&fields](const InstalledDevice& device) {
            return device.options.groups.count(static_cast<unsigned char>(fields.target)) != 0 &&
                   device.Find(PlaceOf(fields)) != nullptr;
        });
    return found == installation.devices.end() ? nullptr : &*found;
}

MessageNames NamesOf(const Installation& installation, const MessageFields& fields)
{
    MessageNames names;
    if (fields.IsChcp()) {
        names.mac = MacName(installation, fields.mac);
        return names;
    }
    names.source = DeviceName(installation, fields.source);
    names.target = fields.addressing == TarnMessage::ADDRESSING_GROUP
                       ? GroupName(installation, fields.target)
                       : DeviceName(installation, fields.target);
    if (const InstalledDevice* const owner = OwnerOf(installation, fields))
        NameRegister(*owner, fields, names);
    return names;
}

MessageNames NamesOf(const Installation* installation, const MessageFields& fields)
{
    return installation == nullptr ? MessageNames() : NamesOf(*installation, fields);
}

std::string ShownValue(const InstalledValue& value, const PayloadValues& values, std::size_t at)
{
    if (values.kind == PayloadValues::WHOLE)
        return InWords(value.Shown(static_cast<double>(values.whole[at])), WHOLE_DIGITS);
    if (value.scale != 1 || value.offset != 0)
        return InWords(value.Shown(static_cast<double>(values.real[at])), REAL_DIGITS);
    std::array<char, 40> text = {};
    const auto result = std::to_chars(text.data(), text.data() + text.size(), values.real[at]);
    return {text.data(), result.ptr};
}

std::string NamedValue(const InstalledRegister& entry, const PayloadValues& values, std::size_t at)
{
    const InstalledValue& value = entry.values[at];
    const std::string text = value.name + '=' + ShownValue(value, values, at);
    return value.unit.empty() ? text : text + ' ' + value.unit;
}

std::string ShownValues(const InstalledRegister& entry, const PayloadValues& values)
{
    std::string text;
    for (std::size_t at = 0; at < entry.values.size(); ++at)
        text += (at == 0 ? "" : ", ") + NamedValue(entry, values, at);
    return text;
}

std::size_t WidthOf(std::string_view name)
{
    // Bytes 10xxxxxx go on with a letter.
    return static_cast<std::size_t>(
        std::count_if(name.begin(), name.end(), [](char byte) { return (byte & 0xC0) != 0x80; }));
}

} // namespace tarn::tool
