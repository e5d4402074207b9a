#include "Installation.h"
#include "JsonTree.h"
#include "Numbers.h"
#include "TypedValues.h"
#include "Words.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <limits>

namespace tarn::tool
{

namespace
{

constexpr unsigned int LAST_ADDRESS = 126;
constexpr unsigned int MAX_BYTE = 255;
constexpr unsigned int MAX_MAC = 0x0FFFFFFF;
constexpr std::size_t MAX_NAME_BYTES = 64;
constexpr double HIGHEST = 1e300;

std::string InWords(double number)
{
    std::array<char, 40> text = {};
    std::snprintf(text.data(), text.size(), "%.9g", number);
    return text.data();
}

bool IsLetter(char character)
{
    // Bytes above 127 are parts of letters beyond ASCII.
    return (character >= 'a' && character <= 'z') || (character >= 'A' && character <= 'Z') ||
           character == '_' || static_cast<unsigned char>(character) > 127;
}

bool IsControl(char character)
{
    return static_cast<unsigned char>(character) < ' ' || character == 127;
}

/// Names stand in lists, behind dots and in front of equal signs, and must not look like a number.
std::string ReadName(const JsonPlace& place)
{
    const std::string& name = place.Text();
    const bool hasSeparator = std::any_of(name.begin(), name.end(), [](char character) {
        return character == ',' || character == '.' || character == '=' || character == '"' ||
               IsControl(character);
    });
    if (name.empty() || name.size() > MAX_NAME_BYTES || !IsLetter(name.front()) ||
        name.back() == ' ' || hasSeparator)
        throw place.Refusal("no name; begin with a letter, use 64 bytes at most, and no comma, "
                            "dot, equal sign or quotation mark");
    return name;
}

Duration ReadDuration(const JsonPlace& place)
{
    try {
        return ParseDuration("time", place.Text());
    } catch (const Failure&) {
        throw place.Refusal(
            "no duration; write a number with its unit, like \"250ms\" or \"1.5s\"");
    }
}

unsigned int ReadWord(const JsonPlace& place, const WordList& words, unsigned int count,
                      const char* what)
{
    const auto value = words.Find(place.Text());
    if (value && *value < count)
        return *value;
    std::string choice;
    for (unsigned int word = 0; word < count; ++word)
        choice += (word == 0 ? "" : ", ") + std::string(words[word]);
    throw place.Refusal(std::string("no ") + what + "; choose from " + choice);
}

TarnMessage::tTarnDataType ReadDataType(const JsonPlace& place)
{
    constexpr unsigned int COUNT = TarnMessage::DATATYPE_FLOAT + 1;
    return static_cast<TarnMessage::tTarnDataType>(
        ReadWord(place, DATA_TYPE_WORDS, COUNT, "data type"));
}

RegisterMap::tAccess ReadAccess(const JsonPlace& place)
{
    const std::string& text = place.Text();
    if (text == "read-only")
        return RegisterMap::READ_ONLY;
    if (text == "write-only")
        return RegisterMap::WRITE_ONLY;
    if (text == "read-write")
        return RegisterMap::READ_WRITE;
    throw place.Refusal("no access; choose from read-only, write-only, read-write");
}

double ReadReal(const JsonPlace& place)
{
    const double value = place.Real();
    if (!(value >= -HIGHEST && value <= HIGHEST))
        throw place.Refusal("is too large; correct it");
    return value;
}

class ValueReader
{
public:
    explicit ValueReader(TarnMessage::tTarnDataType type) : mType(type) {}

    InstalledValue Read(const JsonPlace& place)
    {
        place.RequireMembers({"name", "unit", "scale", "offset", "value"});
        mValue = InstalledValue();
        mValue.name = ReadName(place.Need("name"));
        if (const auto unit = place.Find("unit"))
            mValue.unit = ReadUnit(*unit);
        if (const auto scale = place.Find("scale"))
            mValue.scale = ReadScale(*scale);
        if (const auto offset = place.Find("offset"))
            mValue.offset = ReadReal(*offset);
        // What is 0 on the bus fits every type.
        mValue.motion.from = mValue.motion.to = mValue.offset;
        if (const auto value = place.Find("value"))
            ReadMotion(*value);
        return mValue;
    }

private:
    static std::string ReadUnit(const JsonPlace& place)
    {
        const std::string& unit = place.Text();
        if (unit.size() > MAX_NAME_BYTES || std::any_of(unit.begin(), unit.end(), IsControl))
            throw place.Refusal("no unit; use 64 bytes at most, and no control characters");
        return unit;
    }

