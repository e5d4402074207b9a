// What the core makes of frames that the built-in lower layer could not even hold, and how its
// dispatcher works over interfaces whose destructors may not throw.

#include <plexa_can/CanException.h>
#include <plexa_can/iCanAsyncDispatcher.h>
#include <plexa_can/iCanMessageHandler.h>
#include <plexa_common/LoggerMutex.h>
#include <tarn/TarnAsyncDispatcher.h>
#include <tarn/TarnMessage.h>
#include <tarn/TarnSyncRequest.h>
#include <tarn/iTarnMessageHandler.h>

#include <cstdio>
#include <string>
#include <type_traits>
#include <vector>

namespace
{

using tarn::CanMessage;
using tarn::TarnMessage;
using Bytes = std::vector<unsigned char>;

static_assert(std::is_nothrow_destructible<tarn::iCanMessageHandler>::value,
              "the lower layer in use is not the one of this folder");

static_assert(std::is_nothrow_destructible<tarn::TarnAsyncDispatcher>::value,
              "the dispatcher's destructor does not follow the lower layer's");
static_assert(!std::is_nothrow_destructible<tarn::TarnSyncRequest>::value,
              "a request does not depend on the lower layer");

int failures = 0;

void Expect(bool fact, const char* text)
{
    std::printf("%s: %s\n", fact ? "ok" : "FAILED", text);
    failures += fact ? 0 : 1;
}

template <typename Value>
bool Refuses(TarnMessage& message)
{
    std::vector<Value> values;
    return !message.GetData(values) && values.empty();
}

bool EveryGetterRefuses(TarnMessage& message)
{
    for (int type = 0; type <= 15; ++type) {
        message.SetDataType(static_cast<TarnMessage::tTarnDataType>(type));
        if (!Refuses<unsigned char>(message) || !Refuses<unsigned short>(message) ||
            !Refuses<tarn::tarn_u24_t>(message) || !Refuses<unsigned int>(message) ||
            !Refuses<unsigned long long>(message) || !Refuses<double>(message) ||
            !Refuses<float>(message))
            return false;
    }
    return true;
}

std::string TextOfRefusedFraming(TarnMessage& message)
{
    try {
        message.RawMessage();
    } catch (const std::string& text) {
        return text;
    }
    return "nothing was thrown";
}

void DefaultMessage()
{
    TarnMessage message;
    CanMessage frame = message.RawMessage();
    Expect(frame.GetHeader() == 0x0F800001u, "the identifier of a default message");
    Expect(frame.GetFlags() == 1u, "its frame has the 29-bit flag alone");
    Expect(frame.GetData() == Bytes{0x20}, "its frame holds the status byte");
    Expect(message.RawMessageRef().GetData() == Bytes{0x20}, "the kept frame is the same");
    Expect(&message.RawMessageRef() == &message.RawMessageRef(), "the kept frame stays in place");
    Expect(TarnMessage(frame) == message, "the frame gives the message back");
}

void FrameOfTwelveBytes()
{
    CanMessage frame;
    Bytes bytes = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 0x38};
    frame.SetHeader(0x0F800001u);
    frame.SetData(bytes);
    frame.GetFlags() = 1u;
    TarnMessage message(frame);
    Expect(!!message && message.GetRStatus() == TarnMessage::STATUS_STANDBY,
           "a frame of 12 bytes is parsed from its last byte");
    Expect(message.GetDataType() == TarnMessage::DATATYPE_U8 && message.GetDataSize() == 11,
           "all 11 payload bytes are kept");
    Expect(message.ToStringShort().find("Raw-Data(11) :  - 0x01() - 0x02()") != std::string::npos,
           "they are shown");
    Expect(EveryGetterRefuses(message), "every getter refuses them as every type");
    Expect(TextOfRefusedFraming(message) == "tarn::CanMessage tarn::TarnMessage::RawMessage() : "
                                            "TYPE_DATA : mData.size() > 6!",
           "framing refuses them");
}

void FramesThatAreNotTarn()
{
    CanMessage error;
    error.GetFlags() = 5u;
    Expect(!TarnMessage(error), "an error frame is no message");
    CanMessage standard;
    Expect(!TarnMessage(standard), "a frame with an 11-bit identifier is no message");
}

