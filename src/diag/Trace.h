#ifndef TARN_DIAG_TRACE_H
#define TARN_DIAG_TRACE_H

#include <Poco/Logger.h>
#include <Poco/Message.h>

#include <atomic>
#include <sstream>
#include <string>
#include <typeinfo>

/// Logs at a priority a line made of the run-time type name of object, the function's name and the
/// pieces, which are streamed: TARN_LOG_AS(*this, mLogger, "Send", PRIO_TRACE, "n=" << n).
///
/// Every use is a site of its own with two flags of its own: whether it is active is decided once,
/// at its first pass. In a template each instantiation is a site. An inactive site costs two byte
/// loads and a branch; nothing is streamed.
// The pieces are a sequence of << operands, and cannot stand in parentheses.
// NOLINTBEGIN(bugprone-macro-parentheses)
#define TARN_LOG_AS(object, logger, function, priority, pieces)                                    \
    do {                                                                                           \
        static std::atomic<bool> _init__{false};                                                   \
        static std::atomic<bool> _isActive{false};                                                 \
        if (::tarn::diag::IsActive(_init__, _isActive, logger, ::Poco::Message::priority)) {       \
            std::ostringstream line;                                                               \
            ::tarn::diag::BeginLine(line, typeid(object), function);                               \
            line << pieces;                                                                        \
            ::tarn::diag::Log(logger, line.str(), ::Poco::Message::priority);                      \
        }                                                                                          \
    } while (false)
// NOLINTEND(bugprone-macro-parentheses)

/// The same from inside a member function of a class with a member mLogger. Not for use in a
/// lambda, whose __FUNCTION__ is not the operation's name.
#define TARN_LOG(priority, pieces) TARN_LOG_AS(*this, this->mLogger, __FUNCTION__, priority, pieces)
#define TARN_TRACE(pieces) TARN_LOG(PRIO_TRACE, pieces)

namespace tarn::diag
{

/// Decides, under the logger mutex, whether a site is active. A failure of that mutex leaves the
/// site undecided, to be tried again at its next pass.
void Decide(std::atomic<bool>& init, std::atomic<bool>& isActive, const Poco::Logger& logger,
            Poco::Message::Priority priority);

inline bool IsActive(std::atomic<bool>& init, std::atomic<bool>& isActive,
                     const Poco::Logger& logger, Poco::Message::Priority priority)
{
    if (!init.load(std::memory_order_acquire))
        Decide(init, isActive, logger, priority);
    return isActive.load(std::memory_order_relaxed);
}

/// "TYPE::FUNCTION() - ", the type name as the compiler encodes it.
std::string LinePrefix(const std::type_info& type, const char* function);

/// Begins a line with its prefix; numbers streamed behind it are not altered by the global locale.
void BeginLine(std::ostringstream& line, const std::type_info& type, const char* function);

/// Hands a line to the logger, which tests its level once more.
void Log(Poco::Logger& logger, const std::string& text, Poco::Message::Priority priority);

} // namespace tarn::diag

#endif
