// A client of 1.0, which derives from every interface, holds public types by value and calls every
// family of operations. It stays as it is for all of 1.x; what is added later is tried elsewhere.

#include <plexa_can/BusName.h>
#include <plexa_can/CanBus.h>
#include <plexa_can/CanException.h>
#include <plexa_can/CanLogReader.h>
#include <plexa_can/CanLogWriter.h>
#include <plexa_can/CanMessage.h>
#include <plexa_can/CanTiming.h>
#include <plexa_can/CandumpLine.h>
#include <plexa_can/LineReader.h>
#include <plexa_can/LogReplayDispatcher.h>
#include <plexa_can/ReplaySchedule.h>
#include <plexa_can/SocketCanDispatcher.h>
#include <plexa_can/SocketCandDispatcher.h>
#include <plexa_can/SocketCandText.h>
#include <plexa_can/VirtualCanBus.h>
#include <plexa_can/iCanAsyncDispatcher.h>
#include <plexa_can/iCanBus.h>
#include <plexa_can/iCanMessageHandler.h>
#include <plexa_common/LoggerMutex.h>
#include <tarn/TarnAsyncDispatcher.h>
#include <tarn/TarnAsyncDispatcherMock.h>
#include <tarn/TarnMessage.h>
#include <tarn/TarnSyncRequest.h>
#include <tarn/iTarnAsyncDispatcher.h>
#include <tarn/iTarnMessageHandler.h>

#include <Poco/Mutex.h>

#include <cstdio>
#include <cstring>
#include <iostream>
#include <limits>
#include <stdlib.h>
#include <string>
#include <tr1/memory>
#include <unistd.h>
#include <vector>

namespace
{

using namespace tarn;

int checks = 0;
int failures = 0;

void Expect(bool holds, const std::string& what)
{
    ++checks;
    if (holds)
        return;
    ++failures;
    std::cout << "wrong: " << what << '\n';
}

void ExpectText(const std::string& found, const std::string& expected)
{
    Expect(found == expected, "'" + found + "' instead of '" + expected + "'");
}

const unsigned int GUARD = 0x5A17C0DEu;

/// Notices an object that has grown beyond the room that this program has for it.
template <typename T>
class Guarded
{
public:
    Guarded() : mBefore(GUARD), mObject(), mAfter(GUARD) {}

    template <typename Argument>
    explicit Guarded(Argument& argument) : mBefore(GUARD),
                                           mObject(argument),
                                           mAfter(GUARD)
    {
    }

    ~Guarded() noexcept(false) {}

    T& operator*() { return mObject; }
    T* operator->() { return &mObject; }
    bool IsWhole() const { return mBefore == GUARD && mAfter == GUARD; }

private:
    volatile unsigned int mBefore;
    T mObject;
    volatile unsigned int mAfter;
};

// ---- classes of the client ----

class Handler : public iTarnMessageHandler
{
public:
    ~Handler() noexcept override {}

    bool DispatchResponse(TarnMessage& message) override
    {
        heard += message.RawMessageRef().ToString() + ";";
        return isDone;
    }

    std::string heard;
    bool isDone = false;
};

class FrameHandler : public iCanMessageHandler
{
public:
    ~FrameHandler() noexcept override {}
    void DispatchResponse(CanMessage& frame) override { heard += frame.ToString() + ";"; }

    std::string heard;
};

class StateListener : public iCanBusStateListener
{
public:
    ~StateListener() noexcept override {}
    void OnBusState(tCanBusState state) override { last = state; }

    tCanBusState last = CAN_BUS_ERROR_ACTIVE;
};

/// A lower layer of the client's own, which answers each frame with one.
class Bus : public iCanBus
{
public:
    ~Bus() noexcept override {}
    void Start(iCanMessageHandler* handler) override { mHandler = handler; }
    void Stop(iCanMessageHandler*) override { mHandler = nullptr; }

    void Send(CanMessage& frame) override
    {
        ++mCounters.sent;
        sent += frame.ToString() + ";";
        if (mHandler != nullptr && !answer.GetData().empty())
            mHandler->DispatchResponse(answer);
    }

    CanBusCounters GetCounters() const override { return mCounters; }