/// A connection that keeps a protocol and answers each frame with one of its own.
class Connection : public tarn::iCanAsyncDispatcher
{
public:
    explicit Connection(std::string& calls) : mCalls(calls) {}
    ~Connection() override { mCalls += "gone;"; }

    void Start(tarn::iCanMessageHandler* handler) override
    {
        mCalls += "Start;";
        mHandler = handler;
    }

    void Stop(tarn::iCanMessageHandler* handler) override
    {
        mCalls += handler == mHandler ? "Stop;" : "Stop of another;";
    }

    void Send(CanMessage& frame) override
    {
        mCalls += "Send " + std::to_string(frame.GetHeader()) + " " + frame.ToString() + ";";
        Deliver(0x0F000089u); // a response from 9 to 1
    }

    void Deliver(unsigned int header)
    {
        CanMessage frame;
        Bytes bytes = {7, 0x58};
        frame.SetHeader(header);
        frame.SetData(bytes);
        frame.GetFlags() = 1u;
        mHandler->DispatchResponse(frame);
    }

private:
    std::string& mCalls;
    tarn::iCanMessageHandler* mHandler = nullptr;
};

class Handler : public tarn::iTarnMessageHandler
{
public:
    Handler(std::string& calls, const char* name) : mCalls(calls), mName(name) {}
    ~Handler() noexcept override {}

    bool DispatchResponse(TarnMessage& message) override
    {
        mCalls += mName + std::to_string(message.GetSourceAddr()) + ";";
        return true;
    }

private:
    std::string& mCalls;
    std::string mName;
};

void DispatcherFromCreateToDelete()
{
    std::string calls;
    auto* const connection = new Connection(calls);
    std::tr1::shared_ptr<tarn::iCanAsyncDispatcher> lower(connection);
    auto dispatcher = tarn::TarnAsyncDispatcher::Create(lower);
    Handler source(calls, "source ");
    Handler target(calls, "target ");
    Handler chcp(calls, "chcp ");
    Handler all(calls, "all ");
    dispatcher->SubscribeSource(5, &source);
    dispatcher->SubscribeTarget(9, &target);
    dispatcher->SubscribeChcp(&chcp);
    dispatcher->SubscribeAll(&all);
    dispatcher->Start();
    connection->Deliver(0x0F000485u); // from 5 to 9
    connection->Deliver(0x0F000485u); // all handlers have left
    TarnMessage message;
    dispatcher->Send(message);
    dispatcher->Stop();
    Expect(calls == "Start;source 5;target 5;all 5;Send 260046849 1 bytes;Stop;",
           "the dispatcher starts, routes, sends and stops");
    Expect(lower.use_count() == 2, "it shares the connection");
    lower.reset();
    calls.clear();
    dispatcher.reset();
    Expect(calls == "gone;", "it releases the connection without stopping it");
}

void DispatcherThroughEitherBase()
{
    for (const bool asFrameHandler : {false, true}) {
        std::string calls;
        auto* const dispatcher = new tarn::TarnAsyncDispatcher(
            std::tr1::shared_ptr<tarn::iCanAsyncDispatcher>(new Connection(calls)));
        if (asFrameHandler)
            delete static_cast<tarn::iCanMessageHandler*>(dispatcher);
        else
            delete static_cast<tarn::iTarnAsyncDispatcher*>(dispatcher);
        Expect(calls == "gone;", "deleting it through a base destroys the whole");
    }
}

void SynchronousRequest()
{
    std::string calls;
    auto dispatcher = tarn::TarnAsyncDispatcher::Create(
        std::tr1::shared_ptr<tarn::iCanAsyncDispatcher>(new Connection(calls)));
    dispatcher->Start();
    const auto sync = tarn::TarnSyncRequest::Create(dispatcher);
    TarnMessage request;
    TarnMessage response;
    request.SetTargetAddr(9);
    std::vector<unsigned char> values;
    Expect(sync->Send(request, response, 20000), "a request is answered");
    Expect(response.GetData(values) && values == Bytes{7}, "by the connection's frame");
}

} // namespace

int main()
{
    DefaultMessage();
    FrameOfTwelveBytes();
    FramesThatAreNotTarn();
    DispatcherFromCreateToDelete();
    DispatcherThroughEitherBase();
    SynchronousRequest();
    Poco::Mutex::ScopedLock lock(tarn::GetLoggerMutex());
    return failures == 0 ? 0 : 1;
}
