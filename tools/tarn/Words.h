#ifndef TARN_TOOLS_WORDS_H
#define TARN_TOOLS_WORDS_H

#include <cstddef>
#include <optional>
#include <string_view>

namespace tarn::tool
{

/// The display words of one enumeration; the value of a word is its place.
struct WordList {
    const std::string_view* words;
    unsigned int count;

    std::string_view operator[](unsigned int value) const { return words[value]; }

    /// The value of a word, upper or lower case.
    std::optional<unsigned int> Find(std::string_view word) const;
};

extern const WordList TYPE_WORDS;
extern const WordList PRIORITY_WORDS;
extern const WordList ADDRESSING_WORDS;
extern const WordList ACCESS_TYPE_WORDS;
extern const WordList DIRECTION_WORDS;
extern const WordList ADDRESSING_MODE_WORDS;
extern const WordList STATUS_WORDS;
extern const WordList DATA_TYPE_WORDS;

/// True when both are the same but for the case of letters A to Z.
bool EqualWords(std::string_view one, std::string_view other);

} // namespace tarn::tool

#endif
