#ifndef PLEXA_CAN_SOCKET_CAND_TEXT_H
#define PLEXA_CAN_SOCKET_CAND_TEXT_H

#include <plexa_can/CanMessage.h>
#include <plexa_can/Export.h>

#include <array>
#include <cstddef>
#include <string>

namespace tarn
{

/// One element of the text that socketcand and its clients exchange over TCP, "< WORD ... >".
struct SocketCandElement {
    /// Most characters of an element, brackets included. Frames have fewer than 64.
    static constexpr std::size_t MAX_SIZE = 256;

    /// What an element is.
    enum tKind : int {
        KIND_HI,       ///< < hi >: the server's greeting
        KIND_OK,       ///< < ok >: it did what it was told
        KIND_OPEN,     ///< < open BUS >, the name in text
        KIND_RAWMODE,  ///< < rawmode >: from now on every frame
        KIND_ECHO,     ///< < echo >, which the server returns
        KIND_SEND,     ///< a frame for the bus: < send ... >, < sendrtr ... >
        KIND_FRAME,    ///< a frame of the bus: < frame ... >, < rtr ... >, or an error frame
        KIND_ERROR,    ///< < error TEXT >: the server's complaint, in text
        KIND_UNKNOWN,  ///< another word, in text
        KIND_MALFORMED ///< anything else; reason says why
    };

    tKind kind = KIND_MALFORMED; ///< decides which of the members count
    /// For KIND_SEND and KIND_FRAME; of the latter with its time stamp.
    CanMessage frame;
    /// Printable characters, without '<' and '>', and a final 0.
    std::array<char, MAX_SIZE> text = {};
    /// For KIND_MALFORMED: what was wrong, as a text that lives as long as the program.
    const char* reason = "";
};

/// Reads one element, from its '<' to its '>'. Identifiers of more than 3 digits or above 7FF are
/// extended, since not every client writes 8 digits; bit 0x20000000 marks an error frame. Words are
/// separated by any number of blanks.
///
///     < send ID LEN B0 B1 ... >        < frame ID SEC.USEC B0B1... >, or with blanks between bytes
///     < sendrtr ID LEN >               < rtr ID SEC.USEC LEN >
///                                      < error CLASS SEC.USEC B0B1... >, with or without bytes
///
/// Overwrites all of element. Never throws, allocates nothing, takes any bytes.
/// @return true unless the element is malformed
PLEXA_CAN_API bool ParseSocketCandElement(const char* text, std::size_t size,
                                          SocketCandElement& element);

/// Finds the elements in a stream that may be cut anywhere. Keeps at most MAX_SIZE characters.
class PLEXA_CAN_API SocketCandReader
{
public:
    /// Reads on from at, which it advances. Blanks and line ends between elements are nothing.
    /// Other characters there, and an element of more than MAX_SIZE characters, are one malformed
    /// element each, told once; what follows up to the next '<', or behind the '>' of the long one,
    /// is passed over.
    /// @return false when [at, end) holds no further whole element
    bool Next(const char*& at, const char* end, SocketCandElement& element);

    /// Forgets a begun element.
    void Reset();

private:
    enum tState : int { STATE_BETWEEN, STATE_INSIDE, STATE_JUNK, STATE_TOO_LONG };

    bool Take(char character, SocketCandElement& element);
    bool TakeInside(char character, SocketCandElement& element);
    bool Begin(char character, SocketCandElement& element);

    std::array<char, SocketCandElement::MAX_SIZE> mText = {};
    std::size_t mSize = 0;
    tState mState = STATE_BETWEEN;
};

/// Appends a frame of the bus as the server writes it: "< frame 0F800001 1609779922.655421 20 >",
/// "< rtr 123 23.424242 0 >", "< error 004 23.424242 0020000000000000 >". Extended identifiers have
/// 8 digits, others 3.
PLEXA_CAN_API void AppendSocketCandFrame(const CanMessage& frame, std::string& text);

/// Appends the command that has a server send the frame: "< send 0F800001 1 20 >",
/// "< sendrtr 123 0 >". An error frame has the mark 20000000 in its identifier.
PLEXA_CAN_API void AppendSocketCandSend(const CanMessage& frame, std::string& text);

/// Appends "< error TEXT >". Characters that would not do are replaced; a long text is cut.
PLEXA_CAN_API void AppendSocketCandError(const std::string& complaint, std::string& text);

/// True for what can stand in "< open BUS >": 1 to 64 printable characters other than '<' and '>'.
PLEXA_CAN_API bool IsSocketCandBusName(const std::string& name);

} // namespace tarn

#endif
