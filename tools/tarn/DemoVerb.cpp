#include "DemoVerb.h"

#include "ColourOption.h"
#include "DemoBus.h"
#include "Failure.h"
#include "OutputBuffer.h"
#include "TextPrinter.h"
#include "Words.h"

#include <CLI/CLI.hpp>

#include <csignal>
#include <string>
#include <string_view>
#include <unistd.h>

namespace tarn::tool
{

namespace
{

constexpr const char* DESCRIPTION =
    "Shows how messages are routed and requests answered, on a bus inside this process.\n"
    "\n"
    "A controller and three simulated devices talk to each other: one answers at once, one is\n"
    "late, one stays silent. Every step shows the messages as 'tarn decode' does, which of the\n"
    "controller's handlers were called and why, and what became of the request. No CAN hardware\n"
    "is needed; it takes about half a second.\n"
    "\n"
    "Exit status: 0 done, also when whoever reads the output stops early; 1 a machine so busy\n"
    "that answers did not come in time; 2 wrong usage.";

constexpr const char* EXAMPLES = R"(Examples:
  tarn demo
  NO_COLOR=1 tarn demo
  tarn demo | grep -A 4 received)";

constexpr std::string_view INTRODUCTION =
    "Four nodes on a CAN bus that exists in this process only:\n"
    "\n"
    "    1  controller  this program: four handlers, and requests that wait for their answer\n"
    "   10  sensor      register 1 is a temperature, read only\n"
    "   20  motor       register 7 of its module 3 is a speed; it answers 200 ms late\n"
    "   30  display     hears every request and answers none\n"
    "\n"
    "The controller has subscribed one handler in each of the four ways:\n"
    "\n"
    "   source  SubscribeSource(10, ...)  DATA messages that come from the sensor\n"
    "   target  SubscribeTarget(1, ...)   DATA messages that go to the controller\n"
    "   chcp    SubscribeChcp(...)        CHCP messages\n"
    "   all     SubscribeAll(...)         every message\n"
    "\n"
    "Messages are shown as by 'tarn decode': source -> target, register, access, status (in a\n"
    "request that of every new message, POWERUP), data type, values.\n";

constexpr std::string_view BOLD = "\x1b[1m";
constexpr std::string_view DIM = "\x1b[2m";
constexpr std::string_view GREEN = "\x1b[32m";
constexpr std::string_view YELLOW = "\x1b[33m";
constexpr std::string_view PLAIN = "\x1b[0m";

/// Milliseconds. An answer that comes is not waited for any longer, so this may be ample.
constexpr unsigned int AMPLE_TIMEOUT = 10000;
constexpr unsigned int SHORT_TIMEOUT = 300;

TarnMessage RequestTo(unsigned char device, unsigned char reg)
{
    TarnMessage request;
    request.SetSourceAddr(DemoBus::CONTROLLER);
    request.SetTargetAddr(device);
    request.SetRegister(reg);
    return request;
}

/// Why a handler was called with a message, or was not.
std::string ReasonFor(DemoBus::tHandler handler, const TarnMessage& message)
{
    const bool chcp = message.GetType() == TarnMessage::TYPE_CHCP;
    if (handler == DemoBus::ALL_HANDLER)
        return "it gets every message";
    if (chcp || handler == DemoBus::CHCP_HANDLER)
        return chcp ? "this is a CHCP message" : "this is a DATA message";
    if (handler == DemoBus::SOURCE_HANDLER)
        return "this comes from " + std::to_string(message.GetSourceAddr());
    return "this goes to " + std::to_string(message.GetTargetAddr());
}

/// The steps of the demonstration, told while they happen.
class Story
{
public:
    explicit Story(bool colour) : mOut(STDOUT_FILENO), mPrinter(colour), mColour(colour) {}

    void Tell()
    {
        mOut.Put(INTRODUCTION);
        AskTheSensor();
        WriteWhatIsReadOnly();
        AskTheLateMotor();
        AskTheSilentDisplay();
        ConfigureTheMotor();
        ReportToTheMotor();
        ShowTheLedger();
    }

private:
    void AskTheSensor()
    {
        Begin("The controller asks the sensor for its temperature.");
        Request(RequestTo(DemoBus::SENSOR, DemoBus::TEMPERATURE));
        Explain(
            "TarnSyncRequest::Send() sent the request and waited. It took this message for the\n"
            "answer because addresses are swapped, and register, access, addressing and module\n"
            "are those of the request. Frames that the controller sends itself do not come back\n"
            "to its handlers.");
    }

