#ifndef TARN_TOOLS_JSON_PRINTER_H
#define TARN_TOOLS_JSON_PRINTER_H

#include "Installation.h"
#include "iMessagePrinter.h"

namespace tarn::tool
{

/// One JSON object a line; ReadJsonFrame() reads them.
class JsonPrinter : public iMessagePrinter
{
public:
    /// @param names may be null; otherwise it must outlive this object
    explicit JsonPrinter(const Installation* names = nullptr) : mNames(names) {}

    void Print(const ReceivedMessage& received, OutputBuffer& out) override;
    void PrintError(const CandumpLine& line, std::string_view words, OutputBuffer& out) override;

private:
    const Installation* mNames;
};

} // namespace tarn::tool

#endif
