#include "ScanVerb.h"

#include "BusOption.h"
#include "Duration.h"
#include "Failure.h"
#include "LiveBus.h"
#include "MessageNames.h"
#include "NamedFields.h"
#include "NamesOption.h"
#include "NumberList.h"
#include "PrinterOptions.h"
#include "ProgressBar.h"
#include "RequestReport.h"
#include "Scanner.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <array>
#include <cstdio>
#include <string>
#include <unistd.h>
#include <vector>

namespace tarn::tool
{

namespace
{

constexpr const char* DESCRIPTION =
    "Asks every address of a bus for a register and tells who answered.\n"
    "\n"
    "A device that does not have the register answers too, with a status that says so. Beside\n"
    "the answers, the sources of other messages and the MAC identifiers of CHCP messages that\n"
    "were heard meanwhile are told. 16 requests wait for their answers at a time, so a whole bus\n"
    "takes half a second. A signal ends the scan, and what was found is told.\n"
    "\n"
    "With --json and the other forms every finding is a message: the answers, which have a\n"
    "latency, and the first message of every other source and MAC identifier.\n"
    "\n"
    "Exit status: 0 somebody answered; 1 a bus that cannot be opened or does not take a frame;\n"
    "2 wrong usage; 3 nobody answered; 128 + n ended by signal n.";

constexpr const char* EXAMPLES = R"(Examples:
  tarn scan -b can0 --names examples/installations/pump-station.json
  tarn scan -b can0 --target 5,7-9 --register 0x10 --module 1-3
  tarn scan -b can0 --timeout 20ms --listen 2s --json)";

constexpr unsigned int LAST_ADDRESS = 126;
constexpr unsigned int MAX_BYTE = 255;

class ScanVerb : public iVerb
{
public:
    explicit ScanVerb(CLI::App& command) : mOptions(*command.add_subcommand("scan", DESCRIPTION))
    {
        mBus.AddOption(mOptions);
        mOptions.add_option("--target", mTargets, "Addresses to ask, default 0-126")
            ->type_name("LIST");
        mOptions.add_option("--module", mModules, "Modules to ask beside the devices, 0 to 255")
            ->type_name("LIST");
        mOptions.add_option("--register", mRegister, "Register to ask for, 0 to 255, default 0")
            ->type_name("N");
        mOptions.add_option("--source", mSource, "Own address, 0 to 127, default 1")
            ->type_name("N");
        AddDuration(mOptions, "--timeout", mTimeout,
                    "Waits so long for an answer: 20ms, 1s. Default 50ms");
        AddDuration(mOptions, "--listen", mListen, "Goes on listening afterwards, default 0");
        mNames.AddOption(mOptions);
        mPrinterOptions.AddOptions(mOptions);
        mOptions.add_flag("-q,--quiet", mQuiet, "No summary at the end");
        mOptions.footer(EXAMPLES);
    }

    const CLI::App& GetOptions() const override { return mOptions; }

    int Run() override
    {
        Scanner scanner(MakeRequests(), mTimeout);
        CatchStopSignals();
        LiveBus bus("tarn scan", mBus);
        Scan(scanner, bus);
        OutputBuffer out(STDOUT_FILENO);
        if (mPrinterOptions.IsFormGiven())
            PrintMessages(scanner, out);
        else
            PrintTables(scanner, out);
        out.WriteOut();
        const std::size_t answered = CountAnswers(scanner);
        if (!mQuiet)
            std::fprintf(stderr, "tarn scan: %zu asked, %zu answered; %s: %s\n",
                         scanner.CountAsked(), answered, bus.GetName().c_str(),
                         DescribeLedger(bus.GetCounters()).c_str());
        if (CaughtStopSignal() != 0)
            return EXIT_SIGNAL + CaughtStopSignal();
        return answered > 0 ? EXIT_DONE : EXIT_TIMEOUT;
    }

private:
    using Clock = Scanner::Clock;

    std::vector<TarnMessage> MakeRequests() const
    {
        MessageFields fields;
        SetSource(mSource, mNames.Get(), fields);
        SetRegister(mRegister, nullptr, fields);
        std::vector<TarnMessage> requests;
        ForEachNumber(ParseAddressList("--target", mTargets, LAST_ADDRESS, mNames.Get()),
                      [&](unsigned int target) { AddRequests(target, fields, requests); });
        return requests;
    }

    void AddRequests(unsigned int target, MessageFields fields,
                     std::vector<TarnMessage>& requests) const
    {
        fields.target = target;
        requests.push_back(BuildMessage(fields));
        if (mModules.empty())
            return;
        fields.addressingMode = TarnMessage::ADDRESSING_MODE_EXTENDED;
        ForEachNumber(ParseNumberList("--module", mModules, MAX_BYTE), [&](unsigned int module) {
            fields.module = module;
            requests.push_back(BuildMessage(fields));
        });
    }

