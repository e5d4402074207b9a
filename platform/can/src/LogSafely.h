#ifndef PLEXA_CAN_SRC_LOG_SAFELY_H
#define PLEXA_CAN_SRC_LOG_SAFELY_H

#include <Poco/Message.h>

#include <string>

namespace tarn
{

/// Logs, and keeps a failure of the log to itself: for threads and destructors where an exception
/// would end the process.
void LogSafely(const char* logger, Poco::Message::Priority priority, const std::string& text);

/// Logs an error, "what: text of the exception that is being handled". Keeps every failure to
/// itself.
void LogPresentException(const char* logger, const char* what);

/// What the exception that is being handled says.
std::string TextOfPresentException();

} // namespace tarn

#endif
