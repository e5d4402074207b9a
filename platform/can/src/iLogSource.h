#ifndef PLEXA_CAN_SRC_I_LOG_SOURCE_H
#define PLEXA_CAN_SRC_I_LOG_SOURCE_H

#include <cstdint>
#include <string>

namespace tarn
{

struct CandumpLine;

/// Reads one form of log.
class iLogSource
{
public:
    virtual ~iLogSource() = default;

    virtual bool Next(CandumpLine& entry) = 0;
    virtual std::uint64_t GetNumber() const = 0;
    virtual std::string GetText() const = 0;
};

} // namespace tarn

#endif
