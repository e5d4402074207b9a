#ifndef PLEXA_CAN_SRC_BUS_OPTIONS_H
#define PLEXA_CAN_SRC_BUS_OPTIONS_H

#include <plexa_can/BusName.h>

#include <string>
#include <vector>

namespace tarn
{

/// Reads the options of a bus name. Each operation knows one key; RequireAllKnown() then refuses
/// the keys that none knew. Where a key is not given, the value stays as it is.
class BusOptions
{
public:
    explicit BusOptions(const BusName& name) : mName(name) {}

    /// A whole number from min to max.
    template <typename Number>
    void ReadWhole(const char* key, Number& value, unsigned long long min, unsigned long long max)
    {
        unsigned long long whole = value;
        ParseWhole(key, whole, min, max);
        value = static_cast<Number>(whole);
    }
    /// From 0 to 1.
    void ReadProbability(const char* key, double& value);
    /// A factor above 0; "max" is infinity.
    void ReadSpeed(const char* key, double& value);
    /// 0 or 1.
    void ReadSwitch(const char* key, bool& value);
    /// One of two words; true for the second.
    void ReadChoice(const char* key, const char* no, const char* yes, bool& value);
    void ReadText(const char* key, std::string& value);

    bool Has(const char* key) const;

    /// @throws CanException
    void RequireAllKnown() const;

private:
    const std::string* Find(const char* key);
    void ParseWhole(const char* key, unsigned long long& value, unsigned long long min,
                    unsigned long long max);
    [[noreturn]] void Refuse(const char* key, const std::string& value,
                             const std::string& wanted) const;
    std::string ShownBus() const;

    const BusName& mName;
    std::vector<std::string> mKnown;
};

} // namespace tarn

#endif
