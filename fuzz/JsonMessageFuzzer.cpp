#include "Failure.h"
#include "JsonFrame.h"
#include "JsonPrinter.h"
#include "Require.h"

#include <algorithm>
#include <cstdint>
#include <string>

// Objects as "tarn encode --json" reads them. What is read is a message; printed as "tarn decode
// --json" prints it and read again, it is the same frame. So is a frame in the text of candump.

using namespace tarn::tool;
using tarn::CandumpLine;
using tarn::CanMessage;

namespace
{

/// Nothing is written to it but what is taken back.
OutputBuffer& Buffer()
{
    static OutputBuffer buffer(-1);
    return buffer;
}

std::string Printed(const CanMessage& frame)
{
    CandumpLine line;
    line.kind = CandumpLine::KIND_FRAME;
    line.frame = frame;
    CanMessage copy = frame;
    const tarn::TarnMessage message(copy);
    Require(!!message, "a frame that is a message");
    MessageFields fields;
    ReadFields(message, frame, fields);
    JsonPrinter printer;
    printer.Print({line, message, fields}, Buffer());
    return Buffer().TakeText();
}

bool AreSame(const CanMessage& one, const CanMessage& other)
{
    return one.ToString() == other.ToString() && one.GetFlags() == other.GetFlags() &&
           one.GetHeader() == other.GetHeader();
}

void RequireSameAgain(const CanMessage& frame)
{
    const std::string printed = Printed(frame);
    Require(printed.size() < 2000 && printed.find('\n') == printed.size() - 1, "one object a line");
    Require(AreSame(ReadJsonFrame(printed), frame), "the same frame again");
}

/// A member less changes nothing either: the frame says all.
void RequireFrameSuffices(const CanMessage& frame)
{
    Require(AreSame(ReadJsonFrame("{\"frame\":\"" + frame.ToString() + "\"}"), frame),
            "the frame alone");
}

bool IsControl(char character)
{
    return (character >= 0 && character < ' ') || character == '\x7F';
}

bool IsRemote(const CanMessage& frame)
{
    return (frame.GetFlags() & CanMessage::FLAG_REMOTE) != 0;
}

void ReadAsFrame(const std::string& text)
{
    CandumpLine line;
    if (!ParseCandumpLine(text.data(), text.size(), line) || line.kind != CandumpLine::KIND_FRAME ||
        IsRemote(line.frame) || !tarn::TarnMessage(line.frame))
        return;
    RequireSameAgain(line.frame);
    RequireFrameSuffices(line.frame);
}

void ReadAsObject(const std::string& text)
{
    try {
        RequireSameAgain(ReadJsonFrame(text));
    } catch (const Failure& refusal) {
        Require(refusal.GetStatus() == EXIT_TROUBLE || refusal.GetStatus() == EXIT_USAGE,
                "the status of a refusal");
        const std::string why = refusal.what();
        Require(why.find(';') != std::string::npos || why.find(". Give one") != std::string::npos,
                "a refusal that says what to do");
        Require(std::none_of(why.begin(), why.end(), IsControl), "a refusal fit for a terminal");
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::string text(data, data + size);
    ReadAsObject(text);
    ReadAsFrame(text);
    return 0;
}
