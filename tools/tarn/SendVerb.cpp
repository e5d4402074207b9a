#include "SendVerb.h"

#include "BusOption.h"
#include "Duration.h"
#include "Failure.h"
#include "FieldOptions.h"
#include "JsonFrameReader.h"
#include "NamesOption.h"
#include "StopSignal.h"

#include <plexa_can/CanException.h>

#include <CLI/CLI.hpp>

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

namespace tarn::tool
{

namespace
{

constexpr const char* DESCRIPTION =
    "Sends Tarn messages.\n"
    "\n"
    "One message is told by the options of 'tarn encode'; with --json many are told by objects\n"
    "as 'tarn decode --json' and 'tarn dump --json' print them, one a line, and are sent as they\n"
    "are read. A message that cannot be sent ends the command. To send a log in its own time,\n"
    "see 'tarn replay'.\n"
    "\n"
    "Exit status: 0 all was sent; 1 a bus that cannot be opened or does not take a frame, or an\n"
    "object that is no message; 2 wrong usage; 128 + n ended by signal n.";

constexpr const char* EXAMPLES = R"(Examples:
  tarn send -b can0 --target 9 --register 0x11
  tarn send -b can0 --target 9 --register 0x11 --write --u16 100 200 300
  tarn send -b can0 --target 9 --write --float 1.5 --interval 10ms --count 20
  tarn decode -q --json examples/logs/startup.log | tarn send -b can0 --json --interval 5ms)";

/// Puts frames onto the bus, at most one an interval.
class PacedSender
{
public:
    PacedSender(iCanAsyncDispatcher& bus, Duration interval) : mBus(bus), mInterval(interval) {}

    /// Returns false when a stop signal came before it was time.
    /// @throws Failure when the bus does not take the frame
    bool Send(CanMessage& frame)
    {
        if (!SleepUntil(mNext))
            return false;
        // After a delay the interval counts from now on, so that no burst makes up for it.
        mNext = std::max(mNext + mInterval, Clock::now());
        try {
            mBus.Send(frame);
        } catch (const CanException& failure) {
            throw Trouble(failure.message() + "; sent before: " + std::to_string(mSent));
        }
        ++mSent;
        return true;
    }

    std::uint64_t CountSent() const { return mSent; }

private:
    using Clock = std::chrono::steady_clock;

    iCanAsyncDispatcher& mBus;
    Duration mInterval;
    Clock::time_point mNext = Clock::now();
    std::uint64_t mSent = 0;
};

class SendVerb : public iVerb
{
public:
    explicit SendVerb(CLI::App& command) : mOptions(*command.add_subcommand("send", DESCRIPTION))
    {
        mBus.AddOption(mOptions);
        AddDuration(mOptions, "--interval", mInterval,
                    "From one message to the next: 100us, 10ms, 1s. Default 0");
        mCountOption =
            mOptions.add_option("-n,--count", mCount,
                                "Sends the message so many times, default 1; 0 is until\n"
                                "stopped. With --json: at most so many messages");
        mCountOption->type_name("N");
        mOptions.add_flag("--json", mJson, "Reads JSON objects, one a line");
        mOptions
            .add_option("FILE", mFiles, "With --json: objects to read; - or none is standard input")
            ->type_name("");
        mOptions.add_flag("-q,--quiet", mQuiet, "Does not tell how many were sent");
        mNames.AddOption(mOptions);
        mFieldOptions.AddOptions(mOptions, mNames);
        mOptions.footer(EXAMPLES);
    }

    const CLI::App& GetOptions() const override { return mOptions; }

    int Run() override
    {
        CheckUsage();
        CatchStopSignals();
        const auto bus = mBus.Open();
        PacedSender sender(*bus, mInterval);
        if (mJson)
            SendObjects(sender);
        else
            SendMessage(sender);
        if (!mQuiet && (mJson || mCount != 1))
            std::fprintf(stderr, "tarn send: %llu sent\n",
                         static_cast<unsigned long long>(sender.CountSent()));
        if (CaughtStopSignal() != 0)
            return EXIT_SIGNAL + CaughtStopSignal();
        return mReader.CountRefusals() == 0 ? EXIT_DONE : EXIT_TROUBLE;
    }

private:
    void CheckUsage() const
    {
        if (mJson && mFieldOptions.AreGiven())
            throw UsageFailure("--json: does not go with options for fields; give one of both");
        if (!mJson && !mFiles.empty())
            throw UsageFailure(mFiles.front() +
                               ": is neither an option nor a value of one; files need --json");
    }

    void SendMessage(PacedSender& sender) const
    {
        CanMessage frame = BuildMessage(mFieldOptions.GetFields()).RawMessage();
        while (mCount == 0 || sender.CountSent() < mCount) {
            if (!sender.Send(frame))
                return;
        }
    }

    void SendObjects(PacedSender& sender)
    {
        const bool limited = !mCountOption->empty() && mCount > 0;
        mReader.ReadAll(
            mFiles,
            [&](CanMessage& frame) {
                return sender.Send(frame) && !(limited && sender.CountSent() == mCount);
            },
            [] {});
    }

    CLI::App& mOptions;
    BusOption mBus;
    Duration mInterval = Duration::zero();
    std::uint64_t mCount = 1;
    CLI::Option* mCountOption = nullptr;
    std::vector<std::string> mFiles;
    NamesOption mNames;
    FieldOptions mFieldOptions;
    JsonFrameReader mReader{"tarn send"};
    bool mJson = false;
    bool mQuiet = false;
};

} // namespace

std::unique_ptr<iVerb> MakeSendVerb(CLI::App& command)
{
    return std::make_unique<SendVerb>(command);
}

} // namespace tarn::tool
