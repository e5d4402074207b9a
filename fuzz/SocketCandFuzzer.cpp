#include "Require.h"

#include <plexa_can/SocketCandText.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

// Reads a stream as a server or client would, and in two other cuts: the elements are the same.

using tarn::CanMessage;
using tarn::SocketCandElement;
using tarn::SocketCandReader;

namespace
{

bool IsFrame(const SocketCandElement& element)
{
    return element.kind == SocketCandElement::KIND_FRAME ||
           element.kind == SocketCandElement::KIND_SEND;
}

std::string Described(const SocketCandElement& element)
{
    return std::to_string(static_cast<int>(element.kind)) + ' ' + element.frame.ToString() + ' ' +
           std::to_string(element.frame.GetTimeStamp()) + ' ' + element.text.data() + ' ' +
           element.reason;
}

SocketCandElement Parse(const std::string& text)
{
    const std::vector<char> bytes(text.begin(), text.end()); // whose end the sanitizer watches
    SocketCandElement element;
    const bool understood = ParseSocketCandElement(bytes.data(), bytes.size(), element);
    Require(understood == (element.kind != SocketCandElement::KIND_MALFORMED),
            "understanding told twice");
    return element;
}

void RequireSameFrame(const CanMessage& one, const CanMessage& other)
{
    Require(one.ToString() == other.ToString(), "frame by its text");
    Require(one.GetFlags() == other.GetFlags(), "flags");
    Require(one.GetHeader() == other.GetHeader(), "identifier");
}

/// What is written of an element is read as the same again.
void RequireSameAgain(const SocketCandElement& element)
{
    std::string frame;
    std::string send;
    AppendSocketCandFrame(element.frame, frame);
    AppendSocketCandSend(element.frame, send);
    Require(frame.size() < 64 && send.size() < 64, "bounded text of a frame");
    const SocketCandElement asFrame = Parse(frame);
    const SocketCandElement asSend = Parse(send);
    Require(asFrame.kind == SocketCandElement::KIND_FRAME, "frame written and read");
    Require(asSend.kind == SocketCandElement::KIND_SEND, "command written and read");
    RequireSameFrame(asFrame.frame, element.frame);
    RequireSameFrame(asSend.frame, element.frame);
    Require(asFrame.frame.GetTimeStamp() == element.frame.GetTimeStamp() / 1000 * 1000,
            "time to the microsecond");
}

void RequireSound(const SocketCandElement& element)
{
    Require(std::memchr(element.text.data(), '\0', element.text.size()) != nullptr,
            "text that ends");
    Require((element.kind == SocketCandElement::KIND_MALFORMED) == (element.reason[0] != '\0'),
            "reason of what is malformed");
    Require(std::strpbrk(element.text.data(), "<>\n") == nullptr, "text without brackets");
    if (IsFrame(element))
        RequireSameAgain(element);
    if (element.kind == SocketCandElement::KIND_OPEN)
        Require(tarn::IsSocketCandBusName(element.text.data()), "name that can be opened");
}

std::vector<std::string> Streamed(const std::uint8_t* data, std::size_t size, std::size_t piece)
{
    SocketCandReader reader;
    SocketCandElement element;
    std::vector<std::string> found;
    for (std::size_t from = 0; from < size; from += piece) {
        const std::vector<char> part(data + from, data + std::min(from + piece, size));
        const char* at = part.data();
        while (reader.Next(at, part.data() + part.size(), element)) {
            RequireSound(element);
            found.push_back(Described(element));
        }
    }
    return found;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::vector<std::string> whole = Streamed(data, size, size + 1);
    Require(Streamed(data, size, 1) == whole, "elements of single characters");
    Require(Streamed(data, size, 7) == whole, "elements of pieces of seven");
    Require(whole.size() <= size, "no more elements than characters");
    RequireSound(Parse(std::string(data, data + size)));
    return 0;
}
