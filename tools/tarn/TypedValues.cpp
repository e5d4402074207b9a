#include "TypedValues.h"

#include <cmath>
#include <limits>

namespace tarn::tool
{

namespace
{

constexpr unsigned int FLOAT_BITS = 32;
constexpr unsigned int FIXED_POINT_BITS = 16;
constexpr std::size_t PAYLOAD_BITS = 48;

unsigned int BitsOf(TarnMessage::tTarnDataType type)
{
    switch (type) {
    case TarnMessage::DATATYPE_U8:
        return 8;
    case TarnMessage::DATATYPE_U16:
        return 16;
    case TarnMessage::DATATYPE_U24:
        return 24;
    case TarnMessage::DATATYPE_U32:
        return 32;
    case TarnMessage::DATATYPE_U48:
        return 48;
    case TarnMessage::DATATYPE_FLOAT:
        return FLOAT_BITS;
    default:
        return FIXED_POINT_BITS;
    }
}

double Rounded(double number, double step)
{
    return step > 0 ? std::round(number / step) * step : number;
}

template <typename Element>
void PutWhole(const std::vector<double>& numbers, TarnMessage& message)
{
    std::vector<Element> elements;
    elements.reserve(numbers.size());
    for (const double number : numbers)
        elements.push_back(static_cast<Element>(std::round(number)));
    message.SetData(elements);
}

void PutU24(const std::vector<double>& numbers, TarnMessage& message)
{
    std::vector<tarn_u24_t> elements(numbers.size());
    for (std::size_t at = 0; at < numbers.size(); ++at)
        elements[at].value = static_cast<unsigned int>(std::round(numbers[at])) & 0xFFFFFFu;
    message.SetData(elements);
}

void PutReal(TarnMessage::tTarnDataType type, std::vector<double> numbers, TarnMessage& message)
{
    if (type == TarnMessage::DATATYPE_FLOAT) {
        message.SetData(numbers);
        return;
    }
    std::vector<float> elements;
    elements.reserve(numbers.size());
    for (const double number : numbers)
        elements.push_back(static_cast<float>(Rounded(number, RangeOf(type).step)));
    message.SetData(elements, type);
}

void PutNumbers(TarnMessage::tTarnDataType type, const std::vector<double>& numbers,
                TarnMessage& message)
{
    switch (type) {
    case TarnMessage::DATATYPE_U8:
        return PutWhole<unsigned char>(numbers, message);
    case TarnMessage::DATATYPE_U16:
        return PutWhole<unsigned short>(numbers, message);
    case TarnMessage::DATATYPE_U24:
        return PutU24(numbers, message);
    case TarnMessage::DATATYPE_U32:
        return PutWhole<unsigned int>(numbers, message);
    case TarnMessage::DATATYPE_U48:
        return PutWhole<unsigned long long>(numbers, message);
    default:
        return PutReal(type, numbers, message);
    }
}

} // namespace

TypeRange RangeOf(TarnMessage::tTarnDataType type)
{
    constexpr auto MAX_FLOAT = static_cast<double>(std::numeric_limits<float>::max());
    if (type == TarnMessage::DATATYPE_FLOAT)
        return {-MAX_FLOAT, MAX_FLOAT, 0};
    if (type > TarnMessage::DATATYPE_S16F7)
        return {0, std::ldexp(1.0, static_cast<int>(BitsOf(type))) - 1, 1};
    const double step = std::ldexp(1.0, 2 * type - 13);
    return {-32768 * step, 32767 * step, step};
}

std::size_t MaxCountOf(TarnMessage::tTarnDataType type)
{
    return PAYLOAD_BITS / BitsOf(type);
}

bool Holds(TarnMessage::tTarnDataType type, double number)
{
    const TypeRange range = RangeOf(type);
    const double rounded = Rounded(number, range.step);
    return rounded >= range.min && rounded <= range.max;
}

RegisterValue PayloadOf(TarnMessage::tTarnDataType type, const std::vector<double>& numbers)
{
    TarnMessage message;
    PutNumbers(type, numbers, message);
    return RegisterValue::Of(message).value_or(RegisterValue());
}

} // namespace tarn::tool
