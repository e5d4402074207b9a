#include "Command.h"

#include "DecodeVerb.h"
#include "DemoVerb.h"
#include "DumpVerb.h"
#include "EncodeVerb.h"
#include "Failure.h"
#include "MonitorVerb.h"
#include "RecordVerb.h"
#include "ReplayVerb.h"
#include "RequestVerb.h"
#include "ScanVerb.h"
#include "SendVerb.h"
#include "ServeVerb.h"
#include "SimulateVerb.h"

#include <plexa_can/CanException.h>
#include <tarn/Version.h>

#include <CLI/CLI.hpp>

#include <cstdio>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

namespace tarn::tool
{

namespace
{

/// Lists verbs with the first line of their description: the whole stands in their own help.
class VerbList : public CLI::Formatter
{
public:
    std::string make_subcommand(const CLI::App* verb) const override
    {
        const std::string description = verb->get_description();
        std::ostringstream line;
        CLI::detail::format_help(line, verb->get_name(),
                                 description.substr(0, description.find('\n')), 12);
        return line.str();
    }
};

/// "tarn decode", or "tarn" while no verb is known.
std::string NameOf(const CLI::App& command)
{
    const auto verbs = command.get_subcommands();
    return verbs.empty() ? "tarn" : "tarn " + verbs.front()->get_name();
}

int Complain(const CLI::App& command, const std::string& text, int status)
{
    std::fprintf(stderr, "%s: %s\n", NameOf(command).c_str(), text.c_str());
    return status;
}

int ReportParseEnd(const CLI::App& command, const CLI::ParseError& end)
{
    if (end.get_exit_code() == static_cast<int>(CLI::ExitCodes::Success))
        return command.exit(end);
    return Complain(command,
                    "wrong usage: " + std::string(end.what()) + "; see '" + NameOf(command) +
                        " --help'",
                    EXIT_USAGE);
}

int RunChosenVerb(const std::vector<std::unique_ptr<iVerb>>& verbs)
{
    for (const auto& verb : verbs) {
        if (verb->GetOptions().parsed())
            return verb->Run();
    }
    return EXIT_USAGE;
}

} // namespace

int RunTarn(int argc, const char* const* argv)
{
    CLI::App command("Reads, writes and explains Tarn messages on CAN.", "tarn");
    command.set_version_flag("--version", "tarn " TARN_VERSION);
    command.require_subcommand(1);
    command.formatter(std::make_shared<VerbList>());
    command.footer("'tarn VERB --help' explains a verb and ends with examples.");
    std::vector<std::unique_ptr<iVerb>> verbs;
    verbs.push_back(MakeDecodeVerb(command));
    verbs.push_back(MakeEncodeVerb(command));
    verbs.push_back(MakeDumpVerb(command));
    verbs.push_back(MakeMonitorVerb(command));
    verbs.push_back(MakeSendVerb(command));
    verbs.push_back(MakeRequestVerb(command));
    verbs.push_back(MakeRecordVerb(command));
    verbs.push_back(MakeReplayVerb(command));
    verbs.push_back(MakeScanVerb(command));
    verbs.push_back(MakeSimulateVerb(command));
    verbs.push_back(MakeServeVerb(command));
    verbs.push_back(MakeDemoVerb(command));
    try {
        command.parse(argc, argv);
        return RunChosenVerb(verbs);
    } catch (const CLI::ParseError& end) {
        return ReportParseEnd(command, end);
    } catch (const Failure& failure) {
        return Complain(command, failure.what(), failure.GetStatus());
    } catch (const CanException& failure) {
        return Complain(command, failure.message(), EXIT_TROUBLE);
    } catch (const ReaderGone&) {
        return EXIT_DONE;
    } catch (const std::exception& exception) {
        return Complain(command, std::string("stopped: ") + exception.what() + "; report this",
                        EXIT_TROUBLE);
    }
}

} // namespace tarn::tool
