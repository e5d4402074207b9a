#include "SimulateVerb.h"

#include "BusOption.h"
#include "Duration.h"
#include "Failure.h"
#include "Installation.h"
#include "Ledger.h"
#include "Simulation.h"
#include "StopSignal.h"

#include <tarn/TarnAsyncDispatcher.h>

#include <CLI/CLI.hpp>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <string>
#include <vector>

namespace tarn::tool
{

namespace
{

constexpr const char* DESCRIPTION =
    "Simulates the devices of an installation file.\n"
    "\n"
    "Every device answers READ and WRITE requests for it, for its modules and its groups, out of\n"
    "its registers. Values may move; answers may be late, wrong or left out on purpose; reports\n"
    "are sent without being asked. docs/command.md describes the file, examples/installations\n"
    "has some. Ends after --duration or by a signal, and then tells how much it did and the\n"
    "ledger of the bus on standard error.\n"
    "\n"
    "Exit status: 0 done; 1 a file that is not in order, a bus that cannot be opened, or a "
    "message\n"
    "that the bus did not take; 2 wrong usage; 128 + n ended by signal n.";

constexpr const char* EXAMPLES = R"(Examples:
  tarn simulate -b can0 examples/installations/pump-station.json
  tarn simulate -b virtual:bench --duration 100ms examples/installations/test-bench.json
  tarn simulate -b can0 --device pump,valve examples/installations/pump-station.json
  tarn simulate --check examples/installations/misbehaving.json)";

/// A dispatcher receives as long as this lives.
class Reception
{
public:
    explicit Reception(iTarnAsyncDispatcher& dispatcher) : mDispatcher(dispatcher)
    {
        mDispatcher.Start();
    }
    ~Reception() { mDispatcher.Stop(); }
    Reception(const Reception&) = delete;
    Reception& operator=(const Reception&) = delete;

private:
    iTarnAsyncDispatcher& mDispatcher;
};

class SimulateVerb : public iVerb
{
public:
    explicit SimulateVerb(CLI::App& command)
        : mOptions(*command.add_subcommand("simulate", DESCRIPTION))
    {
        mOptions.add_option("FILE", mFile, "The installation file")->type_name("")->required();
        mBus.AddOption(mOptions);
        mOptions
            .add_option("--device", mNames,
                        "Only these devices, by name or address. Default: all that are not\n"
                        "\"simulated\": false")
            ->type_name("LIST")
            ->delimiter(',')
            ->allow_extra_args(false);
        AddDuration(mOptions, "--duration", mDuration, "Ends after this time: 500ms, 10s, 5min");
        mOptions.add_flag("--check", mCheck, "Only checks the file");
        mOptions.add_flag("-q,--quiet", mQuiet, "Does not tell what it does and did");
        mOptions.footer(EXAMPLES);
    }

    const CLI::App& GetOptions() const override { return mOptions; }

    int Run() override
    {
        const Installation installation = ReadInstallation(mFile);
        if (mCheck)
            return Describe(installation);
        const std::vector<const InstalledDevice*> devices = Choose(installation);
        CatchStopSignals();
        const auto bus = mBus.Open();
        const SimulatedDevice::Counters counters = Simulate(devices, bus);
        if (!mQuiet)
            Report(counters, *bus);
        if (CaughtStopSignal() != 0)
            return EXIT_SIGNAL + CaughtStopSignal();
        return counters.unsent == 0 ? EXIT_DONE : EXIT_TROUBLE;
    }

private:
    using Clock = Simulation::Clock;

    int Describe(const Installation& installation) const
    {
        std::size_t registers = 0;
        for (const InstalledDevice& device : installation.devices)
            registers += device.registers.size();
        std::printf("%s: in order, %zu devices with %zu registers\n", mFile.c_str(),
                    installation.devices.size(), registers);
        return EXIT_DONE;
    }

    std::vector<const InstalledDevice*> Choose(const Installation& installation) const
    {
        std::vector<const InstalledDevice*> devices;
        for (const std::string& name : mNames)
            devices.push_back(&installation.RequireDevice("--device", name));
        if (mNames.empty()) {
            for (const InstalledDevice& device : installation.devices) {
                if (device.simulated)
                    devices.push_back(&device);
            }
        }
        if (devices.empty())
            throw Trouble(mFile + ": has no device to simulate; add one to \"devices\"");
        std::sort(devices.begin(), devices.end());
        devices.erase(std::unique(devices.begin(), devices.end()), devices.end());
        return devices;
    }

    SimulatedDevice::Counters Simulate(const std::vector<const InstalledDevice*>& devices,
                                       const std::tr1::shared_ptr<iCanBus>& bus)
    {
        const auto dispatcher = TarnAsyncDispatcher::Create(bus);
        const Clock::time_point end = EndAfter(mDuration);
        Simulation simulation(dispatcher);
        for (const InstalledDevice* const device : devices)
            simulation.Add(*device);
        const Reception reception(*dispatcher);
        simulation.Announce();
        if (!mQuiet)
            Begin(devices);
        Serve(simulation, *bus, end);
        return simulation.GetCounters();
    }

    void Serve(Simulation& simulation, const iCanBus& bus, Clock::time_point end) const
    {
        DropWatch drops("tarn simulate", mBus.GetName());
        do {
            simulation.SendReports();
            drops.Look(bus.GetCounters());
        } while (SleepUntil(std::min({end, simulation.NextReport(), Clock::now() + LOOK_PERIOD})) &&
                 Clock::now() < end);
    }

    void Begin(const std::vector<const InstalledDevice*>& devices) const
    {
        std::string list;
        for (const InstalledDevice* const device : devices)
            list += (list.empty() ? "" : ", ") + device->name + " (" +
                    std::to_string(device->Address()) + ')';
        std::printf("simulating %s on %s; Ctrl-C ends\n", list.c_str(), BusWord().c_str());
        std::fflush(stdout);
    }

    void Report(const SimulatedDevice::Counters& counters, const iCanBus& bus) const
    {
        std::string text = std::to_string(counters.requests) + " requests, " +
                           std::to_string(counters.answers) + " answers, " +
                           std::to_string(counters.reports) + " reports";
        if (counters.unsent > 0)
            text += ", " + std::to_string(counters.unsent) +
                    " not sent: the bus did not take them, or too many waited";
        std::fprintf(stderr, "tarn simulate: %s; %s: %s\n", text.c_str(), BusWord().c_str(),
                     DescribeLedger(bus.GetCounters()).c_str());
    }

    std::string BusWord() const
    {
        const std::string name = mBus.GetShortName();
        return name.empty() ? mBus.GetName() : name;
    }

    /// How often drops are looked for.
    static constexpr std::chrono::milliseconds LOOK_PERIOD{100};

    CLI::App& mOptions;
    std::string mFile;
    BusOption mBus;
    std::vector<std::string> mNames;
    Duration mDuration = Duration::zero();
    bool mCheck = false;
    bool mQuiet = false;
};

} // namespace

std::unique_ptr<iVerb> MakeSimulateVerb(CLI::App& command)
{
    return std::make_unique<SimulateVerb>(command);
}

} // namespace tarn::tool