    CanMessage answer;
    std::string sent;

private:
    iCanMessageHandler* mHandler = nullptr;
    CanBusCounters mCounters;
};

/// A dispatcher of the client's own: hands everything on, and brings an answer to what is sent.
class Dispatcher : public iTarnAsyncDispatcher
{
public:
    ~Dispatcher() noexcept override {}
    void Start() override { calls += "Start "; }
    void Stop() override { calls += "Stop "; }

    void Send(TarnMessage&) override
    {
        calls += "Send ";
        if (mHandler != nullptr && mHandler->DispatchResponse(answer))
            mHandler = nullptr;
    }

    void SubscribeSource(unsigned char address, iTarnMessageHandler* handler) override
    {
        calls += "SubscribeSource " + std::to_string(address) + " ";
        mHandler = handler;
    }

    void UnsubscribeSource(unsigned char address, iTarnMessageHandler*) override
    {
        calls += "UnsubscribeSource " + std::to_string(address) + " ";
    }

    void SubscribeTarget(unsigned char, iTarnMessageHandler*) override {}
    void UnsubscribeTarget(unsigned char, iTarnMessageHandler*) override {}
    void SubscribeChcp(iTarnMessageHandler*) override {}
    void UnsubscribeChcp(iTarnMessageHandler*) override {}
    void SubscribeAll(iTarnMessageHandler*) override {}
    void UnsubscribeAll(iTarnMessageHandler*) override {}

    std::string calls;
    TarnMessage answer;

private:
    iTarnMessageHandler* mHandler = nullptr;
};

/// Classes of the library with virtual functions of the client behind theirs.
class LoudDispatcher : public TarnAsyncDispatcher
{
public:
    using TarnAsyncDispatcher::TarnAsyncDispatcher;
    ~LoudDispatcher() noexcept(false) override {}

    void DispatchResponse(CanMessage& frame) override
    {
        OnFrame();
        TarnAsyncDispatcher::DispatchResponse(frame);
    }

    virtual void OnFrame() { ++frames; }

    int frames = 0;
};

class LoudMock : public TarnAsyncDispatcherMock
{
public:
    ~LoudMock() noexcept(false) override {}
    void Send(TarnMessage&) override { OnSend(); }
    virtual void OnSend() { ++sent; }

    int sent = 0;
};

class LoudRequest : public TarnSyncRequest
{
public:
    using TarnSyncRequest::TarnSyncRequest;
    ~LoudRequest() noexcept(false) override {}

    bool DispatchResponse(TarnMessage& message) override
    {
        OnMessage();
        return TarnSyncRequest::DispatchResponse(message);
    }

    virtual void OnMessage() { ++messages; }

