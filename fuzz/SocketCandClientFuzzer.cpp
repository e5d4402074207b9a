#include "Require.h"
#include "SocketCandElements.h"
#include "SocketCandLink.h"

#include <plexa_can/CanException.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fuzzer/FuzzedDataProvider.h>
#include <string>
#include <vector>

// A server of socketcand that says anything, cut anywhere, to a client that opens a bus and then
// receives and sends. What the client makes of it is held against the elements of the whole text.
//
// Input: from its end, what every call of the system does; from its beginning, what the server
// says.

namespace
{

using tarn::CanMessage;
using tarn::SocketCandElement;
using tarn::SocketCandLink;

constexpr const char* OPENING = "< open can0 >< rawmode >";

class Network : public tarn::iTcpSystem
{
public:
    explicit Network(FuzzedDataProvider& input) : mInput(input)
    {
        const std::string said = input.ConsumeRandomLengthString(2000);
        mSaid = input.ConsumeBool() ? "< hi >< ok >< ok >" + said : said;
    }

    std::string received; ///< what of it the client has got
    std::string sent;     ///< what the client sent

    std::string Resolve(const std::string&, const std::string&,
                        std::vector<tarn::TcpAddress>&) override
    {
        return "";
    }
    int Socket(int) override { return 3; }
    int Close(int) override { return 0; }
    int SetOption(int, int, int, int) override { return 0; }
    int PendingError(int) override { return mInput.ConsumeBool() ? ECONNREFUSED : 0; }
    int Connect(int, const tarn::TcpAddress&) override
    {
        return mInput.ConsumeBool() ? Fail(EINPROGRESS) : 0;
    }
    int Abort(int) override { return 0; }

    ssize_t Receive(int, void* buffer, std::size_t size) override
    {
        const std::size_t left = mSaid.size() - received.size();
        if (left == 0)
            return mInput.ConsumeBool() ? Fail(ECONNRESET) : 0;
        if (mInput.ConsumeIntegralInRange<int>(0, 7) == 7)
            return Fail(mInput.ConsumeBool() ? EAGAIN : EINTR);
        const std::size_t count =
            mInput.ConsumeIntegralInRange<std::size_t>(1, std::min(left, size));
        std::memcpy(buffer, &mSaid[received.size()], count);
        received.append(mSaid, received.size(), count);
        return static_cast<ssize_t>(count);
    }

    ssize_t Send(int, const void* buffer, std::size_t size) override
    {
        const int fate = mInput.ConsumeIntegralInRange<int>(0, 15);
        if (fate >= 13)
            return Fail(fate == 13 ? EAGAIN : fate == 14 ? EINTR : EPIPE);
        const std::size_t count =
            fate == 12 ? mInput.ConsumeIntegralInRange<std::size_t>(0, size) : size;
        sent.append(static_cast<const char*>(buffer), count);
        mNow += std::chrono::milliseconds(count == 0 ? 100 : 0);
        return static_cast<ssize_t>(count);
    }

    /// Time passes here, so that nobody waits for ever.
    int Poll(pollfd* descriptors, std::size_t, int timeout) override
    {
        mNow += std::chrono::milliseconds(std::clamp(timeout, 1, 100));
        if (mInput.ConsumeIntegralInRange<int>(0, 15) == 15)
            return mInput.ConsumeBool() ? Fail(EINTR) : 0;
        descriptors[0].revents = descriptors[0].events;
        return 1;
    }

    int Event() override { return 4; }
    int Signal(int) override { return 0; }
    int TakeSignal(int) override { return 0; }
    int SetThreadName(const std::string&) override { return 0; }
    Clock::time_point Now() override { return mNow; }
    void Sleep(std::chrono::milliseconds time) override { mNow += time; }

private:
    int Fail(int error)
    {
        mNow += std::chrono::milliseconds(1);
        errno = error;
        return -1;
    }

