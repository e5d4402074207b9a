#ifndef TARN_TOOLS_TYPED_VALUES_H
#define TARN_TOOLS_TYPED_VALUES_H

#include "RegisterMap.h"

#include <cstddef>
#include <vector>

namespace tarn::tool
{

/// The numbers that a data type holds.
struct TypeRange {
    double min;
    double max;
    double step; ///< from one number to the next; 0 for FLOAT
};

/// @param type one that has values: S16F0 to FLOAT
TypeRange RangeOf(TarnMessage::tTarnDataType type);

/// As many values of a type as a message carries.
std::size_t MaxCountOf(TarnMessage::tTarnDataType type);

/// True when the type holds the number, or one at most half a step away.
bool Holds(TarnMessage::tTarnDataType type, double number);

/// The payload of numbers that the type holds, each rounded to the nearest step.
RegisterValue PayloadOf(TarnMessage::tTarnDataType type, const std::vector<double>& numbers);

} // namespace tarn::tool

#endif
