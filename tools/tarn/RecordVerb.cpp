#include "RecordVerb.h"

#include "BusOption.h"
#include "Duration.h"
#include "Failure.h"
#include "LiveBus.h"
#include "ProgressBar.h"
#include "RotatingLog.h"
#include "StopSignal.h"

#include <CLI/CLI.hpp>

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <string>
#include <unistd.h>

namespace tarn::tool
{

namespace
{

constexpr const char* DESCRIPTION =
    "Records the frames of a bus in log files.\n"
    "\n"
    "The files are pcap, for Wireshark, when the name ends in .pcap, else lines as candump -l\n"
    "writes them. All frames that the bus delivers are recorded, error frames and those that are "
    "no Tarn\n"
    "message too. With --size or --time a new file is begun at the limit: drive.log makes\n"
    "drive.0001.log, drive.0002.log and so on; --keep removes the oldest. What is recorded is in\n"
    "the file a tenth of a second later at the latest. The last line on standard error says what\n"
    "became of every frame.\n"
    "\n"
    "Exit status: 0 done; 1 a bus or file that cannot be opened, a disk that is full, or frames\n"
    "lost on the way to the file; 2 wrong usage; 128 + n ended by signal n.";

constexpr const char* EXAMPLES = R"(Examples:
  tarn record -b can0 --duration 2s --force /tmp/drive.log
  tarn record -b can0 -n 20 --force /tmp/drive.pcap
  tarn record -b can0 -n 500 --size 10k --keep 3 --force /tmp/ring.log
  tarn record -b 'log:examples/logs/startup.log?speed=max' --force /tmp/a.pcap)";

class RecordVerb : public iVerb
{
public:
    explicit RecordVerb(CLI::App& command)
        : mOptions(*command.add_subcommand("record", DESCRIPTION))
    {
        mBus.AddOption(mOptions);
        mOptions.add_option("FILE", mPath, "The log to write")->required()->type_name("");
        mOptions.add_option("-n,--count", mCount, "Ends after so many frames")
            ->type_name("N")
            ->check(CLI::PositiveNumber);
        AddDuration(mOptions, "--duration", mDuration, "Ends after this time: 10s, 5min, 2h");
        mOptions
            .add_option_function<std::string>(
                "--size",
                [this](const std::string& text) { mLimits.bytes = ParseByteCount("--size", text); },
                "Begins a new file before one grows beyond so many bytes: 500k, 10M, 1G")
            ->type_name("BYTES");
        AddDuration(mOptions, "--time", mLimits.time, "Begins a new file after this time");
        mOptions
            .add_option("--keep", mLimits.files,
                        "With --size or --time: keeps so many files, and removes\n"
                        "the oldest of this run. Default: all")
            ->type_name("N");
        mOptions.add_flag("--force", mLimits.overwrite, "Replaces files that are there already");
        mOptions.add_flag("-q,--quiet", mQuiet, "No ledger at the end, unless frames were lost");
        mOptions.footer(EXAMPLES);
    }

    const CLI::App& GetOptions() const override { return mOptions; }

    int Run() override
    {
        if (mLimits.files > 0 && !mLimits.Rotate())
            throw UsageFailure("--keep: goes with --size or --time; add one of them");
        CatchStopSignals();
        LiveBus bus("tarn record", mBus);
        RotatingLog log(mPath, mLimits, LiveBus::Clock::now());
        Record(bus, log);
        log.Close();
        mProgress.Clear();
        const bool lossless = bus.GetOverflows() == 0;
        if (!mQuiet || !lossless)
            Report(bus, log);
        if (CaughtStopSignal() != 0)
            return EXIT_SIGNAL + CaughtStopSignal();
        return lossless ? EXIT_DONE : EXIT_TROUBLE;
    }

private:
    void Record(LiveBus& bus, RotatingLog& log)
    {
        const auto begin = LiveBus::Clock::now();
        bus.Listen(
            mDuration == Duration::zero() ? LiveBus::Clock::time_point::max() : begin + mDuration,
            [&](const CandumpLine& line) {
                log.Write(line, LiveBus::Clock::now());
                return mCount == 0 || log.CountFrames() < mCount;
            },
            [&] {
                log.Flush();
                const std::chrono::duration<double> elapsed = LiveBus::Clock::now() - begin;
                mProgress.Update(log.CountBytes(), 0, elapsed.count());
            });
    }

    static void Report(const LiveBus& bus, const RotatingLog& log)
    {
        std::string text = "tarn record: " + std::to_string(log.CountFrames()) + " frames in " +
                           std::to_string(log.CountFiles()) +
                           (log.CountFiles() == 1 ? " file" : " files");
        if (bus.GetOverflows() > 0)
            text += "; " + std::to_string(bus.GetOverflows()) +
                    " lost because writing was too slow: record to a faster disk";
        text += "; " + bus.GetName() + ": " + DescribeLedger(bus.GetCounters());
        std::fprintf(stderr, "%s\n", text.c_str());
    }

    CLI::App& mOptions;
    BusOption mBus;
    std::string mPath;
    std::uint64_t mCount = 0;
    Duration mDuration = Duration::zero();
    RotatingLog::Limits mLimits;
    ProgressBar mProgress{::isatty(STDERR_FILENO) != 0 ? stderr : nullptr};
    bool mQuiet = false;
};

} // namespace

std::unique_ptr<iVerb> MakeRecordVerb(CLI::App& command)
{
    return std::make_unique<RecordVerb>(command);
}

} // namespace tarn::tool
