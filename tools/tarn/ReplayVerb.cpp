#include "ReplayVerb.h"

#include "Failure.h"
#include "InterfaceMap.h"
#include "Ledger.h"
#include "Numbers.h"
#include "ProgressBar.h"
#include "StopSignal.h"

#include <plexa_can/CanException.h>
#include <plexa_can/CanLogReader.h>
#include <plexa_can/ReplaySchedule.h>

#include <CLI/CLI.hpp>

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <limits>
#include <string>
#include <unistd.h>
#include <vector>

namespace tarn::tool
{

namespace
{

constexpr const char* DESCRIPTION =
    "Sends the frames of log files onto a bus, in the time in which they came.\n"
    "\n"
    "Candump logs and pcap files are read, as by 'tarn decode'. Sent are all classical CAN\n"
    "frames, also those that are no Tarn message; error frames, CAN FD frames and damaged lines\n"
    "are counted and left out. Each frame is due at a distance to the first one, so that no\n"
    "delay adds up. A frame that cannot be sent ends the command.\n"
    "\n"
    "Exit status: 0 all was sent; 1 a log that cannot be read, or a bus that cannot be opened or\n"
    "does not take a frame; 2 wrong usage; 128 + n ended by signal n.";

constexpr const char* EXAMPLES = R"(Examples:
  tarn replay -b can0 examples/logs/startup.log
  tarn replay -b can0 --speed 2 --loop 3 examples/logs/startup.pcap
  tarn replay --map can0=vcan0 --speed max examples/logs/startup.log
  tarn replay -b virtual:desk --speed max examples/logs/startup.log)";

struct ReplayCount {
    std::uint64_t sent = 0;
    std::uint64_t errorFrames = 0;
    std::uint64_t unmapped = 0;
    std::uint64_t fdFrames = 0;
    std::uint64_t malformed = 0;
};

/// Sends the frames of logs when they are due.
class Player
{
public:
    /// @param pause called before it is waited for a frame to be due
    Player(const InterfaceMap& buses, double speed, std::function<void()> pause)
        : mBuses(buses),
          mSchedule(speed),
          mPause(std::move(pause))
    {
    }

    /// Returns false when a stop signal came before the end.
    bool Play(CanLogReader& log)
    {
        CandumpLine entry;
        bool goOn = true;
        mSchedule.Restart();
        while (goOn && log.NextFrame(entry))
            goOn = PlayFrame(entry, log);
        mCount.fdFrames += log.GetCounters().fdFrames;
        mCount.malformed += log.GetCounters().malformed;
        return goOn && CaughtStopSignal() == 0;
    }

    const ReplayCount& GetCount() const { return mCount; }

private:
    bool PlayFrame(CandumpLine& entry, const CanLogReader& log)
    {
        iCanBus* const bus = mBuses.Find(entry.interfaceName);
        if (entry.frame.HasError())
            ++mCount.errorFrames;
        else if (bus == nullptr)
            ++mCount.unmapped;
        else
            return SendInTime(*bus, entry, log);
        return true;
    }

    bool SendInTime(iCanBus& bus, CandumpLine& entry, const CanLogReader& log)
    {
        mPause();
        if (!SleepUntil(mSchedule.DueTime(entry, ReplaySchedule::Time::clock::now())))
            return false;
        mSchedule.Played(entry);
        try {
            bus.Send(entry.frame);
        } catch (const CanException& failure) {
            throw Trouble(log.GetName() + ':' + std::to_string(log.GetNumber()) + ": " +
                          failure.message() + "; sent before: " + std::to_string(mCount.sent));
        }
        ++mCount.sent;
        return true;
    }