    void WriteWhatIsReadOnly()
    {
        Begin("The controller writes to the temperature, which is read only.");
        TarnMessage request = RequestTo(DemoBus::SENSOR, DemoBus::TEMPERATURE);
        request.SetAccessType(TarnMessage::ACCESS_WRITE);
        std::vector<float> values = {30.0F};
        request.SetData(values);
        Request(request);
        Explain("There was an answer, but its status is no yes: always look at the status before\n"
                "the value.");
    }

    void AskTheLateMotor()
    {
        Begin("The controller asks module 3 of the motor, which takes its time.");
        TarnMessage request = RequestTo(DemoBus::MOTOR, DemoBus::SPEED);
        request.SetModule(DemoBus::MOTOR_MODULE);
        Request(request);
        Explain("The answer came 200 ms late, within the time-out. Only the thread that asked has\n"
                "waited; other frames would have been routed meanwhile.");
    }

    void AskTheSilentDisplay()
    {
        Begin("The controller asks the display, which never answers.");
        TarnMessage request = RequestTo(DemoBus::DISPLAY, 1);
        TarnMessage response;
        ShowSent(request);
        if (mBus.GetRequest().Send(request, response, SHORT_TIMEOUT))
            throw Trouble("the display: answered though it is silent; report this");
        ShowReceived();
        Label("time-out", YELLOW);
        mOut.Put("Send() gave up after 300 ms and returned false\n");
        Explain(
            "The request was on the bus, and the display heard it. A time-out says only that no\n"
            "matching answer came in time: the device may be silent, slow or not there at all.\n"
            "Nothing was received, so no handler was called.");
    }

    void ConfigureTheMotor()
    {
        Begin("The motor tells who it is, in a CHCP message.");
        TarnMessage message;
        message.SetType(TarnMessage::TYPE_CHCP);
        message.SetChcpMacID(0xABCDEF);
        message.SetChcpDeviceCode(static_cast<TarnMessage::tTarnDeviceCode>(0x12345678));
        message.SetChcpCommand(TarnMessage::CHCP_COMMAND_1);
        Send(DemoBus::MOTOR, message);
        Explain("A CHCP message names its device by a MAC identifier and has no addresses, so\n"
                "handlers of addresses never get one.");
    }

    void ReportToTheMotor()
    {
        Begin("The sensor tells the motor its temperature, unasked.");
        TarnMessage message;
        message.SetSourceAddr(DemoBus::SENSOR);
        message.SetTargetAddr(DemoBus::MOTOR);
        message.SetRegister(DemoBus::TEMPERATURE);
        message.SetDirection(TarnMessage::DIRECTION_RESPONSE);
        message.SetRStatus(TarnMessage::STATUS_OPERATING);
        std::vector<float> values = {21.75F};
        message.SetData(values);
        Send(DemoBus::SENSOR, message);
        Explain("Every node hears every frame. The controller may listen to what others tell each\n"
                "other: by source, or to all.");
    }

    void ShowTheLedger()
    {
        const VirtualCanBus::Counters counters = mBus.GetCounters();
        Heading("The bus accounts for every frame:");
        Count(counters.sent, "frames sent");
        Count(counters.onBus, "of them went over the bus");
        Count(counters.copies, "copies: each frame for each of the other 3 nodes");
        Count(counters.delivered, "copies delivered to handlers");
        Count(counters.lost, "copies lost by a fault (none was asked for)");
        Count(counters.unheard, "copies for a node where nobody listened");
        mOut.WriteOut();
    }

    /// Sends a request that will be answered.
    void Request(TarnMessage request)
    {
        TarnMessage response;
        ShowSent(request);
        if (!mBus.GetRequest().Send(request, response, AMPLE_TIMEOUT))
            throw Trouble("a device: did not answer in 10 s; this machine is too busy, try later");
        ShowReceived();
        const auto status = static_cast<unsigned int>(response.GetRStatus());
        Label("answer", GREEN);
        mOut.Put("Send() returned true; status ");
        mOut.Put(STATUS_WORDS[status]);
        PutValuesOf(response);
        mOut.Put('\n');
    }