    FuzzedDataProvider& mInput;
    std::string mSaid;
    Clock::time_point mNow = {};
};

std::string Described(const SocketCandElement& element)
{
    return std::to_string(static_cast<int>(element.kind)) + ' ' + element.frame.ToString() + ' ' +
           std::to_string(element.frame.GetTimeStamp()) + ' ' + element.text.data() + ' ' +
           element.reason;
}

/// What a client that has opened its bus hands on: everything behind the answers, but echoes. The
/// answers are a greeting and two times ok, with frames among them, and nothing else.
std::vector<std::string> HandedOn(const std::string& text)
{
    const std::vector<SocketCandElement::tKind> answers = {
        SocketCandElement::KIND_HI, SocketCandElement::KIND_OK, SocketCandElement::KIND_OK};
    std::size_t answered = 0;
    std::vector<std::string> handedOn;
    for (const SocketCandElement& element : Elements(text)) {
        const bool isFrame = element.kind == SocketCandElement::KIND_FRAME;
        if (answered == answers.size()) {
            if (element.kind != SocketCandElement::KIND_ECHO)
                handedOn.push_back(Described(element));
        } else if (!isFrame) {
            Require(element.kind == answers[answered++], "a bus opened by these answers alone");
        }
    }
    Require(answered == answers.size(), "a bus opened by all answers");
    return handedOn;
}

class Client
{
public:
    Client(Network& network, const tarn::SocketCandAddress& goal, FuzzedDataProvider& input)
        : mNetwork(network),
          mInput(input),
          mLink(network, goal, std::vector<tarn::TcpAddress>(1), 1000, 4)
    {
        Require(network.sent == OPENING, "what opens a bus");
    }

    void Run()
    {
        int error = 0;
        while (error == 0 && mInput.remaining_bytes() > 0)
            error = mInput.ConsumeBool() ? Receive() : Send();
        while (mNetwork.received.size() != mSeen || Receive() == 0)
            mSeen = mNetwork.received.size();
        Require(mTaken == HandedOn(mNetwork.received), "what the server said");
    }

private:
    int Receive()
    {
        const int error = mLink.Receive(
            [this](const SocketCandElement& element) { mTaken.push_back(Described(element)); });
        RequireLedger();
        return error;
    }

    /// A frame, or what asks for an echo.
    int Send()
    {
        const auto isFull = [this] { return mInput.ConsumeBool(); };
        const std::string before = mNetwork.sent;
        const bool isEcho = mInput.ConsumeBool();
        const std::string text = isEcho ? "< echo >" : "< send 123 1 01 >";
        const int error = isEcho ? mLink.SendEcho(isFull) : mLink.Send(text, 1, isFull);
        mFrames += !isEcho && error == 0 ? 1u : 0u;
        mEchoes += isEcho && error == 0 ? 1u : 0u;
        const std::string said = mNetwork.sent.substr(before.size());
        if (error == 0)
            Require(said == text, "what was sent");
        if (error == EAGAIN)
            Require(said.empty(), "nothing sent where there was no room");
        Require(text.compare(0, said.size(), said) == 0, "a part of what was to be sent");
        RequireLedger();
        return error == EAGAIN ? 0 : error;
    }

    void RequireLedger() const
    {
        Require(mLink.EchoesSent() == mEchoes, "echoes asked for");
        Require(mLink.EchoesSeen() <= mEchoes, "echoes seen");
        Require(mLink.Unconfirmed() <= mFrames, "frames unconfirmed");
        Require(mLink.BytesReceived() <= mNetwork.received.size(), "bytes received");
    }

    Network& mNetwork;
    FuzzedDataProvider& mInput;
    SocketCandLink mLink;
    std::vector<std::string> mTaken;
    unsigned long long mFrames = 0;
    unsigned long long mEchoes = 0;
    std::size_t mSeen = 0;
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    FuzzedDataProvider input(data, size);
    Network network(input);
    const tarn::SocketCandAddress goal = {"host", "29536", "can0"};
    try {
        Client(network, goal, input).Run();
    } catch (const tarn::CanException& refusal) {
        const std::string opening = OPENING;
        Require(opening.compare(0, network.sent.size(), network.sent) == 0, "a refused opening");
        Require(refusal.message().find("host, port 29536: ") != std::string::npos, "the reason");
        Require(refusal.message().size() < 800, "a reason of bounded length");
    }
    return 0;
}
