#include "ShownText.h"

#include <algorithm>

namespace tarn
{

namespace
{

constexpr std::size_t SHOWN_SIZE = 80;

/// Beyond the 128 of ASCII a char is negative on some processors only.
bool IsControl(char character)
{
    return static_cast<unsigned char>(character) < ' ' || character == '\x7F';
}

} // namespace

std::string ShownText(const std::string& text)
{
    std::string shown = text.substr(0, SHOWN_SIZE);
    std::replace_if(shown.begin(), shown.end(), IsControl, '?');
    return text.size() > SHOWN_SIZE ? shown + "..." : shown;
}

} // namespace tarn
