#include <plexa_can/SocketCandText.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

// Reads a stream as a server or client would, and in two other cuts: the elements are the same.

using tarn::CanMessage;
using tarn::SocketCandElement;
using tarn::SocketCandReader;

namespace
{

void Require(bool holds)
{
    if (!holds)
        std::abort();
}

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
    Require(understood == (element.kind != SocketCandElement::KIND_MALFORMED));
    return element;
}

void RequireSameFrame(const CanMessage& one, const CanMessage& other)
{
    Require(one.ToString() == other.ToString());
    Require(one.GetFlags() == other.GetFlags());
    Require(one.GetHeader() == other.GetHeader());
}

/// What is written of an element is read as the same again.
void RequireSameAgain(const SocketCandElement& element)
{
    std::string frame;
    std::string send;
    AppendSocketCandFrame(element.frame, frame);
    AppendSocketCandSend(element.frame, send);
    Require(frame.size() < 64 && send.size() < 64);
    const SocketCandElement asFrame = Parse(frame);
    const SocketCandElement asSend = Parse(send);
    Require(asFrame.kind == SocketCandElement::KIND_FRAME);
    Require(asSend.kind == SocketCandElement::KIND_SEND);
    RequireSameFrame(asFrame.frame, element.frame);
    RequireSameFrame(asSend.frame, element.frame);
    Require(asFrame.frame.GetTimeStamp() == element.frame.GetTimeStamp() / 1000 * 1000);
}

void RequireSound(const SocketCandElement& element)
{
    Require(std::memchr(element.text.data(), '\0', element.text.size()) != nullptr);
    Require((element.kind == SocketCandElement::KIND_MALFORMED) == (element.reason[0] != '\0'));
    Require(std::strpbrk(element.text.data(), "<>\n") == nullptr);
    if (IsFrame(element))
        RequireSameAgain(element);
    if (element.kind == SocketCandElement::KIND_OPEN)
        Require(tarn::IsSocketCandBusName(element.text.data()));
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
    Require(Streamed(data, size, 1) == whole);
    Require(Streamed(data, size, 7) == whole);
    Require(whole.size() <= size);
    RequireSound(Parse(std::string(data, data + size)));
    return 0;
}