    void Send(unsigned char device, TarnMessage& message)
    {
        ShowSent(message);
        mBus.SendAs(device, message);
        ShowReceived();
    }

    void Begin(std::string_view what)
    {
        Heading(std::to_string(++mStep) + ". " + std::string(what));
    }

    void Heading(std::string_view text)
    {
        mOut.WriteOut(); // what was told so far appears while the next step runs
        mOut.Put('\n');
        PutColour(BOLD);
        mOut.Put(text);
        PutColour(PLAIN);
        mOut.Put("\n\n");
    }

    void Explain(std::string_view text)
    {
        mOut.Put('\n');
        while (!text.empty()) {
            const std::string_view line = text.substr(0, text.find('\n'));
            mOut.Put("   ");
            mOut.Put(line);
            mOut.Put('\n');
            text.remove_prefix(std::min(text.size(), line.size() + 1));
        }
    }

    void ShowSent(TarnMessage& message)
    {
        Label("sent", PLAIN);
        PutMessage(message);
    }

    void ShowReceived()
    {
        for (DemoBus::Received& received : mBus.TakeReceived()) {
            Label("received", PLAIN);
            PutMessage(received.message);
            for (int handler = 0; handler < DemoBus::HANDLERS; ++handler)
                PutRouting(static_cast<DemoBus::tHandler>(handler), received);
        }
    }

    void PutRouting(DemoBus::tHandler handler, const DemoBus::Received& received)
    {
        static constexpr std::array<std::string_view, DemoBus::HANDLERS> NAMES = {
            "source", "target", "chcp", "all"};
        const bool called = received.handlers.test(handler);
        mOut.Put("             ");
        PutColour(called ? GREEN : DIM);
        mOut.PutLeft(NAMES[handler], 8);
        mOut.Put(called ? "called: " : "not called: ");
        mOut.Put(ReasonFor(handler, received.message));
        PutColour(PLAIN);
        mOut.Put('\n');
    }

    void PutMessage(TarnMessage& message)
    {
        CandumpLine line;
        line.frame = message.RawMessageRef();
        MessageFields fields;
        ReadFields(message, line.frame, fields);
        mPrinter.Print({line, message, fields}, mOut);
    }

    void PutValuesOf(TarnMessage& message)
    {
        MessageFields fields;
        ReadFields(message, message.RawMessageRef(), fields);
        if (fields.values.kind == PayloadValues::NONE)
            return;
        mOut.Put(", value ");
        PutValues(fields.values, mOut);
    }

    void Label(std::string_view label, std::string_view colour)
    {
        mOut.Put("   ");
        PutColour(colour);
        mOut.PutLeft(label, 10);
        PutColour(PLAIN);
    }

    void Count(std::uint64_t count, std::string_view what)
    {
        mOut.PutDecimal(count, 5, ' ');
        mOut.Put("  ");
        mOut.Put(what);
        mOut.Put('\n');
    }

    void PutColour(std::string_view code)
    {
        if (mColour)
            mOut.Put(code);
    }

    DemoBus mBus;
    OutputBuffer mOut;
    TextPrinter mPrinter;
    bool mColour;
    int mStep = 0;
};

class DemoVerb : public iVerb
{
public:
    explicit DemoVerb(CLI::App& command) : mOptions(*command.add_subcommand("demo", DESCRIPTION))
    {
        mColour.AddOption(mOptions, "");
        mOptions.footer(EXAMPLES);
    }

    const CLI::App& GetOptions() const override { return mOptions; }

    int Run() override
    {
        std::signal(SIGPIPE, SIG_IGN); // a reader that has gone is told by write()
        Story(mColour.IsOn()).Tell();
        return EXIT_DONE;
    }

private:
    CLI::App& mOptions;
    ColourOption mColour;
};

} // namespace

std::unique_ptr<iVerb> MakeDemoVerb(CLI::App& command)
{
    return std::make_unique<DemoVerb>(command);
}

} // namespace tarn::tool
