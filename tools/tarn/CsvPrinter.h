#ifndef TARN_TOOLS_CSV_PRINTER_H
#define TARN_TOOLS_CSV_PRINTER_H

#include "iMessagePrinter.h"

namespace tarn::tool
{

/// Comma-separated values with a line of names first. Fields that a message does not have are
/// empty.
class CsvPrinter : public iMessagePrinter
{
public:
    void Begin(OutputBuffer& out) override;
    void Print(const ReceivedMessage& received, OutputBuffer& out) override;
};

} // namespace tarn::tool

#endif