    const InterfaceMap& mBuses;
    ReplaySchedule mSchedule;
    std::function<void()> mPause;
    ReplayCount mCount;
};

double ParseSpeed(const std::string& text)
{
    constexpr double MOST = 1e6;
    if (text == "max")
        return std::numeric_limits<double>::infinity();
    const auto speed = ParseReal(text);
    if (!speed || !(*speed > 0 && *speed <= MOST))
        throw UsageFailure("--speed " + text +
                           ": no speed; give a factor above 0, up to a million, or max");
    return *speed;
}

class ReplayVerb : public iVerb
{
public:
    explicit ReplayVerb(CLI::App& command)
        : mOptions(*command.add_subcommand("replay", DESCRIPTION))
    {
        mBuses.AddOptions(mOptions);
        mOptions.add_option("FILE", mFiles, "Logs to play one after another; - is standard input")
            ->required()
            ->type_name("");
        mOptions
            .add_option_function<std::string>(
                "--speed", [this](const std::string& text) { mSpeed = ParseSpeed(text); },
                "2: twice as fast as it was; 0.5: half; max: without waiting.\nDefault 1")
            ->type_name("FACTOR");
        mOptions
            .add_option("--loop", mRounds, "Plays all so many times, default 1; 0 is until stopped")
            ->type_name("N");
        mOptions.add_flag("-q,--quiet", mQuiet, "No summary at the end");
        mOptions.footer(EXAMPLES);
    }

    const CLI::App& GetOptions() const override { return mOptions; }

    int Run() override
    {
        CatchStopSignals();
        mBuses.Open();
        Player player(mBuses, mSpeed, [this] { ShowProgress(); });
        for (std::uint64_t round = 0; mRounds == 0 || round < mRounds; ++round) {
            if (!PlayRound(player))
                break;
        }
        mProgress.Clear();
        if (!mQuiet)
            Report(player.GetCount());
        return CaughtStopSignal() != 0 ? EXIT_SIGNAL + CaughtStopSignal() : EXIT_DONE;
    }

private:
    bool PlayRound(Player& player)
    {
        const std::uint64_t before = player.GetCount().sent;
        for (const std::string& file : mFiles) {
            CanLogReader log(
                file, [](int descriptor, std::uint64_t) { return WaitForInput(descriptor); });
            mLog = &log;
            const bool goesOn = player.Play(log);
            mLog = nullptr;
            if (!goesOn)
                return false;
            mBytesBefore += log.GetBytesRead();
        }
        return player.GetCount().sent > before; // a log without frames would loop for ever
    }

    void ShowProgress()
    {
        const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - mBegin;
        mProgress.Update(mBytesBefore + mLog->GetBytesRead(), mRounds * TotalSize(mFiles),
                         elapsed.count());
    }

    void Report(const ReplayCount& count) const
    {
        std::string text = "tarn replay: " + std::to_string(count.sent) + " sent";
        const auto add = [&text](std::uint64_t number, const char* what) {
            if (number > 0)
                text += ", " + std::to_string(number) + ' ' + what;
        };
        add(count.unmapped, "of other interfaces");
        add(count.errorFrames, "error frames");
        add(count.fdFrames, "CAN FD frames");
        add(count.malformed, "malformed");
        mBuses.ForEachBus([&text](const std::string& name, const iCanBus& bus) {
            text += "; " + name + ": " + DescribeLedger(bus.GetCounters());
        });
        std::fprintf(stderr, "%s\n", text.c_str());
    }

    CLI::App& mOptions;
    InterfaceMap mBuses;
    std::vector<std::string> mFiles;
    double mSpeed = 1;
    std::uint64_t mRounds = 1;
    ProgressBar mProgress{::isatty(STDERR_FILENO) != 0 ? stderr : nullptr};
    const std::chrono::steady_clock::time_point mBegin = std::chrono::steady_clock::now();
    const CanLogReader* mLog = nullptr;
    std::uint64_t mBytesBefore = 0;
    bool mQuiet = false;
};

} // namespace

std::unique_ptr<iVerb> MakeReplayVerb(CLI::App& command)
{
    return std::make_unique<ReplayVerb>(command);
}

} // namespace tarn::tool