    static double ReadScale(const JsonPlace& place)
    {
        const double scale = ReadReal(place);
        if (scale == 0)
            throw place.Refusal("all values would be the same; give another number than 0");
        return scale;
    }

    void ReadMotion(const JsonPlace& place)
    {
        if (!place.IsObject()) {
            mValue.motion.from = mValue.motion.to = ReadFitting(place);
            return;
        }
        place.RequireMembers({"ramp", "sine", "random"});
        std::size_t count = 0;
        place.ForEachMember([&](const std::string& name, const JsonPlace& motion) {
            ++count;
            if (name == "ramp")
                ReadRamp(motion);
            else if (name == "sine")
                ReadSine(motion);
            else
                ReadRandom(motion);
        });
        if (count != 1)
            throw place.Refusal("is not one motion; give one of ramp, sine, random");
    }

    void ReadRamp(const JsonPlace& place)
    {
        place.RequireMembers({"from", "to", "period"});
        mValue.motion.kind = Motion::RAMP;
        ReadEnds(place);
        ReadPeriod(place);
    }

    void ReadSine(const JsonPlace& place)
    {
        place.RequireMembers({"mean", "amplitude", "period"});
        mValue.motion.kind = Motion::SINE;
        const double mean = ReadFitting(place.Need("mean"));
        const JsonPlace amplitude = place.Need("amplitude");
        mValue.motion.from = mean - ReadReal(amplitude);
        mValue.motion.to = mean + ReadReal(amplitude);
        RequireFit(amplitude, mValue.motion.from);
        RequireFit(amplitude, mValue.motion.to);
        ReadPeriod(place);
    }

    void ReadRandom(const JsonPlace& place)
    {
        place.RequireMembers({"from", "to", "seed"});
        mValue.motion.kind = Motion::RANDOM;
        ReadEnds(place);
        if (const auto seed = place.Find("seed"))
            mValue.motion.seed = seed->Whole(0, std::numeric_limits<unsigned int>::max());
    }

    void ReadEnds(const JsonPlace& place)
    {
        mValue.motion.from = ReadFitting(place.Need("from"));
        mValue.motion.to = ReadFitting(place.Need("to"));
    }

    void ReadPeriod(const JsonPlace& place)
    {
        const JsonPlace period = place.Need("period");
        mValue.motion.period = ReadDuration(period);
        if (mValue.motion.period <= Duration::zero())
            throw period.Refusal("is no time; give more than 0");
    }

    double ReadFitting(const JsonPlace& place) const
    {
        const double value = ReadReal(place);
        RequireFit(place, value);
        return value;
    }

    void RequireFit(const JsonPlace& place, double value) const
    {
        if (Holds(mType, mValue.OnBus(value)))
            return;
        const TypeRange range = RangeOf(mType);
        const double one = mValue.Shown(range.min);
        const double other = mValue.Shown(range.max);
        throw place.Refusal(InWords(value) + " does not fit " +
                            std::string(DATA_TYPE_WORDS[static_cast<unsigned int>(mType)]) +
                            ", which holds " + InWords(std::min(one, other)) + " to " +
                            InWords(std::max(one, other)) +
                            " here; correct it or choose another type");
    }

    TarnMessage::tTarnDataType mType;
    InstalledValue mValue;
};

/// Refuses a second thing of the same name.
class UniqueNames
{
public:
    void Add(const std::string& name, const JsonPlace& place)
    {
        const bool known = std::any_of(mNames.begin(), mNames.end(), [&](const std::string& other) {
            return EqualWords(name, other);
        });
        if (known)
            throw place.Refusal("name \"" + name +
                                "\" stands for another one already; choose a "
                                "name of its own");
        mNames.push_back(name);
    }

private:
    std::vector<std::string> mNames;
};

void ReadValues(const JsonPlace& place, InstalledRegister& entry)
{
    UniqueNames names;
    ValueReader reader(entry.dataType);
    place.ForEachItem([&](const JsonPlace& item) {
        entry.values.push_back(reader.Read(item));
        names.Add(entry.values.back().name, item);
    });
    const std::size_t most = MaxCountOf(entry.dataType);
    if (entry.values.empty() || entry.values.size() > most)
        throw place.Refusal(
            "has " + std::to_string(entry.values.size()) + " values, but a register of type " +
            std::string(DATA_TYPE_WORDS[static_cast<unsigned int>(entry.dataType)]) + " has 1 to " +
            std::to_string(most) + "; correct it");
}

class DeviceReader
{
public:
    explicit DeviceReader(const JsonPlace& place) : mPlace(place) {}

