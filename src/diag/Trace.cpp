#include "diag/Trace.h"

#include "lock/ScopedLock.h"

#include <plexa_common/LoggerMutex.h>

#include <array>
#include <charconv>
#include <limits>

namespace tarn::diag
{

bool Site::IsActiveNow(const Poco::Logger& logger, Poco::Message::Priority priority)
{
    if (mInit.load(std::memory_order_acquire) == 0)
        Decide(logger, priority);
    return mIsActive.load(std::memory_order_relaxed) != 0;
}

void Site::Decide(const Poco::Logger& logger, Poco::Message::Priority priority)
{
    bool decidedHere = false;
    try {
        ScopedLock lock(GetLoggerMutex());
        if (mInit.load(std::memory_order_relaxed) == 0) {
            mIsActive.store(logger.getLevel() >= priority ? 1 : 0, std::memory_order_relaxed);
            mInit.store(1, std::memory_order_release);
            decidedHere = true;
        }
    } catch (...) {
        if (decidedHere)
            mInit.store(0, std::memory_order_relaxed);
        throw;
    }
}

std::string LinePrefix(const std::type_info& type, const char* function)
{
    std::string prefix = type.name();
    prefix.append("::").append(function).append("() - ");
    return prefix;
}

void Piece::AppendTo(std::string& line) const
{
    if (mText != nullptr) {
        line += mText;
    } else if (mIsCharacter) {
        line += static_cast<char>(mValue);
    } else {
        std::array<char, std::numeric_limits<unsigned int>::digits10 + 1> digits = {};
        line.append(digits.data(), std::to_chars(digits.begin(), digits.end(), mValue).ptr);
    }
}

void Write(Poco::Logger& logger, Poco::Message::Priority priority, const std::type_info& type,
           const char* function, std::initializer_list<Piece> pieces)
{
    std::string line = LinePrefix(type, function);
    for (const Piece& piece : pieces)
        piece.AppendTo(line);
    logger.log(Poco::Message(logger.name(), line, priority));
}

} // namespace tarn::diag
