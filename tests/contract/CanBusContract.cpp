#include "CanBusContract.h"

#include "ContractTest.h"

#include <plexa_can/CanException.h>

#include <algorithm>
#include <atomic>
#include <deque>
#include <memory>
#include <stdexcept>

namespace tarn::contract
{

namespace
{

using Connection = CanBusUnderTest::Connection;
using Connections = std::vector<Connection>;

constexpr unsigned int MARKER = 0x1FFFFFFE;

void Send(const Connection& connection, const Frame& frame)
{
    CanMessage message = MessageOf(frame);
    connection->Send(message);
}

void Send(const Connection& connection, unsigned int header)
{
    Send(connection, Frame{header, EXTENDED, {}});
}

void SendNumbered(const Connection& connection, unsigned int first, unsigned int count)
{
    for (unsigned int header = first; header < first + count; ++header)
        Send(connection, header);
}

std::vector<unsigned int> Numbers(unsigned int first, unsigned int count)
{
    std::vector<unsigned int> numbers(count);
    for (unsigned int i = 0; i < count; ++i)
        numbers[i] = first + i;
    return numbers;
}

/// Sends a frame and waits until it arrives: what was sent ahead of it has arrived then, too.
void Settle(const Connection& from, const Connection& to)
{
    Gate arrived;
    const Ear ear(to, [&](CanMessage& message) {
        if (message.GetHeader() == MARKER)
            arrived.Open();
    });
    Send(from, MARKER);
    EXPECT_TRUE(arrived.Pass()) << "a frame got lost";
}

/// The identifiers but for those of Settle().
std::vector<unsigned int> Heard(Recorder& recorder)
{
    std::vector<unsigned int> headers = recorder.Headers();
    headers.erase(std::remove(headers.begin(), headers.end(), MARKER), headers.end());
    return headers;
}

template <typename Value>
std::vector<Value> InOrder(const CanBusUnderTest& bus, std::vector<Value> values)
{
    if (!bus.keepsOrder)
        std::sort(values.begin(), values.end());
    return values;
}

// Frames.

void ExpectToCarry(const CanBusUnderTest& bus, const std::vector<Frame>& frames)
{
    const Connections ends = bus.connect(2);
    for (const std::size_t from : {0u, 1u}) {
        Ear ear(ends[1 - from]);
        for (const Frame& frame : frames)
            Send(ends[from], frame);
        EXPECT_TRUE(ear.AwaitCount(frames.size()));
        EXPECT_EQ(InOrder(bus, ear.Frames()), InOrder(bus, frames)) << "from connection " << from;
    }
}

void CarriesFramesOfEveryLengthBothWays(const CanBusUnderTest& bus)
{
    const std::vector<unsigned char> bytes = {0x00, 0xFF, 0x80, 0x7F, 0x01, 0xFE, 0x55, 0xAA};
    std::vector<Frame> frames;
    for (const unsigned int identifier : {0u, 1u, 0x7FFu, 0x0F800001u, 0x1FFFFFFFu}) {
        for (int length = 0; length <= 8; ++length)
            frames.push_back({identifier, EXTENDED, {bytes.begin(), bytes.begin() + length}});
    }
    ExpectToCarry(bus, frames);
}

void CarriesFramesWithElevenBits(const CanBusUnderTest& bus)
{
    ExpectToCarry(bus, {{0x000, 0, {}},
                        {0x7FF, 0, {1, 2, 3, 4, 5, 6, 7, 8}},
                        {0x123, EXTENDED, {9}},
                        {0x123, 0, {9}}});
}

void CarriesRemoteRequests(const CanBusUnderTest& bus)
{
    ExpectToCarry(bus, {{0x0F800001, EXTENDED | REMOTE, {}}, {0x1FFFFFFF, EXTENDED | REMOTE, {}}});
}

void CarriesErrorFrames(const CanBusUnderTest& bus)
{
    ExpectToCarry(bus, {{0x040, ERROR, {0, 0, 0, 0, 0, 0, 0, 0}},
                        {0x004, ERROR, {0, 0x20, 0, 0, 0, 0, 0x88, 0x07}}});
}

void LeavesTheSendersFrameAsItIs(const CanBusUnderTest& bus)
{
    const Connections ends = bus.connect(2);
    Ear ear(ends[1]);
    const Frame first = {0x0F800001, EXTENDED, {1, 2, 3}};
    CanMessage message = MessageOf(first);
    ends[0]->Send(message);
    EXPECT_EQ(FrameOf(message), first);
    message = MessageOf({0x111, EXTENDED, {9}});
    EXPECT_TRUE(ear.AwaitCount(1));
    EXPECT_EQ(ear.Frames(), std::vector<Frame>{first}) << "the bus kept no copy of its own";
}

void KeepsTheOrderOfASender(const CanBusUnderTest& bus)
{
    const Connections ends = bus.connect(2);
    Ear ear(ends[1]);
    SendNumbered(ends[0], 0, 1000);
    EXPECT_TRUE(ear.AwaitCount(1000));
    EXPECT_EQ(ear.Headers(), Numbers(0, 1000));
}

void OwnFramesAreNotHeard(const CanBusUnderTest& bus)
{
    const Connections ends = bus.connect(2);
    Ear own(ends[0]);
    Ear other(ends[1]);
    SendNumbered(ends[0], 1, 3);
    EXPECT_TRUE(other.AwaitCount(3));
    Send(ends[1], 9);
    EXPECT_TRUE(own.AwaitCount(1));
    EXPECT_EQ(own.Headers(), std::vector<unsigned int>{9});
}

void EveryOtherConnectionHearsAFrame(const CanBusUnderTest& bus)
{
    const Connections ends = bus.connect(3);
    Ear second(ends[2]);
    {
        Ear first(ends[1]);
        Send(ends[0], 1);
        EXPECT_TRUE(first.AwaitCount(1));
        EXPECT_TRUE(second.AwaitCount(1));
    }
    Send(ends[1], 2);
    EXPECT_TRUE(second.AwaitCount(2)) << "a connection lives from another's handlers";
    EXPECT_EQ(second.Headers(), Numbers(1, 2));
}

// Handlers.

void EachHandlerGetsACopyOfItsOwn(const CanBusUnderTest& bus)
{
    const auto spoil = [](CanMessage& message) { message = MessageOf({0x666, EXTENDED, {6, 6}}); };
    const Connections ends = bus.connect(2);
    Ear first(ends[1], spoil);
    Ear second(ends[1], spoil);
    Ear third(ends[1], spoil);
    const std::vector<Frame> frames = {{0x0F800001, EXTENDED, {1, 2, 3}}, {5, EXTENDED, {}}};
    for (const Frame& frame : frames)
        Send(ends[0], frame);
    for (Ear* const ear : {&first, &second, &third}) {
        EXPECT_TRUE(ear->AwaitCount(2));
        EXPECT_EQ(InOrder(bus, ear->Frames()), InOrder(bus, frames));
    }
}

void AHandlerThatIsStartedTwiceIsCalledOnce(const CanBusUnderTest& bus)
{
    const Connections ends = bus.connect(2);
    Recorder recorder;
    ends[1]->Start(&recorder);
    ends[1]->Start(&recorder);
    Send(ends[0], 1);
    Settle(ends[0], ends[1]);
    ends[1]->Stop(&recorder);
    EXPECT_EQ(Heard(recorder), std::vector<unsigned int>{1});
    Send(ends[0], 2);
    Settle(ends[0], ends[1]);
    EXPECT_EQ(Heard(recorder), std::vector<unsigned int>{1}) << "one Stop() is enough";
}

void StopOfAnUnknownHandlerIsNoError(const CanBusUnderTest& bus)
{
    const Connections ends = bus.connect(2);
    Recorder stranger;
    EXPECT_NO_THROW(ends[1]->Stop(&stranger));
    Ear ear(ends[1]);
    EXPECT_NO_THROW(ends[1]->Stop(&stranger));
    Send(ends[0], 1);
    EXPECT_TRUE(ear.AwaitCount(1));
}

/// A handler that is held in its first call, and then stopped by another thread.
void ExpectStopToWait(const CanBusUnderTest& bus, bool stopsItselfToo)
{
    const Connections ends = bus.connect(2);
    Gate entered;
    Gate leave;
    Gate stopped;
    std::atomic<bool> left{false};
    std::size_t callsAtStop = 0;
    Recorder slow([&](CanMessage&) {
        if (stopsItselfToo)
            ends[1]->Stop(&slow);
        entered.Open();
        leave.Pass();
        left = true;
    });
    ends[1]->Start(&slow);
    Thread sender([&] { SendNumbered(ends[0], 1, 5); });
    EXPECT_TRUE(entered.Pass());
    Thread stopper([&] {
        ends[1]->Stop(&slow);
        EXPECT_TRUE(left);
        callsAtStop = slow.Frames().size();
        stopped.Open();
    });
    EXPECT_FALSE(stopped.Pass(SHORT_LOOK)) << "Stop() returned while the handler was running";
    leave.Open();
    EXPECT_TRUE(stopped.Pass());
    sender.Join();
    Settle(ends[0], ends[1]);
    EXPECT_EQ(slow.Frames().size(), callsAtStop) << "the handler was called after Stop()";
}

void StopWaitsForTheRunningCall(const CanBusUnderTest& bus)
{
    ExpectStopToWait(bus, false);
}

void StopWaitsForTheCallOfAHandlerThatHasStoppedItself(const CanBusUnderTest& bus)
{
    ExpectStopToWait(bus, true);
}

void NoCallBeginsAfterStopWhileFramesPour(const CanBusUnderTest& bus)
{
    const Connections ends = bus.connect(2);
    std::atomic<bool> late{false};
    for (unsigned int round = 0; round < 40; ++round) {
        std::atomic<bool> stopped{false};
        Recorder recorder([&](CanMessage&) {
            if (stopped)
                late = true;
        });
        ends[1]->Start(&recorder);
        const Thread sender([&] { SendNumbered(ends[0], 1, 20); });
        EXPECT_TRUE(recorder.AwaitCount(1));
        ends[1]->Stop(&recorder);
        stopped = true;
    }
    EXPECT_FALSE(late);
}

void AHandlerMayStopItself(const CanBusUnderTest& bus)
{
    const Connections ends = bus.connect(2);
    Recorder leaving([&](CanMessage&) { ends[1]->Stop(&leaving); });
    Ear staying(ends[1]);
    ends[1]->Start(&leaving);
    Send(ends[0], 1);
    Settle(ends[0], ends[1]);
    Send(ends[0], 2);
    Settle(ends[0], ends[1]);
    EXPECT_EQ(Heard(leaving), std::vector<unsigned int>{1});
    EXPECT_EQ(Heard(staying), Numbers(1, 2));
}

void AHandlerMayStopAnother(const CanBusUnderTest& bus)
{
    const Connections ends = bus.connect(2);
    Recorder* others[2] = {};
    Recorder one([&](CanMessage&) { ends[1]->Stop(others[1]); });
    Recorder two([&](CanMessage&) { ends[1]->Stop(others[0]); });
    others[0] = &one;
    others[1] = &two;
    ends[1]->Start(&one);
    ends[1]->Start(&two);
    Ear staying(ends[1]);
    Send(ends[0], 1);
    Settle(ends[0], ends[1]);
    ends[1]->Stop(&one);
    ends[1]->Stop(&two);
    EXPECT_EQ(Heard(one).size() + Heard(two).size(), 1u)
        << "whichever came first has stopped the other";
    EXPECT_EQ(Heard(staying), std::vector<unsigned int>{1}) << "a third one missed a frame";
}

void AHandlerMayStartAnother(const CanBusUnderTest& bus)
{
    const Connections ends = bus.connect(2);
    Recorder later;
    Gate started;
    {
        const Ear starting(ends[1], [&](CanMessage&) {
            ends[1]->Start(&later);
            started.Open();
        });
        Send(ends[0], 1);
        EXPECT_TRUE(started.Pass());
    }
    Send(ends[0], 2);
    Settle(ends[0], ends[1]);
    ends[1]->Stop(&later);
    const auto heard = Heard(later);
    EXPECT_EQ(std::count(heard.begin(), heard.end(), 2u), 1);
}

void ThrowBy(unsigned int header)
{
    switch (header) {
    case 1:
        throw std::runtime_error("contract: standard");
    case 2:
        throw CanException("contract: Poco", 1);
    case 3:
        throw std::string("contract: text");
    case 4:
        throw 42;
    default:
        break;
    }
}

void AHandlerThatThrowsStopsNothing(const CanBusUnderTest& bus)
{
    const auto act = [](CanMessage& message) { ThrowBy(message.GetHeader()); };
    const Connections ends = bus.connect(2);
    Ear first(ends[1], act);
    Ear second(ends[1], act);
    for (unsigned int header = 1; header <= 5; ++header)
        EXPECT_NO_THROW(Send(ends[0], header)) << "the sender is not to blame";
    for (Ear* const ear : {&first, &second}) {
        EXPECT_TRUE(ear->AwaitCount(5));
        EXPECT_EQ(InOrder(bus, ear->Headers()), Numbers(1, 5));
    }
}

void HandlersMayComeAndGoOnSeveralThreads(const CanBusUnderTest& bus)
{
    const Connections ends = bus.connect(2);
    Ear staying(ends[1]);
    const auto comeAndGo = [&] {
        for (unsigned int i = 0; i < 50; ++i) {
            Recorder passing;
            ends[1]->Start(&passing);
            ends[1]->Stop(&passing);
        }
    };
    {
        const Thread one(comeAndGo);
        const Thread two(comeAndGo);
        const Thread sender([&] { SendNumbered(ends[0], 0, 500); });
    }
    EXPECT_TRUE(staying.AwaitCount(500));
    EXPECT_EQ(InOrder(bus, staying.Headers()), Numbers(0, 500));
}

// Sending.

void AHandlerMaySend(const CanBusUnderTest& bus)
{
    constexpr unsigned int ANSWER = 0x1000;
    constexpr unsigned int ROUNDS = 100;
    const Connections ends = bus.connect(2);
    Gate done;
    const Ear answering(ends[1], [&](CanMessage& message) {
        if (message.GetHeader() < ANSWER)
            Send(ends[1], ANSWER + message.GetHeader());
    });
    const Ear asking(ends[0], [&](CanMessage& message) {
        const unsigned int header = message.GetHeader();
        if (header == ANSWER + ROUNDS)
            done.Open();
        else if (header > ANSWER)
            Send(ends[0], header - ANSWER + 1);
    });
    Send(ends[0], 1);
    EXPECT_TRUE(done.Pass()) << "the chain of answers broke";
}

void SeveralThreadsMaySend(const CanBusUnderTest& bus)
{
    constexpr unsigned int COUNT = 400;
    const Connections ends = bus.connect(2);
    Ear ear(ends[1]);
    {
        const Thread one([&] { SendNumbered(ends[0], 10000, COUNT); });
        const Thread two([&] { SendNumbered(ends[0], 20000, COUNT); });
        const Thread three([&] { SendNumbered(ends[0], 30000, COUNT); });
    }
    EXPECT_TRUE(ear.AwaitCount(3 * COUNT));
    std::vector<unsigned int> heard[3];
    for (const unsigned int header : ear.Headers())
        heard[std::min(header / 10000 - 1, 2u)].push_back(header);
    EXPECT_EQ(InOrder(bus, heard[0]), Numbers(10000, COUNT));
    EXPECT_EQ(InOrder(bus, heard[1]), Numbers(20000, COUNT));
    EXPECT_EQ(InOrder(bus, heard[2]), Numbers(30000, COUNT));
}

void BothEndsMaySendAtOnce(const CanBusUnderTest& bus)
{
    const Connections ends = bus.connect(2);
    Ear atFirst(ends[0]);
    Ear atSecond(ends[1]);
    {
        const Thread one([&] { SendNumbered(ends[0], 10000, 500); });
        const Thread two([&] { SendNumbered(ends[1], 20000, 500); });
    }
    Settle(ends[0], ends[1]);
    Settle(ends[1], ends[0]);
    const auto count = [](const std::vector<unsigned int>& headers, unsigned int first) {
        return std::count_if(headers.begin(), headers.end(), [&](unsigned int header) {
            return header >= first && header < first + 500;
        });
    };
    EXPECT_EQ(count(atSecond.Headers(), 10000), 500);
    EXPECT_EQ(count(atFirst.Headers(), 20000), 500);
}

// Coming and going.

void IsHeardAgainAfterARestart(const CanBusUnderTest& bus)
{
    const Connections ends = bus.connect(2);
    Recorder recorder;
    Recorder other;
    for (unsigned int header = 1; header <= 3; ++header) {
        ends[1]->Start(&recorder);
        Send(ends[0], header);
        EXPECT_TRUE(recorder.AwaitCount(header));
        ends[1]->Stop(&recorder);
    }
    EXPECT_EQ(recorder.Headers(), Numbers(1, 3));
    ends[1]->Start(&other);
    Send(ends[0], 4);
    EXPECT_TRUE(other.AwaitCount(1));
    ends[1]->Stop(&other);
}

/// Says when a frame has gone over the bus: with a third connection as a witness, else Send() is
/// taken at its word.
class Witness
{
public:
    Witness(const CanBusUnderTest& bus, const Connections& ends)
    {
        if (bus.connectsThree)
            mEar = std::make_unique<Ear>(ends[2]);
    }

