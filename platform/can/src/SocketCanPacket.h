#ifndef PLEXA_CAN_SRC_SOCKET_CAN_PACKET_H
#define PLEXA_CAN_SRC_SOCKET_CAN_PACKET_H

#include <cstddef>

namespace tarn
{

class CanMessage;
struct CandumpLine;

/// A frame as link type CAN_SOCKETCAN has it: the identifier with its marks, highest byte first,
/// the length, three further bytes, the data.
constexpr std::size_t SOCKET_CAN_PACKET_SIZE = 16;

/// Reads a packet of link type CAN_SOCKETCAN. Sets all of entry but time stamp and interface.
void ParseSocketCanPacket(const unsigned char* bytes, std::size_t size, CandumpLine& entry);

/// Reads a packet of link type LINUX_SLL, whose identifier is in the byte order of this machine.
void ParseCookedPacket(const unsigned char* bytes, std::size_t size, CandumpLine& entry);

/// Fills all bytes of a packet.
void RenderSocketCanPacket(const CanMessage& frame, unsigned char (&bytes)[SOCKET_CAN_PACKET_SIZE]);

} // namespace tarn

#endif
