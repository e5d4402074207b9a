#include "DecodeVerb.h"

#include "Failure.h"
#include "LineAccount.h"
#include "MessageFilter.h"
#include "NamesOption.h"
#include "PrinterOptions.h"
#include "ProgressBar.h"
#include "StopSignal.h"
#include "TimeOption.h"

#include <plexa_can/CanException.h>
#include <plexa_can/CanLogReader.h>

#include <CLI/CLI.hpp>

#include <chrono>
#include <cstdio>
#include <string>
#include <unistd.h>
#include <vector>

namespace tarn::tool
{

namespace
{

constexpr const char* DESCRIPTION =
    "Reads candump logs and pcap files and prints the Tarn messages in them.\n"
    "\n"
    "Every form of candump is understood, also mixed: the log form of -L and -l, the console\n"
    "form with or without time stamps, and bare frames as cansend takes them. Blank lines and\n"
    "lines that begin with # are comments. Times of day are UTC. Of pcap and pcapng files, which\n"
    "are told by their content, the link types CAN_SOCKETCAN and LINUX_SLL are read.\n"
    "\n"
    "In the usual form a target 'g9' is group 9 and '9.3' is module 3 of device 9; values are\n"
    "decimal; what is unusual about a message stands at the end in parentheses.\n"
    "\n"
    "Lines that are no Tarn message are counted by kind, and the first few of each kind shown,\n"
    "on standard error. Exit status: 0 done, also when whoever reads the output stops early;\n"
    "1 a file that cannot be read, or with --strict a malformed line; 2 wrong usage;\n"
    "128 + n ended by signal n.";

constexpr const char* EXAMPLES = R"(Examples:
  tarn decode examples/logs/startup.log
  tarn decode --source 5,7-9 --type U16,FLOAT examples/logs/data-types.log
  tarn decode --json examples/logs/chcp-configuration.log
  echo '(1609779922.655421) can0 0F800001#20' | tarn decode --long
  echo 0F040085#B50459 | tarn decode --names examples/installations/pump-station.json
  echo '  can0  0F800001   [1]  20' | tarn decode --csv -)";

/// Takes entries of logs and puts out messages.
class Decoder
{
public:
    Decoder(const MessageFilter& filter, TimeOption& time, iMessagePrinter& printer,
            OutputBuffer& out, LineAccount& account)
        : mFilter(filter),
          mTime(time),
          mPrinter(printer),
          mOut(out),
          mAccount(account)
    {
    }

    void Take(CanLogReader& log)
    {
        while (log.Next(mLine))
            TakeLine(log);
    }

private:
    void TakeLine(CanLogReader& log)
    {
        if (mLine.kind == CandumpLine::KIND_COMMENT)
            return mAccount.Add(LINE_COMMENT);
        if (mLine.kind == CandumpLine::KIND_MALFORMED)
            return mAccount.AddMalformed(mLine.reason, mLine.column, PlaceIn(log));
        const tLineFate fate = FateOf(mLine);
        if (fate != LINE_SHOWN)
            return mAccount.AddRefused(fate, PlaceIn(log));
        Decode(log);
    }

    static LinePlace PlaceIn(CanLogReader& log)
    {
        return {log.GetName(), log.GetNumber(), log.GetText()};
    }

    void Decode(CanLogReader& log)
    {
        const TarnMessage message(mLine.frame);
        if (!message)
            return mAccount.AddRefused(LINE_TOO_SHORT, PlaceIn(log));
        ReadFields(message, mLine.frame, mFields);
        if (!mFilter.Passes(mFields))
            return mAccount.Add(LINE_FILTERED);
        mTime.Apply(mLine);
        mPrinter.Print({mLine, message, mFields}, mOut);
        mAccount.Add(LINE_SHOWN);
    }

    const MessageFilter& mFilter;
    TimeOption& mTime;
    iMessagePrinter& mPrinter;
    OutputBuffer& mOut;
    LineAccount& mAccount;
    CandumpLine mLine;
    MessageFields mFields;
};

class DecodeVerb : public iVerb
{
public:
    explicit DecodeVerb(CLI::App& command)
        : mOptions(*command.add_subcommand("decode", DESCRIPTION))
    {
        mOptions.add_option("FILE", mFiles, "Logs to read; - or none is standard input")
            ->type_name("");
        mPrinterOptions.AddOptions(mOptions);
        mTime.AddOption(mOptions);
        mFilter.AddOptions(mOptions, &mNames);
        mNames.AddOption(mOptions);
        mOptions.add_flag("--strict", mStrict, "Exit status 1 when a line is malformed");
        mOptions.add_flag("-q,--quiet", mQuiet, "No remarks on lines and no summary");
        mOptions.footer(EXAMPLES);
    }

    const CLI::App& GetOptions() const override { return mOptions; }

    int Run() override
    {
        CatchStopSignals();
        OutputBuffer out(STDOUT_FILENO);
        LineAccount account("tarn decode", mQuiet);
        const auto printer = mPrinterOptions.MakePrinter(mNames.Get());
        Decoder decoder(mFilter, mTime, *printer, out, account);
        printer->Begin(out);
        bool complete = true;
        mTotalBytes = TotalSize(mFiles);
        for (const std::string& file : mFiles.empty() ? std::vector<std::string>{"-"} : mFiles)
            complete = DecodeFile(file, decoder, out) && complete;
        out.WriteOut();
        mProgress.Clear();
        if (!mQuiet)
            std::fprintf(stderr, "%s\n", account.Summary().c_str());
        if (CaughtStopSignal() != 0)
            return EXIT_SIGNAL + CaughtStopSignal();
        return complete && !(mStrict && account[LINE_MALFORMED] > 0) ? EXIT_DONE : EXIT_TROUBLE;
    }

private:
    using Clock = std::chrono::steady_clock;

    /// Goes on to the next file after one that cannot be read.
    bool DecodeFile(const std::string& file, Decoder& decoder, OutputBuffer& out)
    {
        try {
            CanLogReader log(file, [&](int descriptor, std::uint64_t bytesRead) {
                return AwaitInput(descriptor, bytesRead, out);
            });
            decoder.Take(log);
            mBytesBefore += log.GetBytesRead();
            return true;
        } catch (const CanException& failure) {
            mProgress.Clear();
            std::fprintf(stderr, "tarn decode: %s\n", failure.message().c_str());
            return false;
        }
    }

    bool AwaitInput(int descriptor, std::uint64_t bytesRead, OutputBuffer& out)
    {
        if (!HasInput(descriptor))
            out.WriteOut();
        const std::chrono::duration<double> elapsed = Clock::now() - mBegin;
        mProgress.Update(mBytesBefore + bytesRead, mTotalBytes, elapsed.count());
        return WaitForInput(descriptor);
    }

    /// A bar among the lines of output would spoil both.
    static std::FILE* ProgressTerminal()
    {
        return ::isatty(STDERR_FILENO) != 0 && ::isatty(STDOUT_FILENO) == 0 ? stderr : nullptr;
    }

    CLI::App& mOptions;
    std::vector<std::string> mFiles;
    PrinterOptions mPrinterOptions;
    TimeOption mTime;
    NamesOption mNames;
    MessageFilter mFilter;
    ProgressBar mProgress{ProgressTerminal()};
    Clock::time_point mBegin = Clock::now();
    std::uint64_t mBytesBefore = 0;
    std::uint64_t mTotalBytes = 0;
    bool mStrict = false;
    bool mQuiet = false;
};

} // namespace

std::unique_ptr<iVerb> MakeDecodeVerb(CLI::App& command)
{
    return std::make_unique<DecodeVerb>(command);
}

} // namespace tarn::tool
