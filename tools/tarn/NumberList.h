#ifndef TARN_TOOLS_NUMBER_LIST_H
#define TARN_TOOLS_NUMBER_LIST_H

#include <bitset>
#include <functional>
#include <string>
#include <string_view>

namespace tarn::tool
{

/// A set of addresses, registers or other small numbers.
using NumberSet = std::bitset<256>;

/// Reads "5,7-9,0x10".
/// @param option begins the message of a refusal
/// @param max the largest number that may be named, at most 255
/// @throws Failure for anything else
NumberSet ParseNumberList(const std::string& option, std::string_view list, unsigned int max);

/// Hands every item of "a,b,c" to a function.
void ForEachItem(std::string_view list, const std::function<void(std::string_view)>& use);

/// Hands every number of a set to a function, the smallest first.
void ForEachNumber(const NumberSet& numbers, const std::function<void(unsigned int)>& use);

} // namespace tarn::tool

#endif
