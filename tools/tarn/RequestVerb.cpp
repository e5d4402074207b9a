#include "RequestVerb.h"

#include "BusOption.h"
#include "Duration.h"
#include "Failure.h"
#include "FieldOptions.h"
#include "NamedFields.h"
#include "NamesOption.h"
#include "PrinterOptions.h"
#include "ProgressBar.h"
#include "RequestReport.h"
#include "Requester.h"
#include "StopSignal.h"

#include <CLI/CLI.hpp>

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <string>
#include <unistd.h>
#include <vector>

namespace tarn::tool
{

namespace
{

constexpr const char* DESCRIPTION =
    "Asks a device and prints the values of its answer.\n"
    "\n"
    "A status other than OPERATING is told on standard error. With several targets or registers\n"
    "there is a table, a line a request. With --repeat, the latencies are summed up at the end:\n"
    "how many, how many lost, minimum, median, 99th percentile, maximum, and a histogram;\n"
    "with --json and the other forms the answers are printed as they come, and the summary goes\n"
    "to standard error.\n"
    "\n"
    "Exit status: 0 all were answered; 1 a device refused (status RESOURCE NOT EXISTING and\n"
    "those that follow it), or the bus failed; 2 wrong usage; 3 an answer did not come in time;\n"
    "128 + n ended by signal n.";

constexpr const char* EXAMPLES = R"(Examples:
  tarn request -b can0 --target 9 --register 0x11
  tarn request -b can0 --target 9 --register 0x12 --write --u16 100 --timeout 50ms --retries 2
  tarn request -b can0 --target 9,20 --register 0x10-0x13
  tarn request -b can0 --target 9 --register 0x11 --repeat 100 --interval 5ms
  tarn request -b can0 --names plant.json --target pump --register speed --set 1200
  tarn request -b can0 --target 9 --register 0x11 --json)";

constexpr unsigned int MAX_ADDRESS = 127;
constexpr unsigned int MAX_REGISTER = 255;

class RequestVerb : public iVerb
{
public:
    explicit RequestVerb(CLI::App& command)
        : mOptions(*command.add_subcommand("request", DESCRIPTION))
    {
        mBus.AddOption(mOptions);
        AddList("--target", MAX_ADDRESS, mTargets, "Devices to ask, 0 to 127: 5,7-9");
        AddList("--register", MAX_REGISTER, mRegisters,
                "Registers to ask for, 0 to 255: 0x10-0x13,40. Default 0");
        mNames.AddOption(mOptions);
        AddDuration(mOptions, "--timeout", mTimeout,
                    "Waits so long for an answer: 20ms, 1s. Default 500ms");
        mOptions
            .add_option("--retries", mRetries,
                        "Asks so many times more when no answer came, default 0")
            ->type_name("N");
        mRepeatOption = mOptions.add_option("--repeat", mRepeat,
                                            "Asks so many times, and sums the latencies up; 0 is\n"
                                            "until stopped");
        mRepeatOption->type_name("N");
        AddDuration(mOptions, "--interval", mInterval,
                    "With --repeat: from one time to the next. Default 0");
        mOptions.add_flag("-q,--quiet", mQuiet, "No remarks on the status of an answer");
        mPrinterOptions.AddOptions(mOptions);
        mFieldOptions.AddRequestOptions(mOptions, mNames);
        mOptions.footer(EXAMPLES);
    }

    const CLI::App& GetOptions() const override { return mOptions; }

    int Run() override
    {
        const Requester::Plan plan = MakePlan();
        CatchStopSignals();
        const auto report = MakeReport(plan);
        RequestCount count;
        OutputBuffer out(STDOUT_FILENO);
        Requester requester(mBus.Open(), plan);
        if (report)
            report->Begin(out);
        bool goOn = true;
        while (goOn) {
            goOn = requester.TakeResults([&](const RequestResult& result) {
                count.Add(result);
                Show(result, report.get(), out);
            });
            out.WriteOut();
        }
        requester.End();
        return Finish(count, out);
    }

private:
    void AddList(const std::string& name, unsigned int max, std::vector<std::string>& items,
                 const std::string& help)
    {
        mOptions
            .add_option_function<std::string>(
                name,
                [this, name, max, &items](const std::string& list) {
                    items = ParseItems(name, list, max, mNames.Get());
                },
                help)
            ->type_name("LIST")
            ->group("Requests");
    }

