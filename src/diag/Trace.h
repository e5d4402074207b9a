#ifndef TARN_DIAG_TRACE_H
#define TARN_DIAG_TRACE_H

#include <Poco/Logger.h>
#include <Poco/Message.h>

#include <atomic>
#include <initializer_list>
#include <string>
#include <typeinfo>

/// Logs at a priority a line made of the run-time type name of object, the function's name and the
/// pieces: TARN_LOG_AS(*this, mLogger, "Send", PRIO_TRACE, "n=", n).
///
/// Every use is a site of its own with two flags of its own: whether it is active is decided once,
/// at its first pass. In a template each instantiation is a site. An inactive site costs two byte
/// loads and a branch; no piece is evaluated.
#define TARN_LOG_AS(object, logger, function, priority, ...)                                       \
    do {                                                                                           \
        static ::tarn::diag::Site _site__;                                                         \
        TARN_LOG_AT(_site__, logger, typeid(object), function, priority, __VA_ARGS__);             \
    } while (false)

/// The same at a site that is a variable, for code that several classes share: each has to bring
/// sites of its own.
#define TARN_LOG_AT(site, logger, type, function, priority, ...)                                   \
    ((site).IsActive(logger, ::Poco::Message::priority)                                            \
         ? ::tarn::diag::Write(logger, ::Poco::Message::priority, type, function, {__VA_ARGS__})   \
         : static_cast<void>(0))

/// The same from inside a member function of a class with a member mLogger. Not for use in a
/// lambda, whose __FUNCTION__ is not the operation's name.
#define TARN_LOG(priority, ...)                                                                    \
    TARN_LOG_AS(*this, this->mLogger, __FUNCTION__, priority, __VA_ARGS__)
#define TARN_TRACE(...) TARN_LOG(PRIO_TRACE, __VA_ARGS__)

namespace tarn::diag
{

/// Whether a log statement is active: undecided at first, decided once.
class Site
{
public:
    /// Decides it at the first call, under the logger mutex. A failure of that mutex leaves it
    /// undecided, to be tried again at the next pass.
    bool IsActive(const Poco::Logger& logger, Poco::Message::Priority priority)
    {
        return !IsOff() && IsActiveNow(logger, priority);
    }

private:
    /// True when it is decided and inactive: the one question that a frame pays for.
    bool IsOff() const
    {
        const unsigned char init = mInit.load(std::memory_order_acquire);
        return init > mIsActive.load(std::memory_order_relaxed); // 1 and 0: one comparison
    }

    [[gnu::cold]] bool IsActiveNow(const Poco::Logger& logger, Poco::Message::Priority priority);
    void Decide(const Poco::Logger& logger, Poco::Message::Priority priority);

    // 0 or 1. Of two bools the compiler makes two branches.
    std::atomic<unsigned char> mInit{0};
    std::atomic<unsigned char> mIsActive{0};
};

/// "TYPE::FUNCTION() - ", the type name as the compiler encodes it.
std::string LinePrefix(const std::type_info& type, const char* function);

/// What a line is put together from. A text has to live until the line is written.
class Piece
{
public:
    // Sites list their pieces as they are.
    // NOLINTBEGIN(google-explicit-constructor)
    Piece(const char* text) : mText(text) {}
    Piece(const std::string& text) : mText(text.c_str()) {}
    Piece(unsigned int number) : mValue(number) {}                            ///< in decimal
    Piece(unsigned char character) : mValue(character), mIsCharacter(true) {} ///< as it is
    // NOLINTEND(google-explicit-constructor)

    void AppendTo(std::string& line) const;

private:
    const char* mText = nullptr;
    unsigned int mValue = 0;
    bool mIsCharacter = false;
};

/// Hands a line to the logger, which tests its level once more. One call writes a whole line:
/// sites are many.
[[gnu::cold]] void Write(Poco::Logger& logger, Poco::Message::Priority priority,
                         const std::type_info& type, const char* function,
                         std::initializer_list<Piece> pieces);

} // namespace tarn::diag

#endif
