#ifndef PLEXA_COMMON_LOGGER_MUTEX_H
#define PLEXA_COMMON_LOGGER_MUTEX_H

#include <Poco/Mutex.h>

namespace tarn
{

/// The one mutex of this process that guards the first evaluation of every log statement of the
/// library family. Recursive. It is created at the first call, which may come before main() and
/// from any thread, and is never destroyed, so that static objects may still log when they go.
///
/// It is only ever taken innermost: whoever holds it takes no other lock.
__attribute__((visibility("default"))) Poco::Mutex& GetLoggerMutex();

} // namespace tarn

#endif
