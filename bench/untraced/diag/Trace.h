#ifndef TARN_BENCH_UNTRACED_DIAG_TRACE_H
#define TARN_BENCH_UNTRACED_DIAG_TRACE_H

#include <Poco/Logger.h>
#include <Poco/Message.h>

#include <string>
#include <typeinfo>

// Stands in the place of src/diag/Trace.h: the library without its log statements, to measure what
// they cost while they are off.

#define TARN_LOG_AS(object, logger, function, priority, ...) static_cast<void>(0)
#define TARN_LOG_AT(site, logger, type, function, priority, ...) static_cast<void>(0)
#define TARN_LOG(priority, ...) static_cast<void>(0)
#define TARN_TRACE(...) static_cast<void>(0)

namespace tarn::diag
{

struct Site {
};

inline std::string LinePrefix(const std::type_info&, const char*)
{
    return {};
}

} // namespace tarn::diag

#endif
