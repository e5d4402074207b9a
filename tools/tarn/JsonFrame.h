#ifndef TARN_TOOLS_JSON_FRAME_H
#define TARN_TOOLS_JSON_FRAME_H

#include <plexa_can/CanMessage.h>

#include <string_view>

namespace tarn::tool
{

/// The frame of an object as JsonPrinter writes it.
///
/// With "frame", members that say what that frame says are no edits: an object without edits gives
/// the frame itself, otherwise the edits are applied to its message. Without "frame", all members
/// are applied to a new message. Where one thing is told twice, as a word and a number or as
/// payload and values, the edited one counts.
/// @throws Failure for members that are unknown, out of range, of the other type of message or
///     contradict each other, and for a message that cannot be framed
CanMessage ReadJsonFrame(std::string_view text);

} // namespace tarn::tool

#endif
