#include "ServeVerb.h"

#include "BusOption.h"
#include "Duration.h"
#include "Failure.h"
#include "Ledger.h"
#include "SocketCandServer.h"
#include "StopSignal.h"

#include <CLI/CLI.hpp>

#include <cstdio>
#include <string>
#include <vector>

namespace tarn::tool
{

namespace
{

constexpr const char* DESCRIPTION =
    "Offers a bus to other programs over TCP, by the protocol of socketcand.\n"
    "\n"
    "Clients are every tarn verb with --bus socketcand:HOST:PORT/BUS, and whatever else speaks\n"
    "the protocol in raw mode. A frame that a client sends reaches the bus and the other clients,\n"
    "not itself. virtual:NAME is a bus inside one process: this verb shares it with others, and\n"
    "makes it when there is none. Without other options only this machine can connect; whoever\n"
    "can may send on the bus, so --allow says who may. A client that does not read in time is\n"
    "told so and dropped. Ends after --duration or by a signal, and then tells on standard error\n"
    "what became of clients and frames.\n"
    "\n"
    "Exit status: 0 done; 1 a bus that cannot be opened, or an address that cannot be had;\n"
    "2 wrong usage; 128 + n ended by signal n.";

constexpr const char* EXAMPLES = R"(Examples:
  tarn serve can0 --listen 0.0.0.0:29536 --allow 192.168.1.0/24
  tarn serve can0 --read-only
  tarn serve virtual:desk --listen 127.0.0.1:0 --duration 100ms
  tarn serve virtual:desk --listen 127.0.0.1:0 --read-only --duration 100ms)";

class ServeVerb : public iVerb
{
public:
    explicit ServeVerb(CLI::App& command) : mOptions(*command.add_subcommand("serve", DESCRIPTION))
    {
        mOptions
            .add_option("BUS", mBusName,
                        "The bus: an interface like can0, virtual:NAME, log:FILE or\n"
                        "socketcand:HOST:PORT/BUS, with ?key=value&... for options. Default:\n"
                        "TARN_BUS of the environment")
            ->type_name("")
            ->envname("TARN_BUS");
        mOptions
            .add_option("--listen", mListen,
                        "Where clients connect. Port 0: any that is free, told on standard\n"
                        "error. Default 127.0.0.1:29536")
            ->type_name("ADDRESS:PORT");
        mOptions
            .add_option("--allow", mAllowed,
                        "Only clients of these addresses: 192.168.1.20,10.0.0.0/8,fd00::/8")
            ->type_name("LIST")
            ->delimiter(',')
            ->allow_extra_args(false); // the bus may follow
        mOptions.add_option("--max-clients", mMaxClients, "Most clients at a time, default 64")
            ->type_name("N")
            ->check(CLI::Range(1, 1000));
        mOptions.add_flag("--read-only", mReadOnly, "Sends nothing on the bus");
        mOptions
            .add_option("--name", mName,
                        "What clients call the bus. Default: the interface, or the name of\n"
                        "the virtual bus")
            ->type_name("NAME");
        mOptions
            .add_option("--beacon", mBeacon,
                        "Tells every two seconds, by a datagram to there, that there is a\n"
                        "server: 192.168.1.255:42000. Default: nowhere")
            ->type_name("ADDRESS:PORT");
        AddDuration(mOptions, "--duration", mDuration, "Ends after this time: 500ms, 10s, 5min");
        mOptions.add_flag("-q,--quiet", mQuiet, "No ledger at the end");
        mOptions.footer(EXAMPLES);
    }

    const CLI::App& GetOptions() const override { return mOptions; }

    int Run() override
    {
        CatchStopSignals();
        const BusOption option(mBusName);
        const SocketCandServer::Options options = MakeOptions(option);
        const auto bus = option.Open();
        SocketCandServer server(bus, options);
        Begin(server);
        const auto end = EndAfter(mDuration);
        server.Serve(end);
        if (!mQuiet)
            Report(server, *bus);
        return CaughtStopSignal() != 0 ? EXIT_SIGNAL + CaughtStopSignal() : EXIT_DONE;
    }

private:
    using Clock = SocketCandServer::Clock;

    SocketCandServer::Options MakeOptions(const BusOption& option)
    {
        SocketCandServer::Options options;
        options.listen = ParseSocketAddress("--listen", mListen);
        for (const std::string& range : mAllowed)
            options.allowed.emplace_back("--allow", range);
        if (!mBeacon.empty())
            options.beacon = ParseSocketAddress("--beacon", mBeacon);
        options.maxClients = mMaxClients;
        options.readOnly = mReadOnly;
        options.isLog = option.IsLog();
        if (mName.empty())
            mName = option.IsLog() ? "log" : option.GetShortName();
        if (!IsSocketCandBusName(mName))
            throw UsageFailure("the bus \"" + mName +
                               "\" has no name that clients could open it by; give one of 1 to 64 "
                               "printable characters with --name");
        options.busName = mName;
        return options;
    }

    void Begin(const SocketCandServer& server) const
    {
        const std::string where = server.GetAddress().Text();
        std::fprintf(stderr, "tarn serve: listening at %s; clients: --bus socketcand:%s/%s\n",
                     where.c_str(), where.c_str(), mName.c_str());
        if (!server.GetAddress().IsLoopback() && mAllowed.empty() && !mReadOnly)
            std::fprintf(stderr, "tarn serve: everybody who can connect may send on the bus; "
                                 "--allow says who may, --read-only that nobody does\n");
    }

    void Report(const SocketCandServer& server, const iCanBus& bus) const
    {
        const SocketCandServer::Counters& counters = server.GetCounters();
        std::string text = std::to_string(counters.clients) + " clients";
        const auto add = [&text](std::uint64_t number, const char* what) {
            if (number > 0)
                text += ", " + std::to_string(number) + ' ' + what;
        };
        add(counters.refused, "refused");
        add(counters.dropped, "dropped");
        add(counters.malformed, "malformed commands");
        text += "; " + std::to_string(counters.taken) + " frames from clients";
        add(counters.notTaken, "not sent");
        text += "; " + std::to_string(counters.told) + " to clients";
        add(counters.lost, "lost because they were too slow");
        add(server.GetOverflows(), "lost because this machine was too slow");
        std::fprintf(stderr, "tarn serve: %s; %s: %s\n", text.c_str(), mName.c_str(),
                     DescribeLedger(bus.GetCounters()).c_str());
    }

    CLI::App& mOptions;
    std::string mBusName;
    std::string mListen = "127.0.0.1:29536";
    std::vector<std::string> mAllowed;
    std::size_t mMaxClients = 64;
    bool mReadOnly = false;
    std::string mName;
    std::string mBeacon;
    Duration mDuration = Duration::zero();
    bool mQuiet = false;
};

} // namespace

std::unique_ptr<iVerb> MakeServeVerb(CLI::App& command)
{
    return std::make_unique<ServeVerb>(command);
}

} // namespace tarn::tool
