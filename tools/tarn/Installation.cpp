#include "Installation.h"

#include "Failure.h"
#include "Numbers.h"
#include "Words.h"

#include <algorithm>
#include <numeric>

namespace tarn::tool
{

namespace
{

constexpr unsigned int LAST_ADDRESS = 126;
constexpr std::size_t MOST_NAMES = 8;

char Lower(char letter)
{
    return letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter - 'A' + 'a') : letter;
}

/// How many letters must be put in, taken out or changed to make one of the other.
std::size_t Distance(std::string_view one, std::string_view other)
{
    std::vector<std::size_t> row(other.size() + 1);
    std::iota(row.begin(), row.end(), std::size_t{0});
    for (const char letter : one) {
        std::size_t diagonal = row[0]++;
        for (std::size_t j = 0; j < other.size(); ++j) {
            const std::size_t change = diagonal + (Lower(letter) == Lower(other[j]) ? 0 : 1);
            diagonal = row[j + 1];
            row[j + 1] = std::min({change, row[j] + 1, diagonal + 1});
        }
    }
    return row.back();
}

std::string Joined(const std::vector<std::string>& names, const char* last)
{
    std::string text;
    for (std::size_t at = 0; at < names.size(); ++at)
        text += (at == 0 ? "" : at + 1 == names.size() ? last : ", ") + names[at];
    return text;
}

} // namespace

std::string SuggestNames(std::string_view name, const std::vector<std::string>& known)
{
    if (known.empty())
        return "the names file has none of this kind";
    std::vector<std::string> near;
    std::copy_if(known.begin(), known.end(), std::back_inserter(near),
                 [name](const std::string& candidate) {
                     return Distance(name, candidate) <= 1 + candidate.size() / 4;
                 });
    if (!near.empty())
        return "did you mean " + Joined(near, " or ") + "?";
    const std::size_t count = std::min(known.size(), MOST_NAMES);
    const std::vector<std::string> first(known.begin(),
                                         known.begin() + static_cast<std::ptrdiff_t>(count));
    return "choose from " + Joined(first, ", ") + (count < known.size() ? ", ..." : "");
}

const InstalledRegister* InstalledDevice::Find(RegisterMap::Place place) const
{
    const auto found =
        std::lower_bound(registers.begin(), registers.end(), place,
                         [](const InstalledRegister& entry, RegisterMap::Place wanted) {
                             return entry.place < wanted;
                         });
    return found == registers.end() || place < found->place ? nullptr : &*found;
}

const InstalledDevice* Installation::Find(unsigned int address) const
{
    const auto found = std::lower_bound(devices.begin(), devices.end(), address,
                                        [](const InstalledDevice& device, unsigned int wanted) {
                                            return device.Address() < wanted;
                                        });
    return found == devices.end() || found->Address() != address ? nullptr : &*found;
}

const InstalledDevice* Installation::FindDevice(std::string_view name) const
{
    const auto found =
        std::find_if(devices.begin(), devices.end(), [name](const InstalledDevice& device) {
            return EqualWords(device.name, name);
        });
    return found == devices.end() ? nullptr : &*found;
}

const InstalledDevice& Installation::RequireDevice(const std::string& option,
                                                   const std::string& name) const
{
    const auto address = ParseWhole(name, LAST_ADDRESS);
    const InstalledDevice* const device =
        address ? Find(static_cast<unsigned int>(*address)) : FindDevice(name);
    if (device != nullptr)
        return *device;
    std::vector<std::string> names;
    for (const InstalledDevice& known : devices)
        names.push_back(known.name);
    throw UsageFailure(option + ' ' + name + ": no such device; " + SuggestNames(name, names));
}

} // namespace tarn::tool
