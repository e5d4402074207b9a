#include "MonitorVerb.h"

#include "BusOption.h"
#include "ColourOption.h"
#include "Duration.h"
#include "Failure.h"
#include "Ledger.h"
#include "LiveBus.h"
#include "MessageFilter.h"
#include "MonitorSession.h"
#include "NamesOption.h"
#include "Numbers.h"
#include "StopSignal.h"
#include "Terminal.h"

#include <plexa_can/BusName.h>

#include <CLI/CLI.hpp>

#include <cstdio>
#include <string>

namespace tarn::tool
{

namespace
{

constexpr const char* DESCRIPTION =
    "Shows a bus on a full screen, as it is now.\n"
    "\n"
    "There is a row for each source, target, register and module, and for each MAC identifier of\n"
    "CHCP messages. It has the last values and their status, how many messages come a second, how\n"
    "old the last one is, and the last minute as a line: of the value where a message has one\n"
    "number, of the messages a second where it has none or several. What changed within the last\n"
    "second is marked. Requests and responses, READ (R) and WRITE (W) have rows of their own. Up\n"
    "to 10000 rows are kept; messages that find no room are counted and told in the first line.\n"
    "\n"
    "Keys: q ends; arrows, PgUp, PgDn, Home and End choose a row, and Enter shows its message in\n"
    "long form with its last 100 changes; s sorts by source, rate, age or count, r reverses that;\n"
    "/ filters the rows by a text; p pauses the view, while all goes on being counted; Tab shows\n"
    "the bus: state, load, error counters and ledger; c drops all rows; h lists the keys.\n"
    "\n"
    "The load counts the bits of all frames that arrive here, without stuff bits, which add up to\n"
    "a quarter. An interface hands over frames with 29-bit identifiers only, so others take no\n"
    "part in it. Drawn are the cells that changed, ten times a second at most, and not before the\n"
    "terminal has taken what was drawn before. The monitor ends with a log; ?loop=1 plays it\n"
    "again and again. At the end the ledger on standard error says what became of every frame.\n"
    "\n"
    "Exit status: 0 done; 1 a bus that cannot be opened, a terminal that cannot be drawn on, or\n"
    "frames that were lost because they came too fast; 2 wrong usage; 128 + n ended by signal n.";

constexpr const char* EXAMPLES = R"(Examples:
  tarn monitor -b can0 --names examples/installations/pump-station.json
  tarn monitor -b can0 --bitrate 250000 --type FLOAT
  tarn monitor -b 'log:examples/logs/startup.log?loop=1' --duration 2s)";

constexpr unsigned int MOST_BITS = 1000000;

class MonitorVerb : public iVerb
{
public:
    explicit MonitorVerb(CLI::App& command)
        : mOptions(*command.add_subcommand("monitor", DESCRIPTION))
    {
        mBus.AddOption(mOptions);
        mOptions
            .add_option("--bitrate", mBitRate,
                        "Bits a second that the load is counted by. Default: the\n"
                        "bitrate in the name of the bus, else 125000")
            ->type_name("BITS")
            ->check(CLI::Range(1U, MOST_BITS).description(""));
        AddDuration(mOptions, "--duration", mDuration, "Ends after this time: 500ms, 10s, 5min");
        mColour.AddOption(mOptions, "");
        mFilter.AddOptions(mOptions, &mNames);
        mNames.AddOption(mOptions);
        mOptions.add_flag("-q,--quiet", mQuiet, "No ledger at the end, unless frames were lost");
        mOptions.footer(EXAMPLES);
    }

    const CLI::App& GetOptions() const override { return mOptions; }

    int Run() override
    {
        const MonitorBus facts = Facts();
        MonitorModel model(mFilter, mNames.Get());
        Terminal::Require();
        CatchStopSignals();
        LiveBus bus("tarn monitor", mBus);
        Watch(bus, model, facts);
        const bool lossless = bus.GetOverflows() == 0;
        if (!mQuiet || !lossless)
            Report(bus, model);
        if (CaughtStopSignal() != 0)
            return EXIT_SIGNAL + CaughtStopSignal();
        return lossless ? EXIT_DONE : EXIT_TROUBLE;
    }

private:
    MonitorBus Facts() const
    {
        MonitorBus facts;
        facts.name = mBus.GetName();
        if (mBitRate == 0)
            TakeBitRateOfBus(facts);
        else
            facts.bitRate = mBitRate;
        return facts;
    }

    static void TakeBitRateOfBus(MonitorBus& facts)
    {
        facts.isBitRateAssumed = true;
        for (const auto& [key, value] : ParseBusName(facts.name).options) {
            const auto bits = key == "bitrate" ? ParseWhole(value, MOST_BITS) : std::nullopt;
            if (bits.value_or(0) == 0)
                continue;
            facts.bitRate = static_cast<unsigned int>(*bits);
            facts.isBitRateAssumed = false;
        }
    }

    void Watch(LiveBus& bus, MonitorModel& model, const MonitorBus& facts) const
    {
        try {
            Terminal terminal(mColour.IsOn());
            MonitorSession(bus, terminal, model, facts).Run(EndAfter(mDuration));
        } catch (const Failure&) { // what came up to then is accounted for
            Report(bus, model);
            throw;
        }
    }

    static void Report(const LiveBus& bus, const MonitorModel& model)
    {
        std::string text = "tarn monitor: " + model.Summary();
        if (bus.GetOverflows() > 0)
            text += "; " + std::to_string(bus.GetOverflows()) +
                    " lost because they came too fast: filter at the bus, or use a faster machine";
        text += "; " + bus.GetName() + ": " + DescribeLedger(bus.GetCounters());
        std::fprintf(stderr, "%s\n", text.c_str());
    }

    CLI::App& mOptions;
    BusOption mBus;
    unsigned int mBitRate = 0;
    Duration mDuration = Duration::zero();
    ColourOption mColour;
    NamesOption mNames;
    MessageFilter mFilter;
    bool mQuiet = false;
};

} // namespace

std::unique_ptr<iVerb> MakeMonitorVerb(CLI::App& command)
{
    return std::make_unique<MonitorVerb>(command);
}

} // namespace tarn::tool