    int messages = 0;
};

// ---- messages ----

void HeaderFields()
{
    Guarded<TarnMessage> message;
    Expect(message->GetFullHeader() == 0x0F800001u, "the word of a new message");
    Expect(message->SetPriority(TarnMessage::PRIORITY_EMERGENCY) &&
               message->GetPriority() == TarnMessage::PRIORITY_EMERGENCY,
           "priority");
    Expect(message->SetAddressing(TarnMessage::ADDRESSING_GROUP) &&
               message->GetAddressing() == TarnMessage::ADDRESSING_GROUP,
           "addressing");
    Expect(message->SetAccessType(TarnMessage::ACCESS_WRITE) &&
               message->GetAccessType() == TarnMessage::ACCESS_WRITE,
           "access type");
    Expect(message->SetDirection(TarnMessage::DIRECTION_RESPONSE) &&
               message->GetDirection() == TarnMessage::DIRECTION_RESPONSE,
           "direction");
    Expect(message->SetRegister(0xAB) && message->GetRegister() == 0xAB, "register");
    Expect(message->SetTargetAddr(9) && message->GetTargetAddr() == 9, "target");
    Expect(!message->SetSourceAddr(128) && message->GetSourceAddr() == 1, "source");
    Expect(message->SetModule(3) && message->GetModule() == 3, "module");
    Expect(message->GetAddressingMode() == TarnMessage::ADDRESSING_MODE_EXTENDED, "mode");
    Expect(message->SetAddressingMode(TarnMessage::ADDRESSING_MODE_STANDARD), "mode back");
    Expect(message->SetRStatus(TarnMessage::STATUS_OPERATING) &&
               message->GetRStatus() == TarnMessage::STATUS_OPERATING,
           "status read");
    Expect(message->SetWStatus(TarnMessage::tTarnWStatus(7)) &&
               message->GetWStatus() == TarnMessage::tTarnWStatus(7),
           "status written");
    // 01 priority, register AB, target 9, source 1
    ExpectText(message->RawMessage().ToString(), "042AC481#70");
    Expect(message->SetFullHeader(0x0F800481u), "word");
    ExpectText(message->RawMessageRef().ToString(), "0F800481#70");
    Expect(message.IsWhole(), "a message stays in its room");
}

void ChcpFields()
{
    TarnMessage message;
    Expect(message.SetChcpID(0x15) && message.GetChcpID() == 0x15, "CHCP id");
    Expect(message.GetType() == TarnMessage::TYPE_CHCP, "type of a CHCP message");
    Expect(message.SetChcpMacID(0x0123456u) && message.GetChcpMacID() == 0x0123456u, "MAC");
    Expect(message.SetChcpCommand(TarnMessage::CHCP_COMMAND_5) &&
               message.GetChcpCommand() == TarnMessage::CHCP_COMMAND_5,
           "command");
    Expect(message.SetChcpDeviceCode(TarnMessage::tTarnDeviceCode(0x11223344u)) &&
               message.GetChcpDeviceCode() == TarnMessage::tTarnDeviceCode(0x11223344u),
           "device code");
    Expect(message.SetType(TarnMessage::TYPE_DATA), "type");
    Expect(message.GetChcpCommand() == TarnMessage::CHCP_COMMAND_NONE, "no command");
}

template <typename Value>
void Payload(Value value, TarnMessage::tTarnDataType type, const char* frame)
{
    TarnMessage message;
    std::vector<Value> values(1, value);
    Expect(message.SetData(values) && message.GetDataType() == type, frame);
    ExpectText(message.RawMessage().ToString(), frame);
    std::vector<Value> read;
    Expect(message.GetData(read) && read.size() == 1 &&
               std::memcmp(read.data(), values.data(), sizeof(Value)) == 0,
           frame);
}

void Payloads()
{
    Payload<unsigned char>(0x12, TarnMessage::DATATYPE_U8, "0F800001#1228");
    Payload<unsigned short>(0x1234, TarnMessage::DATATYPE_U16, "0F800001#341229");
    Payload<unsigned int>(0x12345678u, TarnMessage::DATATYPE_U32, "0F800001#785634122B");
    Payload<unsigned long long>(0x123456789ABCull, TarnMessage::DATATYPE_U48,
                                "0F800001#BC9A785634122C");
    Payload<float>(1.5f, TarnMessage::DATATYPE_S16F0, "0F800001#003020");
    std::vector<double> doubles(1, 1.5);
    TarnMessage message;
    Expect(message.SetData(doubles) && message.GetData(doubles) && doubles.at(0) == 1.5, "FLOAT");
    ExpectText(message.RawMessage().ToString(), "0F800001#0000C03F2D");
    std::vector<tarn_u24_t> threes(2);
    threes[0].value = 0x123456;
    threes[1].value = 0xABCDEF;
    Expect(message.SetData(threes) && message.GetDataSize() == 2, "U24");
    std::vector<tarn_u24_t> read;
    Expect(message.GetData(read) && read.at(1).value == 0xABCDEF, "U24 read");
    std::vector<float> floats(1, 8.0f);
    Expect(message.SetData(floats, TarnMessage::DATATYPE_S16F7), "S16F7");
    ExpectText(message.RawMessage().ToString(), "0F800001#040027");
    Expect(message.SetDataType(TarnMessage::DATATYPE_U16), "another type");
    Expect(TarnMessage::S16F0_MAX == 3.9f && TarnMessage::S16F7_MAX == 65534.0f, "limits");
}

void MessagesAsValues()
{
    CanMessage frame;
    frame.SetHeader(0x0F800481u);
    frame.GetFlags() = CanMessage::FLAG_EXTENDED;
    frame.SetData(std::vector<unsigned char>(1, 0x20));
    TarnMessage message = frame;
    TarnMessage copy(message);
    Expect(copy == message && !(copy != message), "a copy");
    copy.SetRegister(1);
    Expect(copy != message, "another");
    copy = message;
    Expect(copy == message, "assigned");
    frame.GetFlags() = CanMessage::FLAG_EXTENDED | CanMessage::FLAG_ERROR;
    Expect(!TarnMessage(frame) && frame.HasError(), "no message");
    ExpectText(message.ToStringShort().substr(0, 11), "Type: DATA,");
    Expect(message.ToString().find('\n') != std::string::npos, "lines of text");
    std::vector<unsigned char> seven(7, 0);
    frame.GetFlags() = CanMessage::FLAG_EXTENDED;
    frame.SetData(std::vector<unsigned char>(8, 0));
    TarnMessage tooLong(frame);
    bool thrown = false;
    try {
        tooLong.RawMessage();
    } catch (const std::string& text) {
        thrown = text.find("mData.size() > 6!") != std::string::npos;
    }
    Expect(thrown, "a message that cannot be framed throws a text");
}

// ---- dispatchers and requests ----

CanMessage Frame(unsigned int header)
{
    CanMessage frame;
    frame.SetHeader(header);
    frame.GetFlags() = CanMessage::FLAG_EXTENDED;
    const unsigned char status = 0x20;
    frame.SetBytes(&status, 1);
    return frame;
}

void Families(iTarnAsyncDispatcher& dispatcher, iCanMessageHandler& input, const char* expected)
{
    Handler source, target, chcp, all;
    dispatcher.SubscribeSource(1, &source);
    dispatcher.SubscribeTarget(9, &target);
    dispatcher.SubscribeChcp(&chcp);
    dispatcher.SubscribeAll(&all);
    CanMessage data = Frame(0x0F800481u);
    CanMessage config = Frame(0x10000005u);
    config.SetData(std::vector<unsigned char>(7, 0));
    input.DispatchResponse(data);
    input.DispatchResponse(config);
    ExpectText(source.heard + target.heard + "|" + chcp.heard + "|" + all.heard, expected);
    dispatcher.UnsubscribeSource(1, &source);
    dispatcher.UnsubscribeTarget(9, &target);
    dispatcher.UnsubscribeChcp(&chcp);
    dispatcher.UnsubscribeAll(&all);
    source.heard = "";
    input.DispatchResponse(data);
    ExpectText(source.heard, "");
}

/// The mock takes frames as a bus would bring them.
class Feed : public iCanMessageHandler
{
public:
    explicit Feed(TarnAsyncDispatcherMock& mock) : mMock(mock) {}
    ~Feed() noexcept override {}
    void DispatchResponse(CanMessage& frame) override { mMock.DispatchResponse(frame); }

private:
    TarnAsyncDispatcherMock& mMock;
};

const char* const OF_A_BUS = "0F800481#20;0F800481#20;|10000005#00000000000000;|"
                             "0F800481#20;10000005#00000000000000;";
const char* const OF_A_MOCK = "0F800481#20;0F800481#20;|10000005#00000000000000;|";

/// Their tables are the library's: calls go by number.
void DispatchersMadeByTheLibrary()
{
    std::tr1::shared_ptr<Bus> bus(new Bus);
    const auto dispatcher = TarnAsyncDispatcher::Create(bus);
    Families(*dispatcher, *dispatcher, OF_A_BUS);
    const auto mock = TarnAsyncDispatcherMock::Create();
    Feed feed(*mock);
    Families(*mock, feed, OF_A_MOCK);
    bus->answer = Frame(0x0F000481u);
    Handler handler;
    TarnMessage message;
    for (iTarnAsyncDispatcher* each : {static_cast<iTarnAsyncDispatcher*>(dispatcher.get()),
                                       static_cast<iTarnAsyncDispatcher*>(mock.get())}) {
        each->SubscribeAll(&handler);
        each->Start();
        each->Send(message);
        ExpectText(handler.heard, "0F000481#20;");
        each->Stop();
        each->Send(message);
        each->UnsubscribeAll(&handler);
    }
    ExpectText(bus->sent, "0F800001#20;0F800001#20;");
    ExpectText(handler.heard, "0F000481#20;");
    const std::tr1::shared_ptr<iTarnAsyncDispatcher> shared(mock);
    const std::tr1::shared_ptr<iTarnMessageHandler> request = TarnSyncRequest::Create(shared);
    Expect(!request->DispatchResponse(message), "no answer to a request that was not sent");
}

void Dispatchers()
{
    std::tr1::shared_ptr<Bus> bus(new Bus);
    std::tr1::shared_ptr<iCanAsyncDispatcher> lower(bus);
    {
        Guarded<LoudDispatcher> dispatcher(lower);
        Families(*dispatcher, *dispatcher, OF_A_BUS);
        dispatcher->Start();
        bus->answer = Frame(0x0F000481u);
        TarnMessage message;
        dispatcher->Send(message);
        Expect(dispatcher->frames == 4, "the answer comes through the bus");
        dispatcher->Stop();
        dispatcher->Send(message);
        ExpectText(bus->sent, "0F800001#20;0F800001#20;");
        Expect(dispatcher->frames == 4, "no answer after the end");
        Expect(dispatcher.IsWhole(), "a dispatcher stays in its room");
    }
    Expect(bus->GetCounters().sent == 2 && bus.use_count() == 2, "the bus is released");
    Guarded<LoudMock> mock;
    Feed feed(*mock);
    Families(*mock, feed, OF_A_MOCK);
    TarnMessage message;
    static_cast<iTarnAsyncDispatcher&>(*mock).Send(message);
    Expect(mock->sent == 1 && mock.IsWhole(), "a mock stays in its room");
}

void Requests()
{
    std::tr1::shared_ptr<Dispatcher> dispatcher(new Dispatcher);
    std::tr1::shared_ptr<iTarnAsyncDispatcher> shared(dispatcher);
    dispatcher->answer.SetFullHeader(0x0F000085u); // the response from 5 to 1
    Guarded<LoudRequest> request(shared);
    TarnMessage question, response;
    question.SetTargetAddr(5);
    Expect(request->Send(question, response, 20000), "a request is answered");
    Expect(response.GetFullHeader() == 0x0F000085u && request->messages == 1, "the answer");
    dispatcher->answer.SetRegister(7);
    Expect(!request->Send(question, response, 0), "another answer is none");
    ExpectText(dispatcher->calls, "SubscribeSource 5 Send SubscribeSource 5 Send "
                                  "UnsubscribeSource 5 ");
    Expect(request.IsWhole(), "a request stays in its room");
    Expect(!TarnSyncRequest::Create(shared)->Send(question, response, 0), "without an answer");
}

// ---- the lower layer ----

void Frames()
{
    Guarded<CanMessage> frame;
    frame->SetHeader(0x123);
    frame->SetTimeStamp(42);
    frame->SetData(std::vector<unsigned char>(2, 0xAA));
    ExpectText(frame->ToString(), "123#AAAA");
    Expect(frame->GetTimeStamp() == 42 && frame->GetDataSize() == 2, "a frame's parts");
    Expect(frame->GetBytes()[1] == 0xAA && frame->GetHeader() == 0x123, "a frame's bytes");
    Expect(FrameBits(*frame) == 63, "47 bits and 8 for each of 2 bytes");
    CanMessage later = Frame(0x0F800001u);
    Expect(FrameBits(later) == 75 && ArbitrationRank(*frame) < ArbitrationRank(later), "timing");
    bool thrown = false;
    try {
        frame->SetData(std::vector<unsigned char>(9, 0));
    } catch (const Poco::Exception& error) {
        thrown = dynamic_cast<const CanException*>(&error) != nullptr && error.code() == 0;
    }
    Expect(thrown && frame.IsWhole(), "nine bytes");
}

void Exceptions()
{
    const CanException error("gone", 19);
    std::tr1::shared_ptr<Poco::Exception> copy(error.clone());
    ExpectText(copy->message(), "gone");
    bool thrown = false;
    try {
        copy->rethrow();
    } catch (const CanException& again) {
        thrown = again.code() == 19;
    }
    Expect(thrown, "an exception thrown again");
    Expect(std::string(error.name()) == copy->name() && error.className() != nullptr, "its name");
}

void VirtualBuses()
{
    Guarded<VirtualCanBus::Options> options;
    options->delivery = VirtualCanBus::DELIVERY_INLINE;
    options->queueSize = 16;
    const auto bus = VirtualCanBus::Create(*options);
    const auto sender = bus->Connect();
    const auto receiver = bus->Connect();
    FrameHandler handler;
    receiver->Start(&handler);
    CanMessage frame = Frame(0x0F800001u);
    sender->Send(frame);
    Guarded<VirtualCanBus::Faults> faults;
    faults->loss = 1;
    bus->SetFaults(*faults);
    sender->Send(frame);
    receiver->Stop(&handler);
    ExpectText(handler.heard, "0F800001#20;");
    const VirtualCanBus::Counters counters = bus->GetCounters();
    Expect(counters.sent == 2 && counters.delivered == 1 && counters.lost == 1, "the ledger");
    Expect(counters.handlerExceptions == 0 && counters.sendTimeouts == 0, "the ledger's end");
    const CanBusCounters own = receiver->GetCounters();
    Expect(own.delivered == 1 && own.lost == 1 && own.disconnections == 0, "a node's ledger");
    receiver->SetBusOff(true);
    Expect(bus->WaitUntilIdle(20000) && options.IsWhole() && faults.IsWhole(), "idle");
    Expect(VirtualCanBus::Open("first")->Connect().get() != nullptr, "a bus by name");
}

void BusesByName()
{
    const BusName name = ParseBusName("virtual:one?queue=8&timeout=5");
    ExpectText(name.scheme + " " + name.address, "virtual one");
    Expect(name.options.size() == 2 && name.options[1].second == "5", "options of a name");
    const std::tr1::shared_ptr<iCanBus> bus = CanBus::Open("virtual:one?delivery=inline");
    CanMessage frame = Frame(1);
    bus->Send(frame);
    Expect(bus->GetCounters().sent == 1, "a bus by its name");
    int refused = 0;
    for (const char* bad : {"nonsense", "socketcan:no_such_if0", "socketcand:127.0.0.1:1/can0"}) {
        try {
            CanBus::Open(bad);
        } catch (const CanException& error) {
            refused += error.message().empty() ? 0 : 1;
        }
    }
    Expect(refused == 3, "buses that are not there");
}

template <typename Dispatcher, typename Address>
bool IsRefused(const Address& address)
{
    Guarded<typename Dispatcher::Options> options;
    try {
        const auto dispatcher = Dispatcher::Create(address, *options);
        return false;
    } catch (const CanException&) {
        return options.IsWhole();
    }
}

void BusesOfTheSystem()
{
    Expect(IsRefused<SocketCanDispatcher>(std::string("no_such_if0")), "no interface");
    const SocketCandAddress address = ParseSocketCandAddress("127.0.0.1:1/can0");
    ExpectText(address.host + " " + address.port + " " + address.bus, "127.0.0.1 1 can0");
    Expect(IsRefused<SocketCandDispatcher>(address), "no server");
    StateListener listener;
    static_cast<iCanBusStateListener&>(listener).OnBusState(CAN_BUS_REMOVED);
    Expect(listener.last == 5, "a state");
}

void TextOverTcp()
{
    std::string text;
    AppendSocketCandSend(Frame(0x0F800001u), text);
    AppendSocketCandFrame(Frame(0x0F800001u), text);
    AppendSocketCandError("no", text);
    ExpectText(text, "< send 0F800001 1 20 >< frame 0F800001 0.000000 20 >< error no >");
    Guarded<SocketCandReader> reader;
    Guarded<SocketCandElement> element;
    const char* at = text.data();
    const char* const end = at + text.size();
    Expect(reader->Next(at, end, *element) && element->kind == SocketCandElement::KIND_SEND,
           "a frame to send");
    ExpectText(element->frame.ToString(), "0F800001#20");
    Expect(reader->Next(at, end, *element) && reader->Next(at, end, *element), "more elements");
    ExpectText(element->text.data(), "no");
    reader->Reset();
    Expect(!ParseSocketCandElement("< send >", 8, *element) && element->reason[0] != '\0', "bad");
    Expect(IsSocketCandBusName("can0") && !IsSocketCandBusName("<"), "names");
    Expect(reader.IsWhole() && element.IsWhole(), "reader and element stay in their room");
}

void LinesOfLogs()
{
    Guarded<CandumpLine> line;
    const std::string text = "(1609779922.655421) can0 0F800001#20";
    Expect(ParseCandumpLine(text.data(), text.size(), *line), "a line");
    Expect(line->kind == CandumpLine::KIND_FRAME && line->timeDecimals == 6, "its kind");
    Expect(line->timeForm == CandumpLine::TIME_ABSOLUTE, "its time");
    Expect(line->frame.GetTimeStamp() == 1609779922655421000ull, "its time stamp");
    ExpectText(line->interfaceName, "can0");
    Expect(!ParseCandumpLine("?", 1, *line) && line->column > 0 && line->reason[0] != '\0', "bad");
    Expect(line.IsWhole(), "a line stays in its room");
    ReplaySchedule schedule(2);
    const ReplaySchedule::Time now = ReplaySchedule::Time() + std::chrono::seconds(100);
    ParseCandumpLine(text.data(), text.size(), *line);
    Expect(schedule.DueTime(*line, now) == now, "the first frame is due now");
    schedule.Played(*line);
    line->frame.SetTimeStamp(1609779924655421000ull);
    Expect(schedule.DueTime(*line, now) == now + std::chrono::seconds(1), "two seconds at twice");
    schedule.Resume(now);
    schedule.Restart();
}

void WriteLog(const std::string& path)
{
    CanLogWriter::Options options;
    options.interfaceName = "can7";
    options.flush = CanLogWriter::FLUSH_EVERY_FRAME;
    CanLogWriter writer(path, options);
    CanMessage frame = Frame(0x0F800001u);
    frame.SetTimeStamp(1000000000ull);
    writer.Write(frame);
    Expect(writer.GetFrames() == 1 && writer.GetForm() == CAN_LOG_CANDUMP, "a frame is written");
    writer.Flush();
    writer.Close();
}

void ReadLog(const std::string& path)
{
    Guarded<CanLogReader> reader(path);
    CandumpLine entry;
    Expect(reader->NextFrame(entry) && reader->GetNumber() == 1, "a frame is read");
    ExpectText(std::string(entry.interfaceName) + " " + entry.frame.ToString(), "can7 0F800001#20");
    ExpectText(reader->GetText(), "(0000000001.000000) can7 0F800001#20");
    Expect(!reader->Next(entry) && reader->GetCounters().frames == 1, "the end of the log");
    Expect(reader->GetForm() == CAN_LOG_CANDUMP && reader->GetBytesRead() == 37, "its bytes");
    ExpectText(reader->GetName(), path);
    Expect(reader.IsWhole(), "a reader stays in its room");
    Guarded<LineReader> lines(path);
    InputLine line;
    ExpectText(lines->Peek(3), "(00");
    Expect(lines->Next(line) && line.size == 36 && line.number == 1 && !line.cut, "a line");
    Expect(!lines->Next(line) && !lines->IsStopped() && lines.IsWhole(), "no more lines");
}

void PlayLog(const std::string& path)
{
    LogReplayDispatcher::Options options;
    options.speed = std::numeric_limits<double>::infinity();
    options.recordPath = path + ".record";
    const auto replay = LogReplayDispatcher::Create(path, options);
    FrameHandler handler;
    replay->Start(&handler);
    Expect(replay->WaitUntilFinished(20000) && replay->IsFinished(), "the log is played");
    CanMessage frame = Frame(2);
    replay->Send(frame);
    replay->Stop(&handler);
    ExpectText(handler.heard, "0F800001#20;");
    const LogReplayDispatcher::Progress progress = replay->GetProgress();
    Expect(progress.read == 1 && progress.played == 1 && progress.malformed == 0, "progress");
    ExpectText(replay->GetFailure(), "");
    Expect(replay->GetCounters().sent == 1, "the record");
    std::remove(options.recordPath.c_str());
}

void Logs()
{
    char path[] = "/tmp/tarn-first-XXXXXX";
    const int file = ::mkstemp(path);
    Expect(file >= 0, "a file for the log");
    ::close(file);
    WriteLog(path);
    ReadLog(path);
    PlayLog(path);
    std::remove(path);
}

void Everything()
{
    GetLoggerMutex().lock();
    GetLoggerMutex().unlock();
    HeaderFields();
    ChcpFields();
    Payloads();
    MessagesAsValues();
    DispatchersMadeByTheLibrary();
    Dispatchers();
    Requests();
    Frames();
    Exceptions();
    VirtualBuses();
    BusesByName();
    BusesOfTheSystem();
    TextOverTcp();
    LinesOfLogs();
    Logs();
}

} // namespace

int main()
{
    try {
        Everything();
    } catch (const Poco::Exception& error) {
        Expect(false, error.displayText());
    }
    std::cout << checks << " checks, " << failures << " failed\n";
    return failures == 0 ? 0 : 1;
}
