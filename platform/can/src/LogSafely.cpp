#include "LogSafely.h"

#include <Poco/Exception.h>
#include <Poco/Logger.h>

#include <cxxabi.h>
#include <exception>
#include <new>

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

void LogPresentException(const char* logger, const char* what)
{
    try {
        LogSafely(logger, Poco::Message::PRIO_ERROR,
                  what + std::string(": ") + TextOfPresentException());
    } catch (const std::bad_alloc&) { // no memory to say it
    }
}

std::string TextOfPresentException()
{
    try {
        throw;
    } catch (const Poco::Exception& exception) {
        return exception.displayText();
    } catch (const std::exception& exception) {
        return exception.what();
    } catch (const std::string& text) {
        return text;
    } catch (...) {
        return "an exception of an unknown type";
    }
}

} // namespace tarn
