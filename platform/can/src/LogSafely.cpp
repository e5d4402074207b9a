#include "LogSafely.h"

#include <Poco/Logger.h>

#include <cxxabi.h>

namespace tarn
{

void LogSafely(const char* logger, Poco::Message::Priority priority, const std::string& text)
{
    try {
        Poco::Logger::get(logger).log(Poco::Message(logger, text, priority));
    } catch (const abi::__forced_unwind&) {
        throw;      // the thread is being cancelled
    } catch (...) { // there is nobody left to tell
    }
}

} // namespace tarn
