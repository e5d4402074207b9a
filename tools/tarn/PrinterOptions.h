#ifndef TARN_TOOLS_PRINTER_OPTIONS_H
#define TARN_TOOLS_PRINTER_OPTIONS_H

#include "ColourOption.h"
#include "ExclusiveFlags.h"
#include "Installation.h"
#include "iMessagePrinter.h"

#include <memory>

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

    /// @param names are shown in the usual form, JSON and CSV; may be null, must outlive the
    /// printer
    std::unique_ptr<iMessagePrinter> MakePrinter(const Installation* names = nullptr) const;

    /// True when another form than the usual one was chosen.
    bool IsFormGiven() const { return mForm != FORM_TEXT; }

private:
    enum tForm { FORM_TEXT, FORM_SHORT, FORM_LONG, FORM_JSON, FORM_CSV };

    void AddForm(CLI::App& verb, const char* name, tForm form, const char* help);

    ExclusiveFlags mForms;
    tForm mForm = FORM_TEXT;
    ColourOption mColour;
};

} // namespace tarn::tool

#endif
