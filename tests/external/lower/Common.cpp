#include <plexa_common/LoggerMutex.h>

namespace tarn
{

Poco::Mutex& GetLoggerMutex()
{
    static Poco::Mutex mutex;
    return mutex;
}

} // namespace tarn
