#ifndef TARN_TOOLS_CSV_PRINTER_H
#define TARN_TOOLS_CSV_PRINTER_H

#include "Installation.h"
#include "iMessagePrinter.h"

namespace tarn::tool
{

/// Comma-separated values with a line of names first. Fields that a message does not have are
/// empty.
class CsvPrinter : public iMessagePrinter
{
public:
    /// @param names may be null; otherwise it must outlive this object, and there are columns more
    explicit CsvPrinter(const Installation* names = nullptr) : mNames(names) {}

    void Begin(OutputBuffer& out) override;
    void Print(const ReceivedMessage& received, OutputBuffer& out) override;
    void PrintError(const CandumpLine& line, std::string_view words, OutputBuffer& out) override;

private:
    const Installation* mNames;
};

} // namespace tarn::tool

#endif