    void Sent() { ++mSent; }
    std::size_t Seen() { return mEar ? mEar->Frames().size() : mSent.load(); }
    bool Await(std::size_t count) { return mEar == nullptr || mEar->AwaitCount(count); }

private:
    std::unique_ptr<Ear> mEar;
    std::atomic<std::size_t> mSent{0};
};

void WhatCameWithoutAHandlerIsNotHeardAfterARestart(const CanBusUnderTest& bus)
{
    const Connections ends = bus.connect(bus.connectsThree ? 3 : 2);
    Witness witness(bus, ends);
    Send(ends[0], 1);
    EXPECT_TRUE(witness.Await(1));
    Recorder recorder;
    ends[1]->Start(&recorder);
    Send(ends[0], 2);
    EXPECT_TRUE(recorder.AwaitCount(1));
    ends[1]->Stop(&recorder);
    Send(ends[0], 3);
    EXPECT_TRUE(witness.Await(3));
    ends[1]->Start(&recorder);
    Settle(ends[0], ends[1]);
    ends[1]->Stop(&recorder);
    EXPECT_EQ(Heard(recorder), std::vector<unsigned int>{2});
}

/// The handler is held until more frames wait than a bus takes at once. In its next call it gives
/// way to another one, which may get what comes afterwards, but nothing of what waits.
void WhatWaitedForAStoppedHandlerIsNotHeardAfterARestart(const CanBusUnderTest& bus)
{
    constexpr std::size_t COUNT = 100;
    const Connections ends = bus.connect(bus.connectsThree ? 3 : 2);
    Witness witness(bus, ends);
    Gate entered;
    Gate leave;
    Gate restarted;
    std::size_t gone = 0;
    Recorder fresh;
    Recorder slow([&](CanMessage&) {
        entered.Open();
        leave.Pass();
        if (slow.Frames().size() == 1)
            return;
        gone = witness.Seen();
        ends[1]->Stop(&slow);
        ends[1]->Start(&fresh);
        restarted.Open();
    });
    ends[1]->Start(&slow);
    Thread sender([&] {
        for (unsigned int header = 1; header <= COUNT; ++header) {
            Send(ends[0], header);
            witness.Sent();
        }
    });
    EXPECT_TRUE(entered.Pass());
    // Where the sender runs the handlers it is held up itself, and the look is in vain.
    Gate neverOpened;
    for (int i = 0; i < 10 && witness.Seen() < COUNT; ++i)
        neverOpened.Pass(SHORT_LOOK);
    leave.Open();
    EXPECT_TRUE(restarted.Pass());
    sender.Join();
    Settle(ends[0], ends[1]);
    ends[1]->Stop(&fresh);
    EXPECT_LE(Heard(fresh).size(), COUNT - gone) << "heard what was on the bus before Start()";
}

void GoesAtOnceWithHandlersStillStarted(const CanBusUnderTest& bus)
{
    Connections ends = bus.connect(2);
    Recorder first;
    Recorder second;
    ends[1]->Start(&first);
    ends[1]->Start(&second);
    const auto begin = std::chrono::steady_clock::now();
    ends[1].reset();
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(5));
}

void CallsNobodyOnceItHasGone(const CanBusUnderTest& bus)
{
    Connections ends = bus.connect(2);
    std::atomic<bool> gone{false};
    std::atomic<bool> late{false};
    const auto look = [&](CanMessage&) {
        if (gone)
            late = true;
    };
    {
        Recorder first(look);
        Recorder second(look);
        ends[1]->Start(&first);
        ends[1]->Start(&second);
        const Thread sender([&] { SendNumbered(ends[0], 0, 300); });
        EXPECT_TRUE(first.AwaitCount(1));
        ends[1].reset();
        gone = true;
    }
    EXPECT_FALSE(late);
}

void MayGoInsideItsOwnHandler(const CanBusUnderTest& bus)
{
    // Never destroyed: the last call may still be on its way out when the test has ended.
    static auto* const handlers = new std::deque<Recorder>;
    Connections ends = bus.connect(2);
    Gate gone;
    Recorder& closing = handlers->emplace_back([&](CanMessage&) {
        ends[1].reset();
        gone.Open();
    });
    ends[1]->Start(&closing);
    Send(ends[0], 1);
    EXPECT_TRUE(gone.Pass());
    EXPECT_NO_THROW(Send(ends[0], 2));
    EXPECT_EQ(closing.Headers(), std::vector<unsigned int>{1});
}

struct Entry {
    const char* name;
    ContractTest::Body body;
    bool CanBusUnderTest::*needs; ///< null: nothing
};

#define ENTRY(function, needs)                                                                     \
    {                                                                                              \
#function, function, needs                                                                 \
    }

constexpr Entry ENTRIES[] = {
    ENTRY(CarriesFramesOfEveryLengthBothWays, nullptr),
    ENTRY(CarriesFramesWithElevenBits, &CanBusUnderTest::carriesElevenBits),
    ENTRY(CarriesRemoteRequests, &CanBusUnderTest::carriesRemoteRequests),
    ENTRY(CarriesErrorFrames, &CanBusUnderTest::carriesErrorFrames),
    ENTRY(LeavesTheSendersFrameAsItIs, nullptr),
    ENTRY(KeepsTheOrderOfASender, &CanBusUnderTest::keepsOrder),
    ENTRY(OwnFramesAreNotHeard, &CanBusUnderTest::hearsOnlyOthers),
    ENTRY(EveryOtherConnectionHearsAFrame, &CanBusUnderTest::connectsThree),
    ENTRY(EachHandlerGetsACopyOfItsOwn, nullptr),
    ENTRY(AHandlerThatIsStartedTwiceIsCalledOnce, nullptr),
    ENTRY(StopOfAnUnknownHandlerIsNoError, nullptr),
    ENTRY(StopWaitsForTheRunningCall, nullptr),
    ENTRY(StopWaitsForTheCallOfAHandlerThatHasStoppedItself, nullptr),
    ENTRY(NoCallBeginsAfterStopWhileFramesPour, nullptr),
    ENTRY(AHandlerMayStopItself, nullptr),
    ENTRY(AHandlerMayStopAnother, nullptr),
    ENTRY(AHandlerMayStartAnother, nullptr),
    ENTRY(AHandlerThatThrowsStopsNothing, &CanBusUnderTest::catchesExceptions),
    ENTRY(HandlersMayComeAndGoOnSeveralThreads, nullptr),
    ENTRY(AHandlerMaySend, nullptr),
    ENTRY(SeveralThreadsMaySend, nullptr),
    ENTRY(BothEndsMaySendAtOnce, nullptr),
    ENTRY(IsHeardAgainAfterARestart, nullptr),
    ENTRY(WhatCameWithoutAHandlerIsNotHeardAfterARestart, &CanBusUnderTest::forgetsUnheard),
    ENTRY(WhatWaitedForAStoppedHandlerIsNotHeardAfterARestart, &CanBusUnderTest::forgetsUnheard),
    ENTRY(GoesAtOnceWithHandlersStillStarted, nullptr),
    ENTRY(CallsNobodyOnceItHasGone, nullptr),
    ENTRY(MayGoInsideItsOwnHandler, &CanBusUnderTest::mayGoInsideItsHandler),
};

} // namespace

bool AddCanBusContract(const CanBusUnderTest& bus)
{
    for (const Entry& entry : ENTRIES) {
        if (entry.needs == nullptr || bus.*entry.needs)
            ContractTest::Add("CanBusContract", entry.name, bus, entry.body);
    }
    return true;
}

} // namespace tarn::contract
