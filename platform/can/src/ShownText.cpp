#include "ShownText.h"

#include <algorithm>

namespace tarn
{

namespace
{

constexpr std::size_t SHOWN_SIZE = 80;

} // namespace

bool IsControl(char character)
{
    // Beyond the 128 of ASCII a char is negative on some processors only.
    return static_cast<unsigned char>(character) < ' ' || character == '\x7F';
}

std::string ShownText(const std::string& text)
{
    std::string shown = text.substr(0, SHOWN_SIZE);
    std::replace_if(shown.begin(), shown.end(), IsControl, '?');
    return text.size() > SHOWN_SIZE ? shown + "..." : shown;
}

} // namespace tarn
