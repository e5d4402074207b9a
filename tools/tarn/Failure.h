#ifndef TARN_TOOLS_FAILURE_H
#define TARN_TOOLS_FAILURE_H

#include <cstddef>
#include <stdexcept>
#include <string>

namespace tarn::tool
{

/// What the command returns to its caller.
enum tExitStatus : int {
    EXIT_DONE = 0,
    EXIT_TROUBLE = 1, ///< input that cannot be used, or input and output that fail
    EXIT_USAGE = 2,
    EXIT_TIMEOUT = 3, ///< a device did not answer
    EXIT_SIGNAL = 128 ///< plus the number of the signal that ended the command
};

/// Control characters, which may stand in names and words of a file, become '?', so that a line for
/// people neither ends early nor steers their terminal.
inline std::string Printable(std::string text)
{
    for (std::size_t i = 0; i < text.size(); ++i) {
        const auto byte = static_cast<unsigned char>(text[i]);
        const bool isUpper = byte >= 0x80 && byte < 0xA0 && i > 0 && text[i - 1] == '\xC2'; // UTF-8
        if (byte < ' ' || byte == 0x7F || isUpper)
            text[i] = '?';
        if (isUpper)
            text[i - 1] = '?';
    }
    return text;
}

/// Ends a verb. The text says "what: why; what to do".
class Failure : public std::runtime_error
{
public:
    Failure(tExitStatus status, const std::string& text)
        : std::runtime_error(Printable(text)),
          mStatus(status)
    {
    }

    tExitStatus GetStatus() const { return mStatus; }

private:
    tExitStatus mStatus;
};

/// Whoever read our output has seen enough.
class ReaderGone : public std::exception
{
};

inline Failure UsageFailure(const std::string& text)
{
    return Failure(EXIT_USAGE, text);
}

inline Failure Trouble(const std::string& text)
{
    return Failure(EXIT_TROUBLE, text);
}

} // namespace tarn::tool

#endif
