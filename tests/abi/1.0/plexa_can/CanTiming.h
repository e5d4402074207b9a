#ifndef PLEXA_CAN_CAN_TIMING_H
#define PLEXA_CAN_CAN_TIMING_H

#include <plexa_can/Export.h>

namespace tarn
{

class CanMessage;

/// Orders frames as arbitration on the bus does (ISO 11898-1): of two frames that begin at the same
/// time the one with the lower rank wins. Identifier bits are compared from the highest; where they
/// are equal, a data frame wins over a remote request and an 11-bit identifier over a 29-bit one.
PLEXA_CAN_API unsigned int ArbitrationRank(const CanMessage& frame);

/// The bits that a frame takes on the bus, the three of the interframe space included, without
/// stuff bits (ISO 11898-1): 67 and 8 a data byte with a 29-bit identifier, 47 and 8 a byte with 11
/// bits. Stuff bits may add up to a quarter to that.
PLEXA_CAN_API unsigned int FrameBits(const CanMessage& frame);

} // namespace tarn

#endif
