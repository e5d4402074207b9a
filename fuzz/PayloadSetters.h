#ifndef FUZZ_PAYLOAD_SETTERS_H
#define FUZZ_PAYLOAD_SETTERS_H

#include "wire_format.h"

#include <tarn/TarnMessage.h>

#include <fuzzer/FuzzedDataProvider.h>

/// Calls one SetData() with values that the input tells, and does to the wire message what should
/// be done to the message. Requires that it is taken or refused as it should.
void SetSomePayload(tarn::TarnMessage& message, WireMessage& wire, FuzzedDataProvider& input);

#endif
