#ifndef TARN_TOOLS_TEXT_PRINTER_H
#define TARN_TOOLS_TEXT_PRINTER_H

#include "MessageNames.h"
#include "iMessagePrinter.h"

namespace tarn::tool
{

/// One line a message, in columns, made to be read:
///
///     17:05:22.655421  can0      1 -> 9         reg  17 (0x11)  READ  request   POWERUP  U16  100
/// With names:
///
///     17:05:22.655421  can0      1 master -> 9 pump         reg  17 (0x11) speed  READ  request
///     ...
class TextPrinter : public iMessagePrinter
{
public:
    /// @param names stand beside the numbers; may be null, otherwise it must outlive this object
    explicit TextPrinter(bool colour, const Installation* names = nullptr);

    void Print(const ReceivedMessage& received, OutputBuffer& out) override;
    void PrintError(const CandumpLine& line, std::string_view words, OutputBuffer& out) override;

private:
    void PutOrigin(const CandumpLine& line, OutputBuffer& out) const;
    void PutDataHeader(const MessageFields& fields, const MessageNames& names,
                       OutputBuffer& out) const;
    void PutStatus(unsigned int status, std::size_t width, OutputBuffer& out) const;
    void PutNotes(const MessageFields& fields, OutputBuffer& out) const;
    void PutNote(std::string_view note, std::string_view word, OutputBuffer& out) const;
    void PutColour(std::string_view code, OutputBuffer& out) const;

    bool mColour;
    const Installation* mNames;
    /// Of the columns of names; 0 without.
    std::size_t mSourceWidth = 0;
    std::size_t mTargetWidth = 0;
    std::size_t mRegisterWidth = 0;
};

/// TarnMessage::ToStringShort(), a line a message.
class ShortPrinter : public iMessagePrinter
{
public:
    void Print(const ReceivedMessage& received, OutputBuffer& out) override;
    void PrintError(const CandumpLine& line, std::string_view words, OutputBuffer& out) override;
};

/// TarnMessage::ToString(), an empty line behind every message.
class LongPrinter : public iMessagePrinter
{
public:
    void Print(const ReceivedMessage& received, OutputBuffer& out) override;
    void PrintError(const CandumpLine& line, std::string_view words, OutputBuffer& out) override;
};

} // namespace tarn::tool

#endif
