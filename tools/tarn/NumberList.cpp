#include "NumberList.h"

#include "Failure.h"
#include "Numbers.h"

namespace tarn::tool
{

namespace
{

void AddRange(const std::string& option, std::string_view item, unsigned int max,
              NumberSet& numbers)
{
    const std::size_t dash = item.find('-');
    const auto first = ParseWhole(item.substr(0, dash), max);
    const auto last =
        dash == std::string_view::npos ? first : ParseWhole(item.substr(dash + 1), max);
    if (!first || !last || *first > *last)
        throw UsageFailure(option + " " + std::string(item) + ": no number or range from 0 to " +
                           std::to_string(max) + "; write it like 5,7-9 or 0x10-0x13");
    for (auto number = *first; number <= *last; ++number)
        numbers.set(static_cast<std::size_t>(number));
}

} // namespace

NumberSet ParseNumberList(const std::string& option, std::string_view list, unsigned int max)
{
    NumberSet numbers;
    ForEachItem(list, [&](std::string_view item) { AddRange(option, item, max, numbers); });
    return numbers;
}

void ForEachItem(std::string_view list, const std::function<void(std::string_view)>& use)
{
    for (;;) {
        const std::size_t comma = list.find(',');
        use(list.substr(0, comma));
        if (comma == std::string_view::npos)
            return;
        list.remove_prefix(comma + 1);
    }
}

void ForEachNumber(const NumberSet& numbers, const std::function<void(unsigned int)>& use)
{
    for (unsigned int number = 0; number < numbers.size(); ++number) {
        if (numbers.test(number))
            use(number);
    }
}

} // namespace tarn::tool
