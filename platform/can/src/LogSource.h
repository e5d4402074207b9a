#ifndef PLEXA_CAN_SRC_LOG_SOURCE_H
#define PLEXA_CAN_SRC_LOG_SOURCE_H

#include <cstdint>
#include <string>

namespace tarn
{

struct CandumpLine;

/// Reads one form of log.
class LogSource
{
public:
    virtual ~LogSource() = default;

    virtual bool Next(CandumpLine& entry) = 0;
    virtual std::uint64_t GetNumber() const = 0;
    virtual std::string GetText() const = 0;
};

} // namespace tarn

#endif