    Requester::Plan MakePlan() const
    {
        if (mTargets.empty())
            throw UsageFailure("no target: whom to ask is not told; add --target 9");
        if (mRepeatOption->empty() && mInterval != Duration::zero())
            throw UsageFailure("--interval: goes with --repeat alone; add --repeat 10");
        Requester::Plan plan;
        plan.rounds = mRepeat;
        plan.interval = mInterval;
        plan.timeout = TimeoutMilliseconds();
        plan.retries = mRetries;
        for (const std::string& target : mTargets) {
            for (const std::string& reg : mRegisters)
                plan.requests.push_back(BuildMessage(mFieldOptions.GetFields(target, reg)));
        }
        return plan;
    }

    unsigned int TimeoutMilliseconds() const
    {
        constexpr Duration MOST = std::chrono::hours(24);
        if (mTimeout > MOST || mTimeout == Duration::zero())
            throw UsageFailure(
                "--timeout: cannot be 0 nor more than a day; give a time like 500ms");
        return static_cast<unsigned int>(
            std::chrono::ceil<std::chrono::milliseconds>(mTimeout).count());
    }

    bool IsRepeated() const { return !mRepeatOption->empty(); }

    /// Null when the answers themselves are not shown.
    std::unique_ptr<iRequestReport> MakeReport(const Requester::Plan& plan) const
    {
        if (mPrinterOptions.IsFormGiven())
            return MakeMessageReport(mPrinterOptions.MakePrinter(mNames.Get()),
                                     mBus.GetShortName());
        if (IsRepeated())
            return nullptr;
        return plan.requests.size() > 1 ? MakeTableReport(mNames.Get())
                                        : MakeValueReport(mQuiet, mNames.Get());
    }

    void Show(const RequestResult& result, iRequestReport* report, OutputBuffer& out) const
    {
        if (report != nullptr)
            report->Take(result, out);
        const bool isTold = report != nullptr && !mPrinterOptions.IsFormGiven() &&
                            (mTargets.size() > 1 || mRegisters.size() > 1);
        if (!result.answered && !IsRepeated() && !isTold)
            std::fprintf(stderr, "tarn request: %s: no answer within %s; is it there and on?\n",
                         DescribeTarget(result.request).c_str(),
                         DescribeDuration(mTimeout).c_str());
    }

    int Finish(const RequestCount& count, OutputBuffer& out) const
    {
        if (IsRepeated() && mPrinterOptions.IsFormGiven())
            std::fputs(count.Summary().c_str(), stderr);
        else if (IsRepeated())
            out.Put(count.Summary());
        out.WriteOut();
        if (CaughtStopSignal() != 0)
            return EXIT_SIGNAL + CaughtStopSignal();
        if (count.WasLost())
            return EXIT_TIMEOUT;
        return count.WasRefused() ? EXIT_TROUBLE : EXIT_DONE;
    }

    CLI::App& mOptions;
    BusOption mBus;
    NamesOption mNames;
    std::vector<std::string> mTargets;
    std::vector<std::string> mRegisters = {"0"};
    Duration mTimeout = std::chrono::milliseconds(500);
    Duration mInterval = Duration::zero();
    unsigned int mRetries = 0;
    std::uint64_t mRepeat = 1;
    CLI::Option* mRepeatOption = nullptr;
    PrinterOptions mPrinterOptions;
    FieldOptions mFieldOptions;
    bool mQuiet = false;
};

} // namespace

std::unique_ptr<iVerb> MakeRequestVerb(CLI::App& command)
{
    return std::make_unique<RequestVerb>(command);
}

} // namespace tarn::tool
