#ifndef LOWER_PLEXA_COMMON_LOGGER_MUTEX_H
#define LOWER_PLEXA_COMMON_LOGGER_MUTEX_H

#include <Poco/Mutex.h>

namespace tarn
{

Poco::Mutex& GetLoggerMutex();

} // namespace tarn

#endif
