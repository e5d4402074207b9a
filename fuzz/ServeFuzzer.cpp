#include "Require.h"
#include "SocketCandElements.h"
#include "SocketCandServer.h"

#include <plexa_can/CanException.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <mutex>
#include <poll.h>
#include <string>
#include <sys/socket.h>
#include <sys/un.h>
#include <thread>
#include <unistd.h>
#include <vector>

// A client that says anything to a server of "tarn serve", and a second one that listens to the
// bus. Answers and frames are held against a model that reads the same text in one piece.
//
// One server lasts for all inputs. Its clients come over a local socket, which has no ports that
// run out.

namespace
{

using tarn::CanMessage;
using tarn::SocketCandElement;
using namespace tarn::tool;

constexpr const char* BUS = "can0";
constexpr int PATIENCE_MS = 20000;

/// Takes the frames of its clients; refuses those with an identifier that ends in F.
class Bus : public tarn::iCanBus
{
public:
    ~Bus() noexcept override {}

    static bool Refuses(const CanMessage& frame) { return frame.GetHeader() % 16 == 15; }

    void Start(tarn::iCanMessageHandler*) override {}
    void Stop(tarn::iCanMessageHandler*) override {}
    void Send(CanMessage& frame) override
    {
        if (Refuses(frame))
            throw tarn::CanException("no", 1);
        const std::lock_guard<std::mutex> lock(mMutex);
        mFrames.push_back(frame);
    }
    tarn::CanBusCounters GetCounters() const override { return {}; }

    std::vector<CanMessage> Take()
    {
        const std::lock_guard<std::mutex> lock(mMutex);
        std::vector<CanMessage> frames;
        frames.swap(mFrames);
        return frames;
    }

private:
    std::mutex mMutex;
    std::vector<CanMessage> mFrames;
};

/// A name that no file has.
SocketAddress LocalAddress()
{
    sockaddr_un name = {};
    name.sun_family = AF_UNIX;
    const std::string text = "tarn-serve-fuzzer-" + std::to_string(::getpid());
    std::memcpy(&name.sun_path[1], text.data(), text.size());
    SocketAddress address;
    std::memcpy(&address.storage, &name, sizeof name);
    address.size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + text.size());
    return address;
}

class Connection
{
public:
    Connection() : mDescriptor(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0))
    {
        const SocketAddress address = LocalAddress();
        Require(::connect(mDescriptor, address.Get(), address.size) == 0, "a connection");
    }
    ~Connection() { ::close(mDescriptor); }
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    /// False when the server has ended the connection.
    bool Say(const std::string& text) const
    {
        const ssize_t size = ::send(mDescriptor, text.data(), text.size(), MSG_NOSIGNAL);
        return size == static_cast<ssize_t>(text.size());
    }

    void EndOutput() const { ::shutdown(mDescriptor, SHUT_WR); }

    /// Waits for some; empty at the end.
    std::string Hear() const
    {
        pollfd input = {mDescriptor, POLLIN, 0};
        int ready = 0;
        do // the clock of the fuzzer interrupts
            ready = ::poll(&input, 1, PATIENCE_MS);
        while (ready < 0 && errno == EINTR);
        Require(ready == 1, "an answer in time");
        std::array<char, 4096> text = {};
        const ssize_t size = ::recv(mDescriptor, text.data(), text.size(), 0);
        return {text.data(), static_cast<std::size_t>(size < 0 ? 0 : size)};
    }

    /// Waits for so many characters, or the end.
    std::string Hear(std::size_t count) const
    {
        std::string text;
        for (std::string more = "?"; text.size() < count && !more.empty(); text += more)
            more = Hear();
        return text;
    }

private:
    const int mDescriptor;
};

/// What the server does with the text of one client.
class Model
{
public:
    explicit Model(const std::string& text)
    {
        for (const SocketCandElement& element : Elements(text)) {
            if (!dismissed)
                Obey(element);
        }
    }

    std::vector<std::string> answers = {"< hi >"}; ///< in their order
    unsigned int refused = 0;       ///< frames that the bus does not take, told among the answers
    std::vector<CanMessage> frames; ///< that it takes
    bool dismissed = false;

private:
    void Obey(const SocketCandElement& element)
    {
        switch (element.kind) {
        case SocketCandElement::KIND_ECHO:
            return Answer("< echo >");
        case SocketCandElement::KIND_OPEN:
            return Open(element.text.data());
        case SocketCandElement::KIND_RAWMODE:
            return Answer(mIsOpen ? "< ok >" : "< error open a bus first >");
        case SocketCandElement::KIND_SEND:
            return mIsOpen ? Send(element.frame) : Answer("< error open a bus first >");
        case SocketCandElement::KIND_MALFORMED:
            return Answer(std::string("< error malformed: ") + element.reason + " >");
        default:
            return Answer("< error unknown command >");
        }
    }

