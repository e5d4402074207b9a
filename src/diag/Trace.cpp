#include "diag/Trace.h"

#include "lock/ScopedLock.h"

#include <plexa_common/LoggerMutex.h>

#include <locale>

namespace tarn::diag
{

void Decide(std::atomic<bool>& init, std::atomic<bool>& isActive, const Poco::Logger& logger,
            Poco::Message::Priority priority)
{
    bool decidedHere = false;
    try {
        ScopedLock lock(GetLoggerMutex());
        if (!init.load(std::memory_order_relaxed)) {
            isActive.store(logger.getLevel() >= priority, std::memory_order_relaxed);
            init.store(true, std::memory_order_release);
            decidedHere = true;
        }
    } catch (...) {
        if (decidedHere)
            init.store(false, std::memory_order_relaxed);
        throw;
    }
}

std::string LinePrefix(const std::type_info& type, const char* function)
{
    return std::string(type.name()) + "::" + function + "() - ";
}

void BeginLine(std::ostringstream& line, const std::type_info& type, const char* function)
{
    line.imbue(std::locale::classic());
    line << LinePrefix(type, function);
}

void Log(Poco::Logger& logger, const std::string& text, Poco::Message::Priority priority)
{
    logger.log(Poco::Message(logger.name(), text, priority));
}

} // namespace tarn::diag
