#include "PrinterOptions.h"

#include "CsvPrinter.h"
#include "JsonPrinter.h"
#include "TextPrinter.h"

#include <CLI/CLI.hpp>

namespace tarn::tool
{

void PrinterOptions::AddOptions(CLI::App& verb)
{
    AddForm(verb, "--short", FORM_SHORT, "One line a message with every field by name");
    AddForm(verb, "--long", FORM_LONG, "One line a field, an empty line behind every message");
    AddForm(verb, "--json", FORM_JSON, "One JSON object a line; 'tarn encode --json' reads it");
    AddForm(verb, "--csv", FORM_CSV, "Comma-separated values under a line of names");
    mColour.AddOption(verb, " in the usual form");
}

void PrinterOptions::AddForm(CLI::App& verb, const char* name, tForm form, const char* help)
{
    mForms
        .Add(
            verb, name, [this, form] { mForm = form; }, help)
        ->group("Output");
}

std::unique_ptr<iMessagePrinter> PrinterOptions::MakePrinter(const Installation* names) const
{
    switch (mForm) {
    case FORM_SHORT:
        return std::make_unique<ShortPrinter>();
    case FORM_LONG:
        return std::make_unique<LongPrinter>();
    case FORM_JSON:
        return std::make_unique<JsonPrinter>(names);
    case FORM_CSV:
        return std::make_unique<CsvPrinter>(names);
    default:
        return std::make_unique<TextPrinter>(mColour.IsOn(), names);
    }
}

} // namespace tarn::tool
