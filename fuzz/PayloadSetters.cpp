#include "PayloadSetters.h"

#include "Require.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <vector>

namespace
{

using tarn::tarn_u24_t;
using tarn::TarnMessage;

/// One more than any type takes.
constexpr std::size_t MOST_VALUES = 7;

std::size_t Count(FuzzedDataProvider& input)
{
    return input.ConsumeIntegralInRange<std::size_t>(0, MOST_VALUES);
}

template <typename Value>
void SetWholes(TarnMessage& message, WireMessage& wire, FuzzedDataProvider& input, unsigned type)
{
    std::vector<Value> values(Count(input));
    std::vector<std::uint64_t> wholes;
    for (Value& value : values) {
        value = input.ConsumeIntegral<Value>();
        wholes.push_back(value);
    }
    const bool fits = !values.empty() && values.size() <= WireMostValues(type);
    Require(message.SetData(values) == fits, "number of whole values that is taken");
    if (fits)
        WirePutWhole(&wire, type, wholes.data(), static_cast<unsigned int>(wholes.size()));
}

void SetU24(TarnMessage& message, WireMessage& wire, FuzzedDataProvider& input)
{
    std::vector<tarn_u24_t> values(Count(input));
    std::vector<std::uint64_t> wholes;
    for (tarn_u24_t& value : values) {
        const auto whole = input.ConsumeIntegral<std::uint32_t>();
        value.value = whole & 0xFFFFFFu;
        wholes.push_back(whole);
    }
    const bool fits = values.size() == 1 || values.size() == 2;
    Require(message.SetData(values) == fits, "number of U24 values that is taken");
    if (fits)
        WirePutWhole(&wire, WIRE_U24, wholes.data(), static_cast<unsigned int>(wholes.size()));
}

/// Any bits.
double SomeDouble(FuzzedDataProvider& input)
{
    const auto bits = input.ConsumeIntegral<std::uint64_t>();
    double value = 0;
    std::memcpy(&value, &bits, sizeof value);
    return value;
}

/// Any bits, or a step of some format and what lies half a step and a bit more beside it, where
/// rounding and the choice of the format turn.
float SomeFloat(FuzzedDataProvider& input)
{
    if (!input.ConsumeBool()) {
        const auto bits = input.ConsumeIntegral<std::uint32_t>();
        float value = 0;
        std::memcpy(&value, &bits, sizeof value);
        return value;
    }
    const int halves = input.ConsumeIntegralInRange<int>(-140000, 140000);
    const int format = input.ConsumeIntegralInRange<int>(0, 7);
    const float value = std::ldexp(static_cast<float>(halves), 2 * format - 14);
    constexpr float INFINITE = std::numeric_limits<float>::infinity();
    const int side = input.ConsumeIntegralInRange<int>(-1, 1);
    return side == 0 ? value : std::nextafter(value, side < 0 ? -INFINITE : INFINITE);
}

void SetSingle(TarnMessage& message, WireMessage& wire, FuzzedDataProvider& input)
{
    std::vector<double> values(Count(input));
    for (double& value : values)
        value = input.ConsumeBool() ? SomeDouble(input) : static_cast<double>(SomeFloat(input));
    Require(message.SetData(values) == (values.size() == 1),
            "number of FLOAT values that is taken");
    if (values.size() != 1)
        return;
    WirePutSingle(&wire, values[0]);
    if (!std::isnan(values[0]))
        return;
    // Which of the NaNs travels is left open: as long as it is one, that of the message counts.
    std::vector<double> read;
    Require(message.GetData(read) && read.size() == 1 && std::isnan(read[0]), "NaN as FLOAT");
    TarnMessage data(message);
    data.SetType(TarnMessage::TYPE_DATA); // of which any payload can be framed
    std::memcpy(wire.payload, data.RawMessage().GetBytes(), 4);
}

void SetFixed(TarnMessage& message, WireMessage& wire, FuzzedDataProvider& input)
{
    std::vector<float> values(Count(input));
    for (float& value : values)
        value = SomeFloat(input);
    const std::vector<float> before = values;
    const auto hasSameBits = [](float one, float other) {
        return std::memcmp(&one, &other, sizeof one) == 0;
    };
    const auto count = static_cast<unsigned int>(values.size());
    int format = 0;
    bool takes = count >= 1 && count <= 3;
    if (input.ConsumeBool()) {
        format = input.ConsumeBool() ? input.ConsumeIntegralInRange<int>(-1, 16)
                                     : input.ConsumeIntegral<int>();
        takes = takes && format >= 0 && format <= 7;
        const auto type = static_cast<TarnMessage::tTarnDataType>(format);
        Require(message.SetData(values, type) == takes, "S16F values that are taken");
    } else {
        format = WireChooseFixed(values.data(), count);
        takes = takes && format >= 0;
        Require(message.SetData(values) == takes, "S16F values for which there is a format");
    }
    Require(std::equal(values.begin(), values.end(), before.begin(), hasSameBits),
            "the caller's values");
    if (takes)
        WirePutFixed(&wire, static_cast<unsigned int>(format), values.data(), count);
}

} // namespace

void SetSomePayload(TarnMessage& message, WireMessage& wire, FuzzedDataProvider& input)
{
    switch (input.ConsumeIntegralInRange<int>(0, 7)) {
    case 0:
        return SetWholes<unsigned char>(message, wire, input, WIRE_U8);
    case 1:
        return SetWholes<unsigned short>(message, wire, input, WIRE_U16);
    case 2:
        return SetU24(message, wire, input);
    case 3:
        return SetWholes<unsigned int>(message, wire, input, WIRE_U32);
    case 4:
        return SetWholes<unsigned long long>(message, wire, input, WIRE_U48);
    case 5:
        return SetSingle(message, wire, input);
    default:
        return SetFixed(message, wire, input);
    }
}
