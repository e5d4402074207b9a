#ifndef TARN_TOOLS_TEXT_PRINTER_H
#define TARN_TOOLS_TEXT_PRINTER_H

#include "iMessagePrinter.h"

namespace tarn::tool
{

/// One line a message, in columns, made to be read:
///
///     17:05:22.655421  can0      1 -> 9         reg  17 (0x11)  READ  request   POWERUP  U16  100
class TextPrinter : public iMessagePrinter
{
public:
    explicit TextPrinter(bool colour) : mColour(colour) {}

    void Print(const ReceivedMessage& received, OutputBuffer& out) override;

private:
    void PutOrigin(const CandumpLine& line, OutputBuffer& out) const;
    void PutStatus(unsigned int status, std::size_t width, OutputBuffer& out) const;
    void PutNotes(const MessageFields& fields, OutputBuffer& out) const;
    void PutNote(std::string_view note, std::string_view word, OutputBuffer& out) const;
    void PutColour(std::string_view code, OutputBuffer& out) const;

    bool mColour;
};

/// TarnMessage::ToStringShort(), a line a message.
class ShortPrinter : public iMessagePrinter
{
public:
    void Print(const ReceivedMessage& received, OutputBuffer& out) override;
};

/// TarnMessage::ToString(), an empty line behind every message.
class LongPrinter : public iMessagePrinter
{
public:
    void Print(const ReceivedMessage& received, OutputBuffer& out) override;
};

} // namespace tarn::tool

#endif
