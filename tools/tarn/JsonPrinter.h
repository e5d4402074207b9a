#ifndef TARN_TOOLS_JSON_PRINTER_H
#define TARN_TOOLS_JSON_PRINTER_H

#include "iMessagePrinter.h"

namespace tarn::tool
{

/// One JSON object a line; ReadJsonFrame() reads them.
class JsonPrinter : public iMessagePrinter
{
public:
    void Print(const ReceivedMessage& received, OutputBuffer& out) override;
};

} // namespace tarn::tool

#endif
