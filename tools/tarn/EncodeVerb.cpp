#include "EncodeVerb.h"

#include "Failure.h"
#include "FieldOptions.h"
#include "JsonFrameReader.h"
#include "NamesOption.h"
#include "OutputBuffer.h"
#include "StopSignal.h"

#include <CLI/CLI.hpp>

#include <string>
#include <unistd.h>
#include <vector>

namespace tarn::tool
{

namespace
{

constexpr const char* DESCRIPTION =
    "Makes the frame of a Tarn message and prints it as cansend takes it.\n"
    "\n"
    "The message is told by options, or with --json by objects as 'tarn decode --json' prints\n"
    "them, one a line. In an object with \"frame\" the members that differ from it are edits;\n"
    "without \"frame\" all members count. Numbers are decimal, or hexadecimal with 0x.\n"
    "\n"
    "Exit status: 0 done, also when whoever reads the output stops early; 1 a file that cannot\n"
    "be read or an object that is no message; 2 wrong usage; 128 + n ended by signal n.";

constexpr const char* EXAMPLES = R"(Examples:
  tarn encode --target 9 --register 0x11
  tarn encode --target 9 --register 0x11 --write --u16 100 200 300
  tarn encode --source 9 --target 1 --response --status OPERATING --s16 1.5 -2
  tarn encode --target 9 --module 3 --write --s16 1.5 --format 2
  tarn encode --target 9 --write --float 1.5 --priority SYNC
  tarn encode --chcp --mac 0xABCDEF --device-code 0x12345678 --id 5 --command 2
  tarn encode --names examples/installations/pump-station.json --target pump.drive --register 16
  echo '{"target":9,"dataType":"U16","values":[100]}' | tarn encode --json
  tarn decode -q --json examples/logs/startup.log | tarn encode --json)";

class EncodeVerb : public iVerb
{
public:
    explicit EncodeVerb(CLI::App& command)
        : mOptions(*command.add_subcommand("encode", DESCRIPTION))
    {
        mOptions.add_flag("--json", mJson, "Reads JSON objects, one a line");
        mOptions
            .add_option("FILE", mFiles, "With --json: objects to read; - or none is standard input")
            ->type_name("");
        mNames.AddOption(mOptions);
        mFieldOptions.AddOptions(mOptions, mNames);
        mOptions.footer(EXAMPLES);
    }

    const CLI::App& GetOptions() const override { return mOptions; }

    int Run() override
    {
        CatchStopSignals();
        OutputBuffer out(STDOUT_FILENO);
        if (!mJson && !mFiles.empty())
            throw UsageFailure(mFiles.front() +
                               ": is neither an option nor a value of one; files need --json");
        if (!mJson)
            EncodeOptions(out);
        else
            EncodeFiles(out);
        out.WriteOut();
        if (CaughtStopSignal() != 0)
            return EXIT_SIGNAL + CaughtStopSignal();
        return mReader.CountRefusals() == 0 ? EXIT_DONE : EXIT_TROUBLE;
    }

private:
    void EncodeOptions(OutputBuffer& out) const
    {
        out.Put(BuildMessage(mFieldOptions.GetFields()).RawMessage().ToString());
        out.Put('\n');
    }

    void EncodeFiles(OutputBuffer& out)
    {
        if (mFieldOptions.AreGiven())
            throw UsageFailure("--json: does not go with options for fields; give one of both");
        mReader.ReadAll(
            mFiles,
            [&out](const CanMessage& frame) {
                out.Put(frame.ToString());
                out.Put('\n');
                return true;
            },
            [&out] { out.WriteOut(); });
    }

    CLI::App& mOptions;
    std::vector<std::string> mFiles;
    NamesOption mNames;
    FieldOptions mFieldOptions;
    JsonFrameReader mReader{"tarn encode"};
    bool mJson = false;
};

} // namespace

std::unique_ptr<iVerb> MakeEncodeVerb(CLI::App& command)
{
    return std::make_unique<EncodeVerb>(command);
}

} // namespace tarn::tool