    void Open(const std::string& name)
    {
        mIsOpen = true;
        dismissed = name != BUS;
        Answer(dismissed ? "< error no bus " + name + " here; there is " + BUS + " >" : "< ok >");
    }

    void Send(const CanMessage& frame)
    {
        if (Bus::Refuses(frame))
            ++refused;
        else
            frames.push_back(frame);
    }

    void Answer(const std::string& text) { answers.push_back(text); }

    bool mIsOpen = false;
};

struct World {
    std::tr1::shared_ptr<Bus> bus{new Bus};
    SocketCandServer server{bus, Options()};
    std::thread thread{[this] { server.Serve(SocketCandServer::Clock::time_point::max()); }};

    static SocketCandServer::Options Options()
    {
        SocketCandServer::Options options;
        options.listen = LocalAddress();
        options.busName = BUS;
        return options;
    }
};

constexpr const char* REFUSAL = "< error not sent: no >";

std::size_t CountRefusals(std::string& text)
{
    std::size_t count = 0;
    for (std::size_t at = text.find(REFUSAL); at != std::string::npos;
         at = text.find(REFUSAL, at)) {
        text.erase(at, std::strlen(REFUSAL));
        ++count;
    }
    return count;
}

void RequireAnswers(const Connection& client, const Model& model)
{
    std::string all;
    for (const std::string& answer : model.answers)
        all += answer;
    const std::size_t size = all.size() + model.refused * std::strlen(REFUSAL);
    std::string heard = client.Hear(model.dismissed ? ~std::size_t{0} : size);
    client.EndOutput();
    heard += client.Hear(~std::size_t{0});
    const std::size_t refusals = CountRefusals(heard);
    if (!model.dismissed) {
        Require(refusals == model.refused, "frames refused");
        return Require(heard == all, "answers");
    }
    // Who is dismissed may miss what waited for it.
    const std::string& last = model.answers.back();
    Require(refusals <= model.refused, "frames refused to one who goes");
    Require(heard.size() >= last.size(), "a dismissal");
    const std::size_t before = heard.size() - last.size();
    Require(heard.compare(before, last.size(), last) == 0, "the reason of a dismissal");
    Require(all.compare(0, before, heard, 0, before) == 0, "answers ahead of a dismissal");
}

void RequireSame(const CanMessage& frame, const CanMessage& other)
{
    Require(frame.ToString() == other.ToString(), "frame");
    Require(frame.GetFlags() == other.GetFlags(), "flags of a frame");
}

/// The listener hears the frames of the other client, and then what it says itself.
void RequireFrames(const Connection& listener, Bus& bus, const Model& model)
{
    std::string heard;
    std::vector<SocketCandElement> elements;
    while (elements.size() < model.frames.size()) {
        const std::string more = listener.Hear();
        Require(!more.empty(), "a listener that is kept");
        heard += more;
        elements = Elements(heard);
    }
    Require(listener.Say("< echo >"), "a listener that is heard");
    for (heard = heard.substr(heard.rfind('>') + 1); heard.size() < 8;)
        heard += listener.Hear();
    Require(heard == "< echo >", "no further frame");
    const std::vector<CanMessage> sent = bus.Take();
    Require(sent.size() == model.frames.size(), "frames on the bus");
    for (std::size_t i = 0; i < sent.size(); ++i) {
        Require(elements[i].kind == SocketCandElement::KIND_FRAME, "a frame to the listener");
        RequireSame(sent[i], model.frames[i]);
        RequireSame(elements[i].frame, model.frames[i]);
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static World& world = *new World;
    static const Connection& listener = *new Connection;
    static const bool isRaw =
        listener.Say("< open can0 >< rawmode >") && listener.Hear(18) == "< hi >< ok >< ok >";
    Require(isRaw, "a listener");
    // Whatever is begun ends here.
    const std::string text = std::string(data, data + size) + " >< echo >";
    const Model model(text);
    const Connection client;
    const bool isHeard = client.Say(text);
    Require(isHeard || model.dismissed, "a client that is heard");
    RequireAnswers(client, model);
    RequireFrames(listener, *world.bus, model);
    return 0;
}
