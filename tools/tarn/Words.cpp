#include "Words.h"

#include <algorithm>

namespace tarn::tool
{

namespace
{

constexpr std::string_view TYPES[] = {"DATA", "CHCP"};
constexpr std::string_view PRIORITIES[] = {"SYNC", "EMRGENCY", "CONTROL", "DATA"};
constexpr std::string_view ADDRESSINGS[] = {"GROUP", "DEVICE"};
constexpr std::string_view ACCESS_TYPES[] = {"WRITE", "READ"};
constexpr std::string_view DIRECTIONS[] = {"RESPONSE", "REQUEST"};
constexpr std::string_view ADDRESSING_MODES[] = {"STANDARD", "EXTENDED"};
constexpr std::string_view STATUSES[] = {"UNKNOWN",
                                         "OFFLINE",
                                         "POWERUP",
                                         "STANDBY",
                                         "STARTUP",
                                         "OPERATING",
                                         "OPERATING WITH WARNING",
                                         "OPERATING WITH FAILURE",
                                         "STOPPED BY HW-FAILURE",
                                         "STOPPED BY EXTERNAL",
                                         "STOPPED BY INTERNAL",
                                         "RESOURCE NOT EXISTING",
                                         "RESOURCE EXCLUSIVE RESERVED",
                                         "RESOURCE OVERLOADED",
                                         "FRAME-FAILURE",
                                         "ACCESS NOT GRANTED"};
constexpr std::string_view DATA_TYPES[] = {
    "S16F0", "S16F1", "S16F2", "S16F3", "S16F4", "S16F5", "S16F6",   "S16F7",
    "U8",    "U16",   "U24",   "U32",   "U48",   "FLOAT", "INVALID", "NOT A TYPE"};

template <std::size_t COUNT>
constexpr WordList List(const std::string_view (&words)[COUNT])
{
    return {words, COUNT};
}

char Upper(char letter)
{
    return letter >= 'a' && letter <= 'z' ? static_cast<char>(letter - 'a' + 'A') : letter;
}

} // namespace

const WordList TYPE_WORDS = List(TYPES);
const WordList PRIORITY_WORDS = List(PRIORITIES);
const WordList ADDRESSING_WORDS = List(ADDRESSINGS);
const WordList ACCESS_TYPE_WORDS = List(ACCESS_TYPES);
const WordList DIRECTION_WORDS = List(DIRECTIONS);
const WordList ADDRESSING_MODE_WORDS = List(ADDRESSING_MODES);
const WordList STATUS_WORDS = List(STATUSES);
const WordList DATA_TYPE_WORDS = List(DATA_TYPES);

bool EqualWords(std::string_view one, std::string_view other)
{
    return std::equal(one.begin(), one.end(), other.begin(), other.end(),
                      [](char a, char b) { return Upper(a) == Upper(b); });
}

std::optional<unsigned int> WordList::Find(std::string_view word) const
{
    for (unsigned int value = 0; value < count; ++value) {
        if (EqualWords(words[value], word))
            return value;
    }
    return std::nullopt;
}

} // namespace tarn::tool
