#include <plexa_common/LoggerMutex.h>

namespace tarn
{

Poco::Mutex& GetLoggerMutex()
{
    static auto* const mutex = new Poco::Mutex;
    return *mutex;
}

} // namespace tarn
