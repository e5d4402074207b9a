#include "DumpVerb.h"

#include "BusOption.h"
#include "Duration.h"
#include "ErrorFrameWords.h"
#include "Failure.h"
#include "LineAccount.h"
#include "LiveBus.h"
#include "MessageFilter.h"
#include "NamesOption.h"
#include "PrinterOptions.h"
#include "TimeOption.h"

#include <CLI/CLI.hpp>

#include <cstdint>
#include <cstdio>
#include <string>
#include <unistd.h>

namespace tarn::tool
{

namespace
{

constexpr const char* DESCRIPTION =
    "Shows the Tarn messages of a bus as they come, in the forms of 'tarn decode'.\n"
    "\n"
    "Every line appears at once. Error frames of the bus are shown in words; other frames that\n"
    "are no Tarn message are counted. Frames are taken from the bus by a thread of their own, so\n"
    "a slow terminal does not hold them up; what finds no room in the queue between is counted.\n"
    "At the end the ledger on standard error says what became of every frame, and at once when\n"
    "the kernel had to drop frames.\n"
    "\n"
    "Exit status: 0 done, also when whoever reads the output stops early; 1 a bus that cannot be\n"
    "opened, or frames that were lost on the way to the output; 2 wrong usage; 128 + n ended by\n"
    "signal n.";

constexpr const char* EXAMPLES = R"(Examples:
  tarn dump -b can0 --duration 2s
  tarn dump -b can0 -n 10 --source 9 --time delta
  TARN_BUS=can0 tarn dump --json --type FLOAT -n 1
  tarn dump -b 'log:examples/logs/startup.log?speed=max' --long)";

/// Puts out the frames of a bus.
class Display
{
public:
    Display(const MessageFilter& filter, TimeOption& time, iMessagePrinter& printer)
        : mFilter(filter),
          mTime(time),
          mPrinter(printer)
    {
        mPrinter.Begin(mOut);
    }

    void Show(CandumpLine& line)
    {
        const tLineFate fate = FateOf(line);
        if (fate == LINE_ERROR_FRAME)
            ShowError(line);
        else if (fate != LINE_SHOWN)
            mAccount.Add(fate);
        else
            ShowMessage(line);
    }

    void WriteOut() { mOut.WriteOut(); }

    std::uint64_t CountShown() const { return mAccount[LINE_SHOWN] + mErrors; }

    /// "5 shown, 2 filtered out, 1 not Tarn (1 remote request)"
    std::string Summary() const
    {
        std::string text = std::to_string(CountShown()) + " shown";
        if (mAccount[LINE_FILTERED] > 0)
            text += ", " + std::to_string(mAccount[LINE_FILTERED]) + " filtered out";
        return text + ", " + mAccount.NotTarn();
    }

private:
    void ShowError(CandumpLine& line)
    {
        mTime.Apply(line);
        mPrinter.PrintError(line, DescribeErrorFrame(line.frame), mOut);
        ++mErrors;
    }

    void ShowMessage(CandumpLine& line)
    {
        const TarnMessage message(line.frame);
        if (!message)
            return mAccount.Add(LINE_TOO_SHORT);
        ReadFields(message, line.frame, mFields);
        if (!mFilter.Passes(mFields))
            return mAccount.Add(LINE_FILTERED);
        mTime.Apply(line);
        mPrinter.Print({line, message, mFields}, mOut);
        mAccount.Add(LINE_SHOWN);
    }

    const MessageFilter& mFilter;
    TimeOption& mTime;
    iMessagePrinter& mPrinter;
    OutputBuffer mOut{STDOUT_FILENO};
    LineAccount mAccount{"tarn dump", true};
    MessageFields mFields;
    std::uint64_t mErrors = 0;
};

class DumpVerb : public iVerb
{
public:
    explicit DumpVerb(CLI::App& command) : mOptions(*command.add_subcommand("dump", DESCRIPTION))
    {
        mBus.AddOption(mOptions);
        mOptions.add_option("-n,--count", mCount, "Ends after so many messages")
            ->type_name("N")
            ->check(CLI::PositiveNumber);
        AddDuration(mOptions, "--duration", mDuration, "Ends after this time: 500ms, 10s, 5min");
        mPrinterOptions.AddOptions(mOptions);
        mTime.AddOption(mOptions);
        mFilter.AddOptions(mOptions, &mNames);
        mNames.AddOption(mOptions);
        mOptions.add_flag("-q,--quiet", mQuiet, "No ledger at the end, unless frames were lost");
        mOptions.footer(EXAMPLES);
    }

    const CLI::App& GetOptions() const override { return mOptions; }

    int Run() override
    {
        CatchStopSignals();
        const auto printer = mPrinterOptions.MakePrinter(mNames.Get());
        Display display(mFilter, mTime, *printer);
        LiveBus bus("tarn dump", mBus);
        ShowAll(bus, display);
        const bool lossless = bus.GetOverflows() == 0;
        if (!mQuiet || !lossless)
            Report(bus, display);
        if (CaughtStopSignal() != 0)
            return EXIT_SIGNAL + CaughtStopSignal();
        return lossless ? EXIT_DONE : EXIT_TROUBLE;
    }

private:
    void ShowAll(LiveBus& bus, Display& display) const
    {
        try {
            bus.Listen(
                EndAfter(mDuration),
                [&](CandumpLine& line) {
                    display.Show(line);
                    return mCount == 0 || display.CountShown() < mCount;
                },
                [&] { display.WriteOut(); });
        } catch (const Failure&) { // what came up to then is accounted for
            Report(bus, display);
            throw;
        }
    }

    static void Report(const LiveBus& bus, const Display& display)
    {
        std::string text = "tarn dump: " + display.Summary();
        if (bus.GetOverflows() > 0)
            text += "; " + std::to_string(bus.GetOverflows()) +
                    " lost because the output was too slow: filter, or write to a file";
        text += "; " + bus.GetName() + ": " + DescribeLedger(bus.GetCounters());
        std::fprintf(stderr, "%s\n", text.c_str());
    }

    CLI::App& mOptions;
    BusOption mBus;
    std::uint64_t mCount = 0;
    Duration mDuration = Duration::zero();
    PrinterOptions mPrinterOptions;
    TimeOption mTime;
    NamesOption mNames;
    MessageFilter mFilter;
    bool mQuiet = false;
};

} // namespace

std::unique_ptr<iVerb> MakeDumpVerb(CLI::App& command)
{
    return std::make_unique<DumpVerb>(command);
}

} // namespace tarn::tool
