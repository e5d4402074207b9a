#ifndef TARN_TOOLS_MESSAGE_FIELDS_H
#define TARN_TOOLS_MESSAGE_FIELDS_H

#include <tarn/TarnMessage.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

namespace tarn::tool
{

/// The payload read by its data type.
struct PayloadValues {
    enum tKind { NONE, WHOLE, REAL };

    tKind kind = NONE;
    std::size_t count = 0;
    std::array<std::uint64_t, 6> whole = {}; ///< for WHOLE
    std::array<float, 3> real = {};          ///< for REAL
};

/// All that a message says, read once, so that printers and filters need no lock for each field.
struct MessageFields {
    enum tOddity {
        ODDITY_NONE,
        ODDITY_CHCP_LENGTH, ///< a CHCP frame of other than 7 bytes, which reads as an empty message
        ODDITY_PAYLOAD_SIZE ///< the payload does not fit its data type
    };

    unsigned int type = TarnMessage::TYPE_DATA;
    unsigned int priority = TarnMessage::PRIORITY_DATA;
    unsigned int addressing = TarnMessage::ADDRESSING_DEVICE;
    unsigned int accessType = TarnMessage::ACCESS_READ;
    unsigned int direction = TarnMessage::DIRECTION_REQUEST;
    unsigned int addressingMode = TarnMessage::ADDRESSING_MODE_STANDARD;
    unsigned int reg = 0;
    unsigned int target = 0;
    unsigned int source = 1;
    unsigned int module = 0;
    unsigned int status = TarnMessage::STATUS_POWERUP;
    unsigned int dataType = TarnMessage::DATATYPE_S16F0;

    unsigned int mac = 0;
    unsigned int deviceCode = 0;
    unsigned int chcpId = 0;
    unsigned int chcpCommand = 0;

    /// The bytes ahead of the status byte.
    std::array<unsigned char, CanMessage::MAX_DATA_SIZE> payload = {};
    std::size_t payloadSize = 0;

    /// Of a DATA message.
    PayloadValues values;
    tOddity oddity = ODDITY_NONE;

    bool IsChcp() const { return type == TarnMessage::TYPE_CHCP; }
};

/// Reads a valid message; the frame is the one that it was read from.
void ReadFields(const TarnMessage& message, const CanMessage& frame, MessageFields& fields);

/// What is odd about a message, for people; empty for none.
std::string_view Describe(MessageFields::tOddity oddity);

/// Builds the message that has these fields; values and oddity take no part.
/// @throws Failure for a payload that no message of its type carries
TarnMessage BuildMessage(const MessageFields& fields);

} // namespace tarn::tool

#endif
