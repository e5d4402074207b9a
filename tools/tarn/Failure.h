#ifndef TARN_TOOLS_FAILURE_H
#define TARN_TOOLS_FAILURE_H

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

/// Ends a verb. The text says "what: why; what to do".
class Failure : public std::runtime_error
{
public:
    Failure(tExitStatus status, const std::string& text) : std::runtime_error(text), mStatus(status)
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