    InstalledDevice Read()
    {
        mPlace.RequireMembers({"name", "address", "simulated", "mac", "deviceCode", "groups",
                               "status", "modules", "registers", "delay", "silent", "faults",
                               "report"});
        mDevice.name = ReadName(mPlace.Need("name"));
        mDevice.options.address =
            static_cast<unsigned char>(mPlace.Need("address").Whole(0, LAST_ADDRESS));
        ReadIdentity();
        ReadBehaviour();
        ReadModules();
        ReadRegisters();
        if (const auto report = mPlace.Find("report"))
            ReadReport(*report);
        return mDevice;
    }

private:
    void ReadIdentity()
    {
        if (const auto mac = mPlace.Find("mac"))
            mDevice.mac = mac->Whole(0, MAX_MAC);
        if (const auto code = mPlace.Find("deviceCode"))
            mDevice.deviceCode = code->Whole(0, std::numeric_limits<unsigned int>::max());
        if (const auto simulated = mPlace.Find("simulated"))
            mDevice.simulated = simulated->Truth();
        if (const auto groups = mPlace.Find("groups"))
            groups->ForEachItem([this](const JsonPlace& group) {
                mDevice.options.groups.insert(
                    static_cast<unsigned char>(group.Whole(0, LAST_ADDRESS)));
            });
    }

    void ReadBehaviour()
    {
        SimulatedDevice::Options& options = mDevice.options;
        if (const auto status = mPlace.Find("status"))
            options.status = static_cast<TarnMessage::tTarnRStatus>(
                ReadWord(*status, STATUS_WORDS, STATUS_WORDS.count, "status"));
        if (const auto delay = mPlace.Find("delay"))
            options.delay = ReadDuration(*delay);
        if (const auto silent = mPlace.Find("silent"))
            options.silent = silent->Truth();
        if (const auto faults = mPlace.Find("faults"))
            ReadFaults(*faults);
    }

    void ReadFaults(const JsonPlace& place)
    {
        place.RequireMembers(
            {"wrongRegister", "wrongSource", "wrongStatus", "noAnswer", "late", "lateBy", "seed"});
        SimulatedDevice::Faults& faults = mDevice.options.faults;
        const auto read = [&place](const char* name, double& share) {
            if (const auto member = place.Find(name))
                share = member->RealFrom(0, 1);
        };
        read("wrongRegister", faults.wrongRegister);
        read("wrongSource", faults.wrongSource);
        read("wrongStatus", faults.wrongStatus);
        read("noAnswer", faults.noAnswer);
        read("late", faults.late);
        if (const auto lateBy = place.Find("lateBy"))
            faults.lateBy = ReadDuration(*lateBy);
        if (const auto seed = place.Find("seed"))
            faults.seed = seed->Whole(0, std::numeric_limits<unsigned int>::max());
    }

    void ReadModules()
    {
        const auto modules = mPlace.Find("modules");
        if (!modules)
            return;
        UniqueNames names;
        modules->ForEachMember([&](const std::string& number, const JsonPlace& name) {
            const auto module = ParseWhole(number, MAX_BYTE);
            if (!module || *module == 0 ||
                !mDevice.modules.emplace(static_cast<unsigned char>(*module), ReadName(name))
                     .second)
                throw name.Refusal("its number is none from 1 to 255, or stands there twice; "
                                   "write it like \"3\": \"drive\"");
            names.Add(name.Text(), name);
        });
    }

    void ReadRegisters()
    {
        const auto registers = mPlace.Find("registers");
        if (!registers)
            return;
        std::map<RegisterMap::Place, InstalledRegister> entries;
        std::map<unsigned char, UniqueNames> names;
        registers->ForEachItem([&](const JsonPlace& place) {
            InstalledRegister entry = ReadRegister(place);
            names[entry.place.module].Add(entry.name, place);
            const auto [known, isNew] = entries.try_emplace(entry.place, entry);
            if (!isNew)
                throw Occupied(place, known->second);
        });
        for (auto& entry : entries)
            mDevice.registers.push_back(std::move(entry.second));
    }

    static Failure Occupied(const JsonPlace& place, const InstalledRegister& by)
    {
        return place.Refusal("register " + std::to_string(by.place.reg) + " of module " +
                             std::to_string(by.place.module) + " is \"" + by.name +
                             "\" already; correct one of them");
    }

