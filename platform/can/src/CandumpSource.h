#ifndef PLEXA_CAN_SRC_CANDUMP_SOURCE_H
#define PLEXA_CAN_SRC_CANDUMP_SOURCE_H

#include "iLogSource.h"

#include <plexa_can/LineReader.h>

namespace tarn
{

/// The lines of a candump log.
class CandumpSource : public iLogSource
{
public:
    explicit CandumpSource(LineReader& input) : mInput(input) {}

    bool Next(CandumpLine& entry) override;
    std::uint64_t GetNumber() const override { return mLine.number; }
    std::string GetText() const override { return {mLine.text, mLine.size}; }

private:
    LineReader& mInput;
    InputLine mLine;
};

} // namespace tarn

#endif
