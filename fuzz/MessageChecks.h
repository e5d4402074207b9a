#ifndef FUZZ_MESSAGE_CHECKS_H
#define FUZZ_MESSAGE_CHECKS_H

#include "wire_format.h"

#include <tarn/TarnMessage.h>

/// Requires that the message says what the wire format says: fields, payload by every getter, frame
/// and both texts.
void RequireSameMessage(tarn::TarnMessage& message, const WireMessage& wire);

#endif
