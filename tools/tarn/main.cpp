#include "DecodeVerb.h"
#include "DemoVerb.h"
#include "EncodeVerb.h"
#include "Failure.h"

#include <plexa_can/CanException.h>

#include <CLI/CLI.hpp>

#include <cstdio>
#include <string>
#include <vector>

namespace
{

using namespace tarn::tool;

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

int main(int argc, char** argv)
{
    CLI::App command("Reads, writes and explains Tarn messages on CAN.", "tarn");
    command.set_version_flag("--version", "tarn " TARN_VERSION);
    command.require_subcommand(1);
    command.footer("'tarn VERB --help' explains a verb and ends with examples.");
    std::vector<std::unique_ptr<iVerb>> verbs;
    verbs.push_back(MakeDecodeVerb(command));
    verbs.push_back(MakeEncodeVerb(command));
    verbs.push_back(MakeDemoVerb(command));
    try {
        command.parse(argc, argv);
        return RunChosenVerb(verbs);
    } catch (const CLI::ParseError& end) {
        return ReportParseEnd(command, end);
    } catch (const Failure& failure) {
        return Complain(command, failure.what(), failure.GetStatus());
    } catch (const tarn::CanException& failure) {
        return Complain(command, failure.message(), EXIT_TROUBLE);
    } catch (const ReaderGone&) {
        return EXIT_DONE;
    } catch (const std::exception& exception) {
        return Complain(command, std::string("stopped: ") + exception.what() + "; report this",
                        EXIT_TROUBLE);
    }
}