    void Scan(Scanner& scanner, LiveBus& bus)
    {
        const auto take = [&scanner](CandumpLine& line) {
            scanner.Take(line.frame);
            return true;
        };
        while (!scanner.IsDone() && CaughtStopSignal() == 0) {
            scanner.Send(bus.GetBus());
            bus.Listen(scanner.NextDeadline(), take, [&] {
                if (CaughtStopSignal() == 0)
                    scanner.Send(bus.GetBus());
                ShowProgress(scanner);
            });
        }
        mProgress.Clear();
        if (mListen > Duration::zero())
            bus.Listen(Clock::now() + mListen, take, [] {});
    }

    void ShowProgress(const Scanner& scanner)
    {
        const std::chrono::duration<double> elapsed = Clock::now() - mBegin;
        mProgress.Update(scanner.CountAsked(), scanner.GetResults().size(), elapsed.count());
    }

    static std::size_t CountAnswers(const Scanner& scanner)
    {
        const auto& results = scanner.GetResults();
        return static_cast<std::size_t>(
            std::count_if(results.begin(), results.end(),
                          [](const RequestResult& result) { return result.answered; }));
    }

    void PrintTables(const Scanner& scanner, OutputBuffer& out) const
    {
        const auto table = MakeTableReport(mNames.Get());
        if (CountAnswers(scanner) > 0)
            table->Begin(out);
        for (const RequestResult& result : scanner.GetResults()) {
            if (result.answered)
                table->Take(result, out);
        }
        for (const auto& [address, heard] : scanner.GetSources())
            PrintSource(address, heard, out);
        for (const auto& [mac, heard] : scanner.GetChcp())
            PrintChcp(mac, heard, out);
    }

    /// "heard 7 valve: 12 messages"
    void PrintSource(unsigned int address, const Scanner::Heard& heard, OutputBuffer& out) const
    {
        out.Put("heard ");
        out.PutDecimal(address);
        if (mNames.Get() != nullptr) {
            if (const InstalledDevice* const device = mNames.Get()->Find(address))
                out.Put(' ' + device->name);
        }
        out.Put(": ");
        PutCount(heard.count, out);
    }

    void PrintChcp(unsigned int mac, const Scanner::Heard& heard, OutputBuffer& out) const
    {
        MessageFields fields;
        ReadFields(heard.message, heard.frame, fields);
        out.Put("CHCP ");
        out.PutHex(mac, 7);
        if (mNames.Get() != nullptr) {
            const std::string_view name = NamesOf(*mNames.Get(), fields).mac;
            out.Put(name.empty() ? "" : " " + std::string(name));
        }
        out.Put(": device ");
        out.PutHex(fields.deviceCode, 8);
        out.Put(", id ");
        out.PutDecimal(fields.chcpId);
        out.Put(", ");
        PutCount(heard.count, out);
    }

    static void PutCount(std::uint64_t count, OutputBuffer& out)
    {
        out.PutDecimal(count);
        out.Put(count == 1 ? " message\n" : " messages\n");
    }

    void PrintMessages(const Scanner& scanner, OutputBuffer& out) const
    {
        const auto printer = mPrinterOptions.MakePrinter(mNames.Get());
        const auto report =
            MakeMessageReport(mPrinterOptions.MakePrinter(mNames.Get()), mBus.GetShortName());
        printer->Begin(out);
        for (const RequestResult& result : scanner.GetResults())
            report->Take(result, out);
        for (const auto* const findings : {&scanner.GetSources(), &scanner.GetChcp()}) {
            for (const auto& finding : *findings)
                PrintMessage(finding.second, *printer, out);
        }
    }

    void PrintMessage(const Scanner::Heard& heard, iMessagePrinter& printer,
                      OutputBuffer& out) const
    {
        CandumpLine line;
        line.kind = CandumpLine::KIND_FRAME;
        line.timeForm = CandumpLine::TIME_ABSOLUTE;
        line.timeDecimals = 6;
        line.frame = heard.frame;
        mBus.GetShortName().copy(line.interfaceName, CandumpLine::INTERFACE_SIZE - 1);
        MessageFields fields;
        ReadFields(heard.message, heard.frame, fields);
        printer.Print({line, heard.message, fields}, out);
    }

    CLI::App& mOptions;
    BusOption mBus;
    std::string mTargets = "0-126";
    std::string mModules;
    std::string mRegister = "0";
    std::string mSource = "1";
    Duration mTimeout = std::chrono::milliseconds(50);
    Duration mListen = Duration::zero();
    NamesOption mNames;
    PrinterOptions mPrinterOptions;
    ProgressBar mProgress{::isatty(STDERR_FILENO) != 0 ? stderr : nullptr, {1, "requests"}};
    Clock::time_point mBegin = Clock::now();
    bool mQuiet = false;
};

} // namespace

std::unique_ptr<iVerb> MakeScanVerb(CLI::App& command)
{
    return std::make_unique<ScanVerb>(command);
}

} // namespace tarn::tool
