#include "SocketCanPacket.h"

#include <plexa_can/CandumpLine.h>

#include <algorithm>
#include <cstdint>
#include <cstring>

namespace tarn
{

namespace
{

// linux/can.h
constexpr std::uint32_t EXTENDED_MARK = 0x80000000u;
constexpr std::uint32_t REMOTE_MARK = 0x40000000u;
constexpr std::uint32_t ERROR_MARK = 0x20000000u;
constexpr std::uint32_t EXTENDED_MASK = 0x1FFFFFFFu;
constexpr std::uint32_t STANDARD_MASK = 0x7FFu;
constexpr unsigned char FD_FLAG = 0x04;
constexpr unsigned char XL_FLAG = 0x80;

constexpr std::size_t IDENTIFIER_SIZE = 4;
constexpr std::size_t LENGTH_AT = 4;
constexpr std::size_t FLAGS_AT = 5;
constexpr std::size_t DATA_AT = 8;
constexpr std::size_t FD_PACKET_SIZE = 72;

// The header of LINUX_SLL.
constexpr std::size_t COOKED_HEADER_SIZE = 16;
constexpr std::size_t COOKED_PROTOCOL_AT = 14;
constexpr unsigned int COOKED_OUTGOING = 4;
constexpr unsigned int PROTOCOL_CAN = 0x000C;
constexpr unsigned int PROTOCOL_CAN_FD = 0x000D;

unsigned int HighByteFirst(const unsigned char* bytes)
{
    return static_cast<unsigned int>(bytes[0]) << 8 | bytes[1];
}

void Refuse(CandumpLine& entry, const char* reason, std::size_t at)
{
    entry.kind = CandumpLine::KIND_MALFORMED;
    entry.reason = reason;
    entry.column = at + 1;
}

/// A packet no larger than a classical frame is one, whatever its flags: systems that know no CAN
/// FD leave stray bits there.
bool IsFlexible(const unsigned char* bytes, std::size_t size)
{
    const bool marked = (bytes[FLAGS_AT] & FD_FLAG) != 0 && size > SOCKET_CAN_PACKET_SIZE;
    return marked || size == FD_PACKET_SIZE || bytes[LENGTH_AT] > CanMessage::MAX_DATA_SIZE;
}

unsigned int FlagsOf(std::uint32_t identifier)
{
    if ((identifier & ERROR_MARK) != 0)
        return CanMessage::FLAG_ERROR;
    return ((identifier & EXTENDED_MARK) != 0 ? CanMessage::FLAG_EXTENDED : 0u) |
           ((identifier & REMOTE_MARK) != 0 ? CanMessage::FLAG_REMOTE : 0u);
}

/// The bytes behind the identifier, which begins at bytes.
void ParseFrame(std::uint32_t identifier, const unsigned char* bytes, std::size_t size,
                CandumpLine& entry)
{
    const unsigned int flags = FlagsOf(identifier);
    const bool wide = (identifier & (EXTENDED_MARK | ERROR_MARK)) != 0;
    if (!wide && (identifier & EXTENDED_MASK) > STANDARD_MASK)
        return Refuse(entry, "identifier is out of range", 0);
    const bool remote = flags == CanMessage::FLAG_REMOTE ||
                        flags == (CanMessage::FLAG_REMOTE | CanMessage::FLAG_EXTENDED);
    const std::size_t length = remote ? 0 : bytes[LENGTH_AT];
    if (length > size - DATA_AT)
        return Refuse(entry, "fewer data bytes than the length says", size);
    entry.frame.SetHeader(identifier & EXTENDED_MASK);
    entry.frame.GetFlags() = flags;
    entry.frame.SetBytes(bytes + DATA_AT, length);
    entry.kind = CandumpLine::KIND_FRAME;
}

void ParsePacket(std::uint32_t identifier, const unsigned char* bytes, std::size_t size,
                 CandumpLine& entry)
{
    if ((bytes[LENGTH_AT] & XL_FLAG) != 0)
        return Refuse(entry, "CAN XL frame", LENGTH_AT);
    if (IsFlexible(bytes, size))
        entry.kind = CandumpLine::KIND_FD_FRAME;
    else
        ParseFrame(identifier, bytes, size, entry);
}

} // namespace

void ParseSocketCanPacket(const unsigned char* bytes, std::size_t size, CandumpLine& entry)
{
    if (size < DATA_AT)
        return Refuse(entry, "fewer bytes than the header of a frame", size);
    const std::uint32_t identifier = HighByteFirst(bytes) << 16 | HighByteFirst(bytes + 2);
    ParsePacket(identifier, bytes, size, entry);
}

void ParseCookedPacket(const unsigned char* bytes, std::size_t size, CandumpLine& entry)
{
    if (size < COOKED_HEADER_SIZE)
        return Refuse(entry, "fewer bytes than the header of LINUX_SLL", size);
    const unsigned int protocol = HighByteFirst(bytes + COOKED_PROTOCOL_AT);
    if (protocol != PROTOCOL_CAN && protocol != PROTOCOL_CAN_FD) {
        entry.kind = CandumpLine::KIND_COMMENT;
        return;
    }
    entry.direction = HighByteFirst(bytes) == COOKED_OUTGOING ? CandumpLine::DIRECTION_SENT
                                                              : CandumpLine::DIRECTION_RECEIVED;
    if (size < COOKED_HEADER_SIZE + DATA_AT)
        return Refuse(entry, "fewer bytes than the header of a frame", size);
    if (protocol == PROTOCOL_CAN_FD) {
        entry.kind = CandumpLine::KIND_FD_FRAME;
        return;
    }
    std::uint32_t identifier = 0;
    std::memcpy(&identifier, bytes + COOKED_HEADER_SIZE, IDENTIFIER_SIZE);
    ParsePacket(identifier, bytes + COOKED_HEADER_SIZE, size - COOKED_HEADER_SIZE, entry);
}

void RenderSocketCanPacket(const CanMessage& frame, unsigned char (&bytes)[SOCKET_CAN_PACKET_SIZE])
{
    std::uint32_t identifier = frame.GetHeader() & STANDARD_MASK;
    if (frame.HasError())
        identifier = (frame.GetHeader() & EXTENDED_MASK) | ERROR_MARK;
    else if ((frame.GetFlags() & CanMessage::FLAG_EXTENDED) != 0)
        identifier = (frame.GetHeader() & EXTENDED_MASK) | EXTENDED_MARK;
    const bool remote = !frame.HasError() && (frame.GetFlags() & CanMessage::FLAG_REMOTE) != 0;
    if (remote)
        identifier |= REMOTE_MARK;
    std::fill(std::begin(bytes), std::end(bytes), static_cast<unsigned char>(0));
    for (unsigned int at = 0; at < IDENTIFIER_SIZE; ++at)
        bytes[at] = static_cast<unsigned char>(identifier >> (24 - 8 * at));
    if (remote)
        return;
    bytes[LENGTH_AT] = static_cast<unsigned char>(frame.GetDataSize());
    std::copy_n(frame.GetBytes(), frame.GetDataSize(), bytes + DATA_AT);
}

} // namespace tarn
