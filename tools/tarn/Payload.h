#ifndef TARN_TOOLS_PAYLOAD_H
#define TARN_TOOLS_PAYLOAD_H

#include "MessageFields.h"

#include <string>
#include <string_view>
#include <vector>

namespace tarn::tool
{

/// Puts values into fields as their payload, by the data type that the fields name.
/// @param what begins the text of a refusal, such as "--u16"
/// @throws Failure for a value outside the range of the type, for too few or too many of them, and
///     for a data type that has no values
void SetValues(const std::string& what, const std::vector<std::string>& texts,
               MessageFields& fields);

/// The same in the S16F format that TarnMessage::SetData() chooses, which becomes the data type.
void SetFixedPointValues(const std::string& what, const std::vector<std::string>& texts,
                         MessageFields& fields);

/// Puts "6400C8" into fields as their payload. Blanks and dots may stand between bytes.
/// @throws Failure for anything else, and for more than 8 bytes
void SetRawPayload(const std::string& what, std::string_view digits, MessageFields& fields);

/// Writes device code, CHCP identifier and CHCP command into the payload, where they differ from
/// what it says already.
/// @throws Failure for a command above 5
void PutChcpFields(MessageFields& fields);

/// Reads the three back from a payload of 6 bytes.
void TakeChcpFields(MessageFields& fields);

} // namespace tarn::tool

#endif
