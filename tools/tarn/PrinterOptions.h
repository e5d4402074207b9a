#ifndef TARN_TOOLS_PRINTER_OPTIONS_H
#define TARN_TOOLS_PRINTER_OPTIONS_H

#include "MessagePrinter.h"

#include <memory>
#include <string>

namespace CLI
{
class App;
}

namespace tarn::tool
{

/// The choice among the forms of output.
class PrinterOptions
{
public:
    /// Adds --short, --long, --json, --csv and --color to a verb.
    void AddOptions(CLI::App& verb);

    std::unique_ptr<MessagePrinter> MakePrinter() const;

private:
    bool IsColoured() const;

    bool mShort = false;
    bool mLong = false;
    bool mJson = false;
    bool mCsv = false;
    std::string mColour = "auto";
};

} // namespace tarn::tool

#endif
