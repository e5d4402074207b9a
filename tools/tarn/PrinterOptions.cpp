#include "PrinterOptions.h"

#include "CsvPrinter.h"
#include "JsonPrinter.h"
#include "TextPrinter.h"

#include <CLI/CLI.hpp>

#include <cstdlib>
#include <unistd.h>

namespace tarn::tool
{

void PrinterOptions::AddOptions(CLI::App& verb)
{
    CLI::Option_group* const forms = verb.add_option_group("Output", "");
    forms->add_flag("--short", mShort, "One line a message with every field by name");
    forms->add_flag("--long", mLong, "One line a field, an empty line behind every message");
    forms->add_flag("--json", mJson, "One JSON object a line; 'tarn encode --json' reads it");
    forms->add_flag("--csv", mCsv, "Comma-separated values under a line of names");
    forms->require_option(0, 1);
    verb.add_option(
            "--color", mColour,
            "Colour in the usual form: auto (default) is on a terminal unless NO_COLOR is set")
        ->type_name("WHEN")
        ->check(CLI::IsMember({"auto", "always", "never"}))
        ->group("Output");
}

std::unique_ptr<MessagePrinter> PrinterOptions::MakePrinter() const
{
    if (mShort)
        return std::make_unique<ShortPrinter>();
    if (mLong)
        return std::make_unique<LongPrinter>();
    if (mJson)
        return std::make_unique<JsonPrinter>();
    if (mCsv)
        return std::make_unique<CsvPrinter>();
    return std::make_unique<TextPrinter>(IsColoured());
}

bool PrinterOptions::IsColoured() const
{
    if (mColour != "auto")
        return mColour == "always";
    const char* const noColour = std::getenv("NO_COLOR");
    return (noColour == nullptr || *noColour == '\0') && ::isatty(STDOUT_FILENO) != 0;
}

} // namespace tarn::tool
