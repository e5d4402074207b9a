#include "Words.h"

#include <tarn/TarnMessage.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace
{

using namespace tarn::tool;
using tarn::TarnMessage;

// The library's own text is the judge of every word.

void ExpectWord(const TarnMessage& message, const char* item, std::string_view word)
{
    EXPECT_THAT(message.ToStringShort() + ',',
                testing::HasSubstr(std::string(item) + ": " + std::string(word) + ','));
}

template <typename Enumeration>
void ExpectWords(const WordList& words, unsigned int count, const char* item,
                 bool (TarnMessage::*set)(Enumeration))
{
    ASSERT_EQ(words.count, count);
    for (unsigned int value = 0; value < count; ++value) {
        TarnMessage message;
        ASSERT_TRUE((message.*set)(static_cast<Enumeration>(value)));
        ExpectWord(message, item, words[value]);
    }
}

TEST(Words, AreThoseOfTheMessage)
{
    ExpectWords(TYPE_WORDS, 2, "Type", &TarnMessage::SetType);
    ExpectWords(PRIORITY_WORDS, 4, "Priority", &TarnMessage::SetPriority);
    ExpectWords(ADDRESSING_WORDS, 2, "Addressing", &TarnMessage::SetAddressing);
    ExpectWords(ACCESS_TYPE_WORDS, 2, "AccessType", &TarnMessage::SetAccessType);
    ExpectWords(DIRECTION_WORDS, 2, "Direction", &TarnMessage::SetDirection);
    ExpectWords(ADDRESSING_MODE_WORDS, 2, "AddressingMode", &TarnMessage::SetAddressingMode);
    ExpectWords(STATUS_WORDS, 16, "Status", &TarnMessage::SetRStatus);
    ExpectWords(DATA_TYPE_WORDS, 16, "DataType", &TarnMessage::SetDataType);
}

TEST(Words, AreFoundInUpperAndLowerCase)
{
    EXPECT_EQ(STATUS_WORDS.Find("operating with WARNING"), 6u);
    EXPECT_EQ(STATUS_WORDS.Find("OPERATIN"), std::nullopt);
    EXPECT_EQ(STATUS_WORDS.Find(""), std::nullopt);
}

} // namespace
