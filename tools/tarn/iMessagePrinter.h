#ifndef TARN_TOOLS_MESSAGE_PRINTER_H
#define TARN_TOOLS_MESSAGE_PRINTER_H

#include "Duration.h"
#include "MessageFields.h"
#include "MessageNames.h"
#include "OutputBuffer.h"

#include <plexa_can/CandumpLine.h>

#include <optional>
#include <string_view>

namespace tarn::tool
{

/// A message and how it came.
struct ReceivedMessage {
    /// Time stamp, interface, direction and frame.
    const CandumpLine& line;
    const TarnMessage& message;
    const MessageFields& fields;
    /// Of an answer: how long it took.
    std::optional<Duration> latency = std::nullopt;
};

/// Writes messages in one form.
class iMessagePrinter
{
public:
    virtual ~iMessagePrinter() = default;

    /// What stands ahead of the first message.
    virtual void Begin(OutputBuffer&) {}
    virtual void Print(const ReceivedMessage& received, OutputBuffer& out) = 0;
    /// An error frame in words; the line has the frame and how it came.
    virtual void PrintError(const CandumpLine& line, std::string_view words, OutputBuffer& out) = 0;
};

/// Seconds with as many decimals as the line had; for no time stamp nothing.
void PutSeconds(const CandumpLine& line, OutputBuffer& out);

/// The fraction alone, with its point.
void PutDecimals(const CandumpLine& line, OutputBuffer& out);

/// The frame as CanMessage::ToString() writes it, for an extended frame.
void PutFrame(const CanMessage& frame, OutputBuffer& out);

/// The payload in hexadecimal digits, a separator between two bytes.
void PutPayload(const MessageFields& fields, std::string_view separator, OutputBuffer& out);

/// The values as plain numbers, separated by blanks.
void PutValues(const PayloadValues& values, OutputBuffer& out);

/// One of them.
void PutValue(const PayloadValues& values, std::size_t at, OutputBuffer& out);

/// The values by name and in their units where they have names, else as plain numbers; the bytes in
/// brackets where there are no values.
void PutData(const MessageFields& fields, const MessageNames& names, OutputBuffer& out);

/// The time stamp as a time of day: "17:05:22.655421".
void PutTimeOfDay(const CandumpLine& line, OutputBuffer& out);

/// "9", group "g9", module 3 of it "9.3". Returns how long that is.
std::size_t PutTarget(const MessageFields& fields, OutputBuffer& out);

/// "device 12345678  id   5  cmd 2"; "-" is no valid command.
void PutChcp(const MessageFields& fields, OutputBuffer& out);

} // namespace tarn::tool

#endif
