#include "NamedFields.h"

#include "Failure.h"
#include "MessageNames.h"
#include "Numbers.h"
#include "TypedValues.h"
#include "Words.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <set>

namespace tarn::tool
{

namespace
{

constexpr unsigned int MAX_ADDRESS = 127;
constexpr unsigned int MAX_BYTE = 255;

unsigned int NumberOf(const std::string& option, const std::string& text, unsigned int max)
{
    const auto value = ParseWhole(text, max);
    if (!value)
        throw UsageFailure(option + ' ' + text + ": no whole number from 0 to " +
                           std::to_string(max) +
                           "; write it in decimal or with 0x in hexadecimal digits");
    return static_cast<unsigned int>(*value);
}

bool IsNamed(std::string_view text, const Installation* installation)
{
    return installation != nullptr && LooksLikeName(text);
}

std::vector<std::string> DeviceNames(const Installation& installation)
{
    std::vector<std::string> names;
    for (const InstalledDevice& device : installation.devices)
        names.push_back(device.name);
    return names;
}

/// The number of a group; nothing for no such group.
std::optional<unsigned int> FindGroup(const Installation& installation, std::string_view name)
{
    for (const auto& [number, known] : installation.groups) {
        if (EqualWords(known, name))
            return number;
    }
    return std::nullopt;
}

Failure NoAddress(const std::string& option, const std::string& text,
                  const Installation& installation)
{
    std::vector<std::string> names = DeviceNames(installation);
    for (const auto& group : installation.groups)
        names.push_back(group.second);
    return UsageFailure(option + ' ' + text + ": no such device or group; " +
                        SuggestNames(text, names));
}

/// The device that a message is about, which must be known.
const InstalledDevice& RequireOwner(const std::string& option, const std::string& text,
                                    const Installation& installation, const MessageFields& fields)
{
    const InstalledDevice* const owner = OwnerOf(installation, fields);
    if (owner == nullptr)
        throw UsageFailure(option + ' ' + text +
                           ": the device whose it is is not known; give its name or address with "
                           "--target, or a number here");
    return *owner;
}

void TakeModule(unsigned int module, MessageFields& fields)
{
    fields.module = module;
    fields.addressingMode = TarnMessage::ADDRESSING_MODE_EXTENDED;
}

/// The registers of a device that have a name: one, or one in each of several modules.
std::vector<const InstalledRegister*>
RegistersNamed(const std::string& name, const InstalledDevice& device, const MessageFields& fields)
{
    const bool isModuleKnown = fields.addressingMode == TarnMessage::ADDRESSING_MODE_EXTENDED;
    std::vector<const InstalledRegister*> found;
    for (const InstalledRegister& entry : device.registers) {
        if (EqualWords(entry.name, name) && (!isModuleKnown || entry.place.module == fields.module))
            found.push_back(&entry);
    }
    return found;
}

Failure NoRegister(const std::string& text, const InstalledDevice& device)
{
    std::vector<std::string> names;
    for (const InstalledRegister& entry : device.registers)
        names.push_back(entry.name);
    return UsageFailure("--register " + text + ": no such register of " + device.name + "; " +
                        SuggestNames(text, names));
}

/// Of a request to a group: the first of its devices that has a register of that name.
const InstalledDevice* FindInGroup(const std::string& name, const Installation& installation,
                                   const MessageFields& fields)
{
    for (const InstalledDevice& device : installation.devices) {
        if (device.options.groups.count(static_cast<unsigned char>(fields.target)) != 0 &&
            !RegistersNamed(name, device, fields).empty())
            return &device;
    }
    return nullptr;
}

bool IsToGroup(const MessageFields& fields)
{
    return fields.addressing == TarnMessage::ADDRESSING_GROUP &&
           fields.direction == TarnMessage::DIRECTION_REQUEST;
}

const InstalledDevice& DeviceWith(const std::string& name, const Installation& installation,
                                  const MessageFields& fields)
{
    if (!IsToGroup(fields))
        return RequireOwner("--register", name, installation, fields);
    if (const InstalledDevice* const device = FindInGroup(name, installation, fields))
        return *device;
    throw UsageFailure("--register " + name +
                       ": no device of the group has such a register; give its number");
}

/// Where in a register a text "actual=120.5" or the text at this place belongs.
std::size_t PlaceOf(const std::string& text, std::size_t at, const InstalledRegister& entry)
{
    const std::size_t sign = text.find('=');
    if (sign == std::string::npos)
        return at;
    std::vector<std::string> names;
    for (std::size_t place = 0; place < entry.values.size(); ++place) {
        if (EqualWords(entry.values[place].name, text.substr(0, sign)))
            return place;
        names.push_back(entry.values[place].name);
    }
    throw UsageFailure("--set " + text + ": no such value of " + entry.name + "; " +
                       SuggestNames(text.substr(0, sign), names));
}

std::string InWords(double number)
{
    std::array<char, 40> text = {};
    std::snprintf(text.data(), text.size(), "%.9g", number);
    return text.data();
}

/// @return the number on the bus
double ReadShown(const std::string& text, const InstalledValue& value,
                 TarnMessage::tTarnDataType type)
{
    const std::size_t sign = text.find('=');
    const auto shown = ParseReal(sign == std::string::npos ? text : text.substr(sign + 1));
    if (!shown)
        throw UsageFailure("--set " + text + ": no number; write it like 1.5, -2 or " + value.name +
                           "=1.5");
    if (Holds(type, value.OnBus(*shown)))
        return value.OnBus(*shown);
    const TypeRange range = RangeOf(type);
    const double one = value.Shown(range.min);
    const double other = value.Shown(range.max);
    throw UsageFailure("--set " + text + ": " + value.name + " goes from " +
                       InWords(std::min(one, other)) + " to " + InWords(std::max(one, other)) +
                       "; correct it");
}

std::vector<double> ReadAllShown(const std::vector<std::string>& texts,
                                 const InstalledRegister& entry)
{
    std::vector<std::optional<double>> numbers(entry.values.size());
    if (texts.size() == numbers.size()) {
        for (std::size_t at = 0; at < texts.size(); ++at) {
            const std::size_t place = PlaceOf(texts[at], at, entry);
            numbers[place] = ReadShown(texts[at], entry.values[place], entry.dataType);
        }
    }
    std::vector<double> all;
    for (const auto& number : numbers) {
        if (number)
            all.push_back(*number);
    }
    if (all.size() == entry.values.size())
        return all;
    std::string names;
    for (const InstalledValue& value : entry.values)
        names += ' ' + value.name + "=...";
    throw UsageFailure("--set: " + entry.name + " has " + std::to_string(entry.values.size()) +
                       " values, which are written together; give --set" + names);
}

void AddAddress(const std::string& option, std::string_view item, unsigned int max,
                const Installation* installation, NumberSet& numbers)
{
    if (!IsNamed(item, installation)) {
        numbers |= ParseNumberList(option, item, max);
        return;
    }
    if (const InstalledDevice* const device = installation->FindDevice(item))
        numbers.set(device->Address());
    else if (const auto group = FindGroup(*installation, item))
        numbers.set(*group);
    else
        throw NoAddress(option, std::string(item), *installation);
}

} // namespace

bool LooksLikeName(std::string_view text)
{
    return !text.empty() && (text.front() < '0' || text.front() > '9') && text.front() != '-';
}

void SetSource(const std::string& text, const Installation* installation, MessageFields& fields)
{
    fields.source = IsNamed(text, installation)
                        ? installation->RequireDevice("--source", text).Address()
                        : NumberOf("--source", text, MAX_ADDRESS);
}

void SetTarget(const std::string& text, const Installation* installation, MessageFields& fields)
{
    if (!IsNamed(text, installation)) {
        fields.target = NumberOf("--target", text, MAX_ADDRESS);
        return;
    }
    const std::size_t dot = text.find('.');
    if (const InstalledDevice* const device = installation->FindDevice(text.substr(0, dot))) {
        fields.target = device->Address();
        if (dot != std::string::npos)
            SetModule(text.substr(dot + 1), installation, fields);
    } else if (const auto group = FindGroup(*installation, text)) {
        fields.target = *group;
        fields.addressing = TarnMessage::ADDRESSING_GROUP;
    } else {
        throw NoAddress("--target", text, *installation);
    }
}

void SetModule(const std::string& text, const Installation* installation, MessageFields& fields)
{
    if (!IsNamed(text, installation))
        return TakeModule(NumberOf("--module", text, MAX_BYTE), fields);
    const InstalledDevice& owner = RequireOwner("--module", text, *installation, fields);
    std::vector<std::string> names;
    for (const auto& [number, name] : owner.modules) {
        if (EqualWords(name, text))
            return TakeModule(number, fields);
        names.push_back(name);
    }
    throw UsageFailure("--module " + text + ": no such module of " + owner.name + "; " +
                       SuggestNames(text, names));
}

void SetRegister(const std::string& text, const Installation* installation, MessageFields& fields)
{
    if (!IsNamed(text, installation)) {
        fields.reg = NumberOf("--register", text, MAX_BYTE);
        return;
    }
    const InstalledDevice& device = DeviceWith(text, *installation, fields);
    const auto found = RegistersNamed(text, device, fields);
    if (found.empty())
        throw NoRegister(text, device);
    if (found.size() > 1)
        throw UsageFailure("--register " + text + ": " + device.name +
                           " has it in several modules; add --module");
    fields.reg = found.front()->place.reg;
    if (found.front()->place.module != 0)
        TakeModule(found.front()->place.module, fields);
}

void SetShownValues(const std::vector<std::string>& texts, const Installation* installation,
                    MessageFields& fields)
{
    if (installation == nullptr)
        throw UsageFailure("--set: takes type and scale from an installation file; add --names "
                           "FILE, or give --u16 and the like");
    const InstalledDevice& owner = RequireOwner("--set", texts.front(), *installation, fields);
    const unsigned int module =
        fields.addressingMode == TarnMessage::ADDRESSING_MODE_EXTENDED ? fields.module : 0;
    const InstalledRegister* const entry =
        owner.Find({static_cast<unsigned char>(module), static_cast<unsigned char>(fields.reg)});
    if (entry == nullptr)
        throw UsageFailure("--set " + texts.front() +
                           ": the names file does not describe register " +
                           std::to_string(fields.reg) + " of " + owner.name +
                           "; add it there, or give --u16 and the like");
    const RegisterValue value = PayloadOf(entry->dataType, ReadAllShown(texts, *entry));
    fields.dataType = static_cast<unsigned int>(value.dataType);
    fields.payloadSize = value.bytes.size();
    std::copy(value.bytes.begin(), value.bytes.end(), fields.payload.begin());
    fields.accessType = TarnMessage::ACCESS_WRITE;
}

NumberSet ParseAddressList(const std::string& option, std::string_view list, unsigned int max,
                           const Installation* installation)
{
    NumberSet numbers;
    ForEachItem(
        list, [&](std::string_view item) { AddAddress(option, item, max, installation, numbers); });
    return numbers;
}

std::string RequireRegisterName(const std::string& option, const std::string& name,
                                const Installation& installation)
{
    std::set<std::string> known;
    for (const InstalledDevice& device : installation.devices) {
        for (const InstalledRegister& entry : device.registers) {
            if (EqualWords(entry.name, name))
                return name;
            known.insert(entry.name);
        }
    }
    throw UsageFailure(option + ' ' + name + ": no such register; " +
                       SuggestNames(name, {known.begin(), known.end()}));
}

std::vector<std::string> ParseItems(const std::string& option, std::string_view list,
                                    unsigned int max, const Installation* installation)
{
    NumberSet numbers;
    std::vector<std::string> names;
    ForEachItem(list, [&](std::string_view item) {
        if (IsNamed(item, installation))
            names.emplace_back(item);
        else
            numbers |= ParseNumberList(option, item, max);
    });
    std::vector<std::string> items;
    ForEachNumber(numbers, [&](unsigned int number) { items.push_back(std::to_string(number)); });
    items.insert(items.end(), names.begin(), names.end());
    return items;
}

} // namespace tarn::tool