    static InstalledRegister ReadRegister(const JsonPlace& place)
    {
        place.RequireMembers({"name", "register", "module", "type", "access", "values"});
        InstalledRegister entry;
        entry.name = ReadName(place.Need("name"));
        entry.place.reg = static_cast<unsigned char>(place.Need("register").Whole(0, MAX_BYTE));
        if (const auto module = place.Find("module"))
            entry.place.module = static_cast<unsigned char>(module->Whole(0, MAX_BYTE));
        entry.dataType = ReadDataType(place.Need("type"));
        if (const auto access = place.Find("access"))
            entry.access = ReadAccess(*access);
        if (const auto values = place.Find("values"))
            ReadValues(*values, entry);
        else
            entry.values.push_back({entry.name, {}, 1, 0, {}});
        return entry;
    }

    void ReadReport(const JsonPlace& place)
    {
        place.RequireMembers({"interval", "target", "group", "registers"});
        UnaskedReport report;
        const JsonPlace interval = place.Need("interval");
        report.interval = ReadDuration(interval);
        if (report.interval < std::chrono::microseconds(10))
            throw interval.Refusal("is too short; give 10us or more");
        ReadReportTarget(place, report);
        place.Need("registers").ForEachItem([&](const JsonPlace& name) {
            report.registers.push_back(RegisterNamed(name));
        });
        if (report.registers.empty())
            throw place.Refusal("names no register; add one to \"registers\"");
        mDevice.report = report;
    }

    static void ReadReportTarget(const JsonPlace& place, UnaskedReport& report)
    {
        const auto target = place.Find("target");
        const auto group = place.Find("group");
        if (target.has_value() == group.has_value())
            throw place.Refusal("does not say where to; give one of \"target\" and \"group\"");
        report.addressing = group ? TarnMessage::ADDRESSING_GROUP : TarnMessage::ADDRESSING_DEVICE;
        report.target = static_cast<unsigned char>((group ? *group : *target).Whole(0, 127));
    }

    std::size_t RegisterNamed(const JsonPlace& place) const
    {
        const std::string& name = place.Text();
        for (std::size_t at = 0; at < mDevice.registers.size(); ++at) {
            if (EqualWords(mDevice.registers[at].name, name))
                return at;
        }
        throw place.Refusal("no register of this device has that name; add it to \"registers\" of "
                            "the device, or correct it");
    }

    const JsonPlace& mPlace;
    InstalledDevice mDevice;
};

class InstallationReader
{
public:
    Installation Read(const JsonPlace& root)
    {
        root.RequireMembers({"devices", "groups"});
        if (const auto groups = root.Find("groups"))
            ReadGroups(*groups);
        root.Need("devices").ForEachItem([this](const JsonPlace& place) {
            InstalledDevice device = DeviceReader(place).Read();
            mNames.Add(device.name, place);
            InsertDevice(std::move(device), place);
        });
        return std::move(mInstallation);
    }

private:
    void ReadGroups(const JsonPlace& groups)
    {
        groups.ForEachMember([this](const std::string& number, const JsonPlace& name) {
            const auto group = ParseWhole(number, LAST_ADDRESS);
            if (!group ||
                !mInstallation.groups.emplace(static_cast<unsigned char>(*group), ReadName(name))
                     .second)
                throw name.Refusal("its number is none from 0 to 126, or stands there twice; write "
                                   "it like \"1\": \"all pumps\"");
            mNames.Add(name.Text(), name);
        });
    }

    /// In the order of their addresses, in which they are found.
    void InsertDevice(InstalledDevice device, const JsonPlace& place)
    {
        auto& devices = mInstallation.devices;
        if (const InstalledDevice* const other = mInstallation.Find(device.Address()))
            throw place.Refusal("address " + std::to_string(device.Address()) + " is that of \"" +
                                other->name + "\" already; correct one of them");
        const auto next = std::upper_bound(
            devices.begin(), devices.end(), device,
            [](const auto& one, const auto& another) { return one.Address() < another.Address(); });
        devices.insert(next, std::move(device));
    }

    Installation mInstallation;
    UniqueNames mNames; ///< of devices and groups
};

} // namespace

Installation ParseInstallation(const std::string& file, std::string_view text)
{
    const JsonNode root = ReadJsonTree(file, text);
    return InstallationReader().Read(JsonPlace(file, "", root));
}

Installation ReadInstallation(const std::string& file)
{
    return ParseInstallation(file, ReadWholeFile(file));
}

} // namespace tarn::tool
