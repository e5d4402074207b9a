#ifndef TARN_TOOLS_MESSAGE_KEYS_H
#define TARN_TOOLS_MESSAGE_KEYS_H

#include "MessageFields.h"
#include "Words.h"

#include <string_view>

namespace tarn::tool
{

/// Which messages have a field.
enum tFieldOwner { OWNER_BOTH, OWNER_DATA, OWNER_CHCP };

/// A field of an enumeration: "status":"POWERUP","statusNumber":2.
struct WordKey {
    std::string_view word;
    std::string_view number;
    const WordList& words;
    unsigned int MessageFields::*field;
    tFieldOwner owner;
};

struct NumberKey {
    std::string_view name;
    unsigned int MessageFields::*field;
    unsigned int max;
    tFieldOwner owner;
};

/// In the order in which they are printed.
inline const WordKey WORD_KEYS[] = {
    {"type", "typeNumber", TYPE_WORDS, &MessageFields::type, OWNER_BOTH},
    {"priority", "priorityNumber", PRIORITY_WORDS, &MessageFields::priority, OWNER_DATA},
    {"addressing", "addressingNumber", ADDRESSING_WORDS, &MessageFields::addressing, OWNER_DATA},
    {"accessType", "accessTypeNumber", ACCESS_TYPE_WORDS, &MessageFields::accessType, OWNER_DATA},
    {"direction", "directionNumber", DIRECTION_WORDS, &MessageFields::direction, OWNER_DATA},
    {"addressingMode", "addressingModeNumber", ADDRESSING_MODE_WORDS,
     &MessageFields::addressingMode, OWNER_DATA},
    {"status", "statusNumber", STATUS_WORDS, &MessageFields::status, OWNER_BOTH},
    {"dataType", "dataTypeNumber", DATA_TYPE_WORDS, &MessageFields::dataType, OWNER_BOTH}};

inline const NumberKey NUMBER_KEYS[] = {
    {"source", &MessageFields::source, 127, OWNER_DATA},
    {"target", &MessageFields::target, 127, OWNER_DATA},
    {"module", &MessageFields::module, 255, OWNER_DATA},
    {"register", &MessageFields::reg, 255, OWNER_DATA},
    {"mac", &MessageFields::mac, 0x0FFFFFFF, OWNER_CHCP},
    {"deviceCode", &MessageFields::deviceCode, 0xFFFFFFFF, OWNER_CHCP},
    {"chcpId", &MessageFields::chcpId, 127, OWNER_CHCP},
    {"chcpCommand", &MessageFields::chcpCommand, TarnMessage::CHCP_COMMAND_NONE, OWNER_CHCP}};

inline bool Has(const MessageFields& fields, tFieldOwner owner)
{
    return owner == OWNER_BOTH || (owner == OWNER_CHCP) == fields.IsChcp();
}

} // namespace tarn::tool

#endif
