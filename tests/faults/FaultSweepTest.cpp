#include "faults/World.h"
#include "support/AllocationCounter.h"
#include "support/CaseName.h"
#include "support/MutexFaults.h"
#include "support/OwnProcess.h"

#include <plexa_can/CanException.h>

#include <Poco/AutoPtr.h>
#include <Poco/Channel.h>
#include <Poco/Exception.h>
#include <Poco/Logger.h>
#include <gtest/gtest.h>

#include <memory>
#include <new>
#include <ostream>
#include <sstream>
#include <string>
#include <vector>

// Every operation is run again and again, each time in a process of its own in which no log
// statement has been decided yet, and the first, the second, ... of its lock, unlock and broadcast
// calls and of its allocations is made to fail, until it gets through untouched.

namespace
{

using namespace tarn;
using namespace tarn::test;
using Source = HandlerFamilies::Source;
using Target = HandlerFamilies::Target;
using Chcp = HandlerFamilies::Chcp;
using All = HandlerFamilies::All;

enum tFault : unsigned int { LOCK, UNLOCK, BROADCAST, ALLOCATION };

/// What came of a run with one fault, a character each: what was let out, and the state that the
/// row describes.
struct Expected {
    const char* outcomes; ///< for the first, second, ... fault; the last is the untouched run
    const char* states;
};

using Action = std::function<void(World&)>;
using State = std::function<char(World&)>;

struct Row {
    std::string name;
    Action prepare;
    Action run;
    State state;
    /// Of failing locks and unlocks; nothing is expected of a row without.
    Expected locks = {nullptr, nullptr};
    Expected unlocks = {nullptr, nullptr};
    /// The same where the loggers write trace lines, if that makes a difference.
    Expected tracingLocks = locks;
    Expected tracingUnlocks = unlocks;
};

void PrintTo(const Row& row, std::ostream* out)
{
    *out << row.name;
}

// 'L' cannot lock mutex, 'U' cannot unlock mutex, 'S' cannot signal event (lock), 'B' cannot signal
// event, 'W' the wait's own failure, 'A' no memory, 'C' no connection, '.' nothing.
char LetterOf(const Poco::SystemException& exception)
{
    const std::string& text = exception.message();
    if (exception.code() != 0)
        return '?';
    return text == "cannot lock mutex"              ? 'L'
           : text == "cannot unlock mutex"          ? 'U'
           : text == "cannot signal event (lock)"   ? 'S'
           : text == "cannot signal event"          ? 'B'
           : text == "wait for event failed (lock)" ? 'W'
                                                    : '?';
}

template <typename Operation>
char OutcomeOf(const Operation& operation)
{
    try {
        operation();
    } catch (const Poco::SystemException& exception) {
        return LetterOf(exception);
    } catch (const CanException&) {
        return 'C';
    } catch (const std::bad_alloc&) {
        return 'A';
    }
    return '.';
}

struct Run {
    char outcome;
    bool hit; ///< the operation got as far as the call that was to fail
};

Run RunWithLockFault(const Row& row, World& world, tFault kind, unsigned int nth)
{
    const auto call = static_cast<support::tMutexCall>(kind);
    const unsigned int before = support::CallsSoFar(call);
    const char outcome = OutcomeOf([&] {
        const support::MutexFault fault(call, nth);
        row.run(world);
    });
    return {outcome, support::CallsSoFar(call) - before >= nth};
}

Run RunWithAllocationFault(const Row& row, World& world, unsigned int nth)
{
    const unsigned long before = support::AllocationsSoFar();
    const char outcome = OutcomeOf([&] {
        const support::AllocationFault fault(nth);
        row.run(world);
    });
    return {outcome, support::AllocationsSoFar() - before >= nth};
}

/// Takes every line and keeps none, without a lock.
class PlainChannel : public Poco::Channel
{
public:
    void log(const Poco::Message& message) override { mSize += message.getText().size(); }

private:
    std::size_t mSize = 0;
};

/// Sets up what the process keeps for good, so that it does not count as leaked.
void PrepareProcess(int level)
{
    static const Poco::AutoPtr<PlainChannel> channel(new PlainChannel);
    for (const char* name : {"TarnAsyncDispatcher", "TarnAsyncDispatcherMock", "TarnSyncRequest"}) {
        Poco::Logger::get(name).setChannel(channel);
        Poco::Logger::get(name).setLevel(level);
    }
    std::ostringstream() << 1;
    World empty;
    GetLoggerMutex();
    EXPECT_TRUE(NoLockIsHeld(empty));
}

/// "OS" with the outcome and the state; more where something went wrong or the fault was not hit.
void ObserveInWorld(const Row& row, tFault kind, unsigned int nth, std::string& text)
{
    auto world = std::make_unique<World>();
    row.prepare(*world);
    const Run run = kind == ALLOCATION ? RunWithAllocationFault(row, *world, nth)
                                       : RunWithLockFault(row, *world, kind, nth);
    text += run.outcome;
    text += row.state(*world);
    if (!run.hit)
        text += " untouched";
    if (!NoLockIsHeld(*world)) {
        text += " and a lock is still held";
        (void)world.release(); // the other thread is in it
    }
}

std::string Observe(const Row& row, int level, tFault kind, unsigned int nth)
{
    return InOwnProcess([&] {
        PrepareProcess(level);
        std::string text;
        text.reserve(100);
        const long live = support::LiveAllocations();
        ObserveInWorld(row, kind, nth, text);
        if (support::LiveAllocations() != live)
            text += " and memory is leaked";
        return text;
    });
}

struct Sweep {
    std::string outcomes;
    std::string states;
};

constexpr unsigned int ENOUGH = 500;

Sweep SweepThrough(const Row& row, int level, tFault kind)
{
    Sweep sweep;
    for (unsigned int nth = 1; nth < ENOUGH; ++nth) {
        const std::string text = Observe(row, level, kind, nth);
        const bool untouched = text.size() > 2 && text.substr(2) == " untouched";
        if (!untouched && text.size() != 2) {
            ADD_FAILURE() << row.name << " with failing call " << nth << ": " << text;
            break;
        }
        sweep.outcomes += text[0];
        sweep.states += text[1];
        if (untouched)
            break;
    }
    return sweep;
}

/// The states that failures left, in their order. (A stream that runs out of memory cuts the line
/// short and lets the operation go on.)
std::string Stages(const std::string& outcomes, const std::string& states)
{
    std::string stages;
    for (std::size_t i = 0; i < states.size(); ++i) {
        const bool last = i + 1 == states.size();
        if ((outcomes[i] != '.' || last) && (stages.empty() || stages.back() != states[i]))
            stages += states[i];
    }
    return stages;
}

void ExpectSweep(const Row& row, int level, tFault kind, const Expected& expected,
                 const std::string& allowed)
{
    const Sweep sweep = SweepThrough(row, level, kind);
    EXPECT_EQ(sweep.outcomes.find_first_not_of(allowed), std::string::npos)
        << row.name << ": " << sweep.outcomes;
    if (expected.outcomes == nullptr)
        return;
    EXPECT_EQ(sweep.outcomes, expected.outcomes) << row.name;
    EXPECT_EQ(sweep.states, expected.states) << row.name;
}

// What is done before and looked at afterwards.

template <typename Dispatcher>
void Make(World& world)
{
    if constexpr (std::is_same_v<Dispatcher, TarnAsyncDispatcher>)
        world.dispatcher = new TarnAsyncDispatcher(world.bus);
    else
        world.mock = new TarnAsyncDispatcherMock;
}

template <typename Dispatcher>
void SubscribeA(World& world)
{
    Make<Dispatcher>(world);
    auto& dispatcher = *world.The<Dispatcher>();
    dispatcher.SubscribeSource(5, &world.a);
    dispatcher.SubscribeTarget(9, &world.a);
    dispatcher.SubscribeChcp(&world.a);
    dispatcher.SubscribeAll(&world.a);
}

template <typename Dispatcher, typename Family>
char Count(World& world)
{
    return static_cast<char>('0' + Subscriptions<Family>(*world.The<Dispatcher>()));
}

template <typename Dispatcher>
char HasNoSubscription(World& world)
{
    auto& dispatcher = *world.The<Dispatcher>();
    const bool none = Subscriptions<Source>(dispatcher) + Subscriptions<Target>(dispatcher) +
                          Subscriptions<Chcp>(dispatcher) + Subscriptions<All>(dispatcher) ==
                      0;
    return none ? 'n' : '!';
}

char Fine(World&)
{
    return '-';
}

/// How many own the connection.
char Owners(World& world)
{
    return static_cast<char>('0' + world.bus.use_count());
}

char BusState(World& world)
{
    if (world.bus->mSent != 0)
        return static_cast<char>('0' + world.bus->mSent);
    return world.bus->mHandler != nullptr ? 's' : '-';
}

bool Leave(TarnMessage&)
{
    return true;
}

/// Handlers in every family that leave at their first message.
template <typename Dispatcher>
void SubscribeLeaving(World& world)
{
    Make<Dispatcher>(world);
    auto& dispatcher = *world.The<Dispatcher>();
    for (RecordingHandler* handler : {&world.a, &world.b, &world.c, &world.d})
        handler->SetAction(Leave);
    dispatcher.SubscribeSource(5, &world.a);
    dispatcher.SubscribeTarget(9, &world.b);
    dispatcher.SubscribeChcp(&world.c);
    dispatcher.SubscribeAll(&world.d);
}

/// 'o' when the frame, dispatched again, has called every handler once: those that were called
/// before the fault have left, and only they.
template <typename Dispatcher, CanMessage World::*FRAME>
char EachCalledOnce(World& world)
{
    const bool isData = &(world.*FRAME) == &world.data;
    std::string expected = isData ? "AB" : "C";
    if (std::is_same_v<Dispatcher, TarnAsyncDispatcher>)
        expected += "D";
    world.The<Dispatcher>()->DispatchResponse(world.*FRAME);
    return world.calls == expected ? 'o' : '!';
}

// The rows: first what the dispatcher and the mock have in common.

template <typename Dispatcher>
constexpr bool IS_MOCK = std::is_same_v<Dispatcher, TarnAsyncDispatcherMock>;

// ENTER, Adding, the family, EXIT under it: the entry is there when that fails.
constexpr Expected ADDS_LOCKING = {"LLLL.", "00011"};
constexpr Expected ADDS_UNLOCKING = {"UUUU.", "00111"};
// ENTER, Deleting, the family, EXIT; three of the mock's have no Deleting.
constexpr Expected REMOVES_LOCKING = {"LLLL.", "11100"};
constexpr Expected REMOVES_UNLOCKING = {"UUUU.", "11000"};
constexpr Expected REMOVES_TERSELY_LOCKING = {"LLL.", "1100"};
constexpr Expected REMOVES_TERSELY_UNLOCKING = {"UUU.", "1000"};
// ENTER and the error line.
constexpr Expected REFUSES_LOCKING = {"LL.", "nnn"};
constexpr Expected REFUSES_UNLOCKING = {"UU.", "nnn"};

template <typename Dispatcher, typename Family>
void AddSubscriptionRows(std::vector<Row>& rows, const std::string& prefix, Action subscribe,
                         Action unsubscribe)
{
    const bool terse = IS_MOCK<Dispatcher> && !std::is_same_v<Family, All>;
    rows.push_back({prefix + Family::SUBSCRIBE, Make<Dispatcher>, std::move(subscribe),
                    Count<Dispatcher, Family>, ADDS_LOCKING, ADDS_UNLOCKING});
    rows.push_back({prefix + Family::UNSUBSCRIBE, SubscribeA<Dispatcher>, std::move(unsubscribe),
                    Count<Dispatcher, Family>, terse ? REMOVES_TERSELY_LOCKING : REMOVES_LOCKING,
                    terse ? REMOVES_TERSELY_UNLOCKING : REMOVES_UNLOCKING});
}

template <typename Dispatcher>
void AddRegistryRows(std::vector<Row>& rows, const std::string& prefix)
{
    const auto the = [](World& world) -> Dispatcher& { return *world.The<Dispatcher>(); };
    AddSubscriptionRows<Dispatcher, Source>(
        rows, prefix, [the](World& w) { the(w).SubscribeSource(5, &w.a); },
        [the](World& w) { the(w).UnsubscribeSource(5, &w.a); });
    AddSubscriptionRows<Dispatcher, Target>(
        rows, prefix, [the](World& w) { the(w).SubscribeTarget(9, &w.a); },
        [the](World& w) { the(w).UnsubscribeTarget(9, &w.a); });
    AddSubscriptionRows<Dispatcher, Chcp>(
        rows, prefix, [the](World& w) { the(w).SubscribeChcp(&w.a); },
        [the](World& w) { the(w).UnsubscribeChcp(&w.a); });
    AddSubscriptionRows<Dispatcher, All>(
        rows, prefix, [the](World& w) { the(w).SubscribeAll(&w.a); },
        [the](World& w) { the(w).UnsubscribeAll(&w.a); });
}

template <typename Dispatcher>
void AddRefusalRows(std::vector<Row>& rows, const std::string& prefix)
{
    const auto add = [&](const std::string& name, void (*run)(Dispatcher&, World&)) {
        rows.push_back({prefix + name, Make<Dispatcher>,
                        [run](World& w) { run(*w.The<Dispatcher>(), w); },
                        HasNoSubscription<Dispatcher>, REFUSES_LOCKING, REFUSES_UNLOCKING});
    };
    add("SubscribeSourceRefused", [](auto& d, World& w) { d.SubscribeSource(127, &w.a); });
    add("SubscribeSourceNull", [](auto& d, World&) { d.SubscribeSource(5, nullptr); });
    add("UnsubscribeSourceRefused", [](auto& d, World& w) { d.UnsubscribeSource(127, &w.a); });
    add("SubscribeTargetRefused", [](auto& d, World& w) { d.SubscribeTarget(127, &w.a); });
    add("SubscribeTargetNull", [](auto& d, World&) { d.SubscribeTarget(9, nullptr); });
    add("UnsubscribeTargetRefused", [](auto& d, World& w) { d.UnsubscribeTarget(127, &w.a); });
    add("SubscribeChcpNull", [](auto& d, World&) { d.SubscribeChcp(nullptr); });
    add("SubscribeAllNull", [](auto& d, World&) { d.SubscribeAll(nullptr); });
}

/// In every family a handler that does to its own and the next family all that a handler may.
template <typename Dispatcher>
void SubscribeBusy(World& world)
{
    Make<Dispatcher>(world);
    auto& dispatcher = *world.The<Dispatcher>();
    world.a.SetAction([&world, &dispatcher](TarnMessage&) {
        dispatcher.UnsubscribeSource(5, &world.a);
        dispatcher.SubscribeSource(5, &world.b);
        dispatcher.SubscribeTarget(9, &world.b);
        dispatcher.DispatchResponse(world.chcp);
        dispatcher.DispatchResponse(world.data);
        return true;
    });
    world.b.SetAction(Leave);
    dispatcher.SubscribeSource(5, &world.a);
    dispatcher.SubscribeSource(5, &world.b);
    dispatcher.SubscribeTarget(9, &world.c);
    dispatcher.SubscribeChcp(&world.b);
    dispatcher.SubscribeChcp(&world.c);
    dispatcher.SubscribeAll(&world.d);
}

/// 'u' when the lists can still be walked, changed on the way, and emptied.
template <typename Dispatcher>
char ListsAreUsable(World& world)
{
    auto& dispatcher = *world.The<Dispatcher>();
    for (RecordingHandler* handler : {&world.a, &world.b, &world.c, &world.d}) {
        dispatcher.UnsubscribeSource(5, handler);
        dispatcher.UnsubscribeTarget(9, handler);
        dispatcher.UnsubscribeChcp(handler);
        dispatcher.UnsubscribeAll(handler);
    }
    if (HasNoSubscription<Dispatcher>(world) != 'n')
        return '!';
    world.a.SetAction({});
    world.b.SetAction([&](TarnMessage&) {
        dispatcher.UnsubscribeSource(5, &world.b);
        return true;
    });
    for (RecordingHandler* handler : {&world.a, &world.b, &world.c})
        dispatcher.SubscribeSource(5, handler);
    world.calls.clear();
    dispatcher.DispatchResponse(world.data);
    dispatcher.DispatchResponse(world.data);
    return world.calls == "ABCAC" ? 'u' : '!';
}

template <typename Dispatcher>
void AddBusyRow(std::vector<Row>& rows, const std::string& prefix)
{
    rows.push_back({prefix + "HandlersThatDoEverything", SubscribeBusy<Dispatcher>,
                    [](World& w) { w.The<Dispatcher>()->DispatchResponse(w.data); },
                    ListsAreUsable<Dispatcher>});
}

template <typename Dispatcher>
void AddCommonRows(std::vector<Row>& rows, const std::string& prefix)
{
    AddRegistryRows<Dispatcher>(rows, prefix);
    AddRefusalRows<Dispatcher>(rows, prefix);
    AddBusyRow<Dispatcher>(rows, prefix);
}

void Nothing(World&) {}

void MakeUnconnected(World& world)
{
    world.bus.reset();
    world.dispatcher = new TarnAsyncDispatcher(world.bus);
}

void MakeStarted(World& world)
{
    Make<TarnAsyncDispatcher>(world);
    world.dispatcher->Start();
}

std::vector<Row> DispatcherLifeRows()
{
    return {
        // The registry of loggers, of which Poco keeps a failing unlock to itself; ENTER, EXIT.
        {"New", Nothing, Make<TarnAsyncDispatcher>, Owners, {"LLL.", "1112"}, {".UU.", "2112"}},
        {"Create", Nothing, [](World& w) { w.kept = TarnAsyncDispatcher::Create(w.bus); }, Owners},
        {"Delete",
         SubscribeA<TarnAsyncDispatcher>,
         [](World& w) { World::Delete(w.dispatcher); },
         Owners,
         {"LL.", "111"},
         {"UU.", "111"}},
        {"Start",
         Make<TarnAsyncDispatcher>,
         [](World& w) { w.dispatcher->Start(); },
         BusState,
         {"LL.", "-ss"},
         {"UU.", "-ss"}},
        {"Stop",
         MakeStarted,
         [](World& w) { w.dispatcher->Stop(); },
         BusState,
         {"LL.", "s--"},
         {"UU.", "s--"}},
        // ENTER, Sending, the message twice, EXIT.
        {"Send",
         Make<TarnAsyncDispatcher>,
         [](World& w) { w.dispatcher->Send(w.asked); },
         BusState,
         {"LLLLL.", "----11"},
         {"UUUUU.", "----11"}},
        {"StartUnconnected",
         MakeUnconnected,
         [](World& w) { w.dispatcher->Start(); },
         Fine,
         {"LLC", "---"},
         {"UUC", "---"}},
        // ENTER, the complaint, EXIT.
        {"StopUnconnected",
         MakeUnconnected,
         [](World& w) { w.dispatcher->Stop(); },
         Fine,
         {"LLL.", "----"},
         {"UUU.", "----"}},
        {"SendUnconnected",
         MakeUnconnected,
         [](World& w) { w.dispatcher->Send(w.asked); },
         Fine,
         {"LLL.", "----"},
         {"UUU.", "----"}}};
}

std::vector<Row> DispatcherRoutingRows()
{
    return {
        // ENTER, the type, Can-Msg; source and target: the family, the address, Dispatching,
        // Removing; All: the family, Dispatching, Removing; EXIT. A trace line with a number asks
        // the message for it.
        {"DispatchData",
         SubscribeLeaving<TarnAsyncDispatcher>,
         [](World& w) { w.dispatcher->DispatchResponse(w.data); },
         EachCalledOnce<TarnAsyncDispatcher, &World::data>,
         {"LLLLLLLLLLLLLLL.", "oooooooooooooooo"},
         {"UUUUUUUUUUUUUUU.", "oooooooooooooooo"},
         {"LLLLLLLLLLLLLLLLLLLL.", "ooooooooooooooooooooo"},
         {"UUUUUUUUUUUUUUUUUUUU.", "ooooooooooooooooooooo"}},
        // ENTER, the type; twice the family, Dispatching, Removing; EXIT.
        {"DispatchChcp",
         SubscribeLeaving<TarnAsyncDispatcher>,
         [](World& w) { w.dispatcher->DispatchResponse(w.chcp); },
         EachCalledOnce<TarnAsyncDispatcher, &World::chcp>,
         {"LLLLLLLLL.", "oooooooooo"},
         {"UUUUUUUUU.", "oooooooooo"},
         {"LLLLLLLLLLL.", "oooooooooooo"},
         {"UUUUUUUUUUU.", "oooooooooooo"}},
        {"DispatchNoTarn",
         SubscribeLeaving<TarnAsyncDispatcher>,
         [](World& w) { w.dispatcher->DispatchResponse(w.noTarn); },
         [](World& w) { return w.calls.empty() ? 'n' : '!'; },
         {"L.", "nn"},
         {"U.", "nn"}}};
}

std::vector<Row> DispatcherRows()
{
    std::vector<Row> rows = DispatcherLifeRows();
    for (const Row& row : DispatcherRoutingRows())
        rows.push_back(row);
    AddCommonRows<TarnAsyncDispatcher>(rows, "");
    return rows;
}

std::vector<Row> MockRows()
{
    const Expected locks = {"LL.", "---"};
    const Expected unlocks = {"UU.", "---"};
    std::vector<Row> rows = {
        {"New", Nothing, Make<TarnAsyncDispatcherMock>, Fine, {"LLL.", "----"}, {".UU.", "----"}},
        {"Create", Nothing, [](World& w) { w.kept = TarnAsyncDispatcherMock::Create(); }, Fine},
        {"Delete", SubscribeA<TarnAsyncDispatcherMock>, [](World& w) { World::Delete(w.mock); },
         Fine, locks, unlocks},
        {"Start", Make<TarnAsyncDispatcherMock>, [](World& w) { w.mock->Start(); }, Fine, locks,
         unlocks},
        {"Stop", Make<TarnAsyncDispatcherMock>, [](World& w) { w.mock->Stop(); }, Fine, locks,
         unlocks},
        {"Send", Make<TarnAsyncDispatcherMock>, [](World& w) { w.mock->Send(w.asked); }, Fine,
         locks, unlocks},
        // As the dispatcher's, without All.
        {"DispatchData",
         SubscribeLeaving<TarnAsyncDispatcherMock>,
         [](World& w) { w.mock->DispatchResponse(w.data); },
         EachCalledOnce<TarnAsyncDispatcherMock, &World::data>,
         {"LLLLLLLLLLLL.", "ooooooooooooo"},
         {"UUUUUUUUUUUU.", "ooooooooooooo"},
         {"LLLLLLLLLLLLLLLL.", "ooooooooooooooooo"},
         {"UUUUUUUUUUUUUUUU.", "ooooooooooooooooo"}},
        // ENTER, the type, Dispatching, Removing, EXIT: the family is not locked.
        {"DispatchChcp",
         SubscribeLeaving<TarnAsyncDispatcherMock>,
         [](World& w) { w.mock->DispatchResponse(w.chcp); },
         EachCalledOnce<TarnAsyncDispatcherMock, &World::chcp>,
         {"LLLLL.", "oooooo"},
         {"UUUUU.", "oooooo"},
         {"LLLLLL.", "ooooooo"},
         {"UUUUUU.", "ooooooo"}}};
    AddCommonRows<TarnAsyncDispatcherMock>(rows, "");
    return rows;
}

void MakeRequest(World& world)
{
    world.request = new TarnSyncRequest(world.plain);
}

void MakeWaiting(World& world)
{
    MakeRequest(world);
    world.request->Send(world.asked, world.got, 0);
}

void MakeAnswered(World& world)
{
    MakeRequest(world);
    world.plain->mAnswer = &world.answer;
}

/// 'p' with a response pending; '-' without.
char Pending(World& world)
{
    TarnMessage response;
    world.plain->mAnswer = nullptr;
    const bool pending = world.request->Send(world.asked, response, 0);
    if (pending && !(response == world.answer))
        return '!';
    return pending ? 'p' : '-';
}

/// 's' while the request is subscribed; '-' when it is not.
char Subscribed(World& world)
{
    world.plain->mAnswer = nullptr;
    return world.plain->mHandler != nullptr ? 's' : '-';
}

/// 'r' when the caller has its response.
char Answered(World& world)
{
    world.plain->mAnswer = nullptr;
    return world.got == world.answer ? 'r' : Subscribed(world);
}

char DispatcherOwners(World& world)
{
    return static_cast<char>('0' + world.plain.use_count());
}

std::vector<Row> RequestRows()
{
    return {// The registry of loggers, ten locks for each of the two messages, ENTER, EXIT.
            {"New",
             Nothing,
             MakeRequest,
             DispatcherOwners,
             {"LLLLLLLLLLLLLLLLLLLLLLL.", "111111111111111111111112"},
             {".UUUUUUUUUUUUUUUUUUUUUU.", "211111111111111111111112"}},
            {"Create", Nothing, [](World& w) { w.keptRequest = TarnSyncRequest::Create(w.plain); },
             DispatcherOwners},
            // The response mutex, ENTER, EXIT.
            {"Delete",
             MakeRequest,
             [](World& w) { World::Delete(w.request); },
             DispatcherOwners,
             {"LLL.", "1111"},
             {"UUU.", "1111"}},
            // The response mutex, ENTER, 17 getters, the copy, the event, EXIT.
            {"Accept",
             MakeWaiting,
             [](World& w) { w.request->DispatchResponse(w.answer); },
             Pending,
             {"LLLLLLLLLLLLLLLLLLLLSL.", "---------------------pp"},
             {"UUUUUUUUUUUUUUUUUUU.UU.", "-------------------pppp"}},
            // The response mutex, ENTER, the first getters that tell, EXIT.
            {"Refuse",
             MakeWaiting,
             [](World& w) { w.request->DispatchResponse(w.asked); },
             Pending,
             {"LLLLLLLLLL.", "-----------"},
             {"UUUUUUUUUU.", "-----------"}},
            // The send mutex, ENTER, Adding, the address; Sending, the copy, Waiting, the wait, the
            // time-out, the address.
            {"SendInVain",
             MakeRequest,
             [](World& w) { w.request->Send(w.asked, w.got, 0); },
             Subscribed,
             {"LLLLLLLWLL.", "----ssssss-"},
             {"UUUUUU.UUU.", "---sss-ss--"}},
            // As far as the copy the same, then the response as above, which ends the subscription;
            // Waiting, the wait, the response mutex, EXIT, the copy.
            {"SendAnswered",
             MakeAnswered,
             [](World& w) { w.request->Send(w.asked, w.got, 0); },
             Answered,
             {"LLLLLL"
              "LLLLLLLLLLLLLLLLLLLLSL"
              "LWLLL.",
              "----ss"
              "ssssssssssssssssssssss"
              "-----r"},
             {"UUUUU"
              "UUUUUUUUUUUUUUUUUUU.UU"
              "U.UUUU.",
              "---ss"
              "sssssssssssssssssssrss"
              "-r-rrrr"}}};
}

std::vector<Row> WholeStackRows()
{
    const auto prepare = [](World& world) {
        MakeStarted(world);
        world.bus->mAnswer = &world.answerFrame;
        world.request = new TarnSyncRequest(
            std::tr1::shared_ptr<iTarnAsyncDispatcher>(world.dispatcher, [](auto*) {}));
    };
    return {{"Exchange", prepare, [](World& w) { w.request->Send(w.asked, w.got, 0); },
             [](World& world) {
                 world.bus->mAnswer = nullptr;
                 world.dispatcher->UnsubscribeSource(9, world.request);
                 const bool sent = world.bus->mSent != 0;
                 return world.got == world.answer && !sent ? '!' : '-';
             }}};
}

class FaultSweep : public testing::TestWithParam<Row>
{
};

TEST_P(FaultSweep, EveryFailingLockComesOut)
{
    const Row& row = GetParam();
    ExpectSweep(row, Poco::Message::PRIO_INFORMATION, LOCK, row.locks, "LSW.C");
    ExpectSweep(row, Poco::Message::PRIO_TRACE, LOCK, row.tracingLocks, "LSW.C");
}

TEST_P(FaultSweep, EveryFailingUnlockComesOut)
{
    const Row& row = GetParam();
    ExpectSweep(row, Poco::Message::PRIO_INFORMATION, UNLOCK, row.unlocks, "U.C");
    ExpectSweep(row, Poco::Message::PRIO_TRACE, UNLOCK, row.tracingUnlocks, "U.C");
}

/// Where memory runs out in an operation, as far as it gets it stays in one of the states that a
/// failing lock leaves, in the same order.
TEST_P(FaultSweep, RunningOutOfMemoryComesOut)
{
    const Row& row = GetParam();
    for (const int level : {Poco::Message::PRIO_INFORMATION, Poco::Message::PRIO_TRACE}) {
        const Sweep sweep = SweepThrough(row, level, ALLOCATION);
        EXPECT_EQ(sweep.outcomes.find_first_not_of("A.C"), std::string::npos) << sweep.outcomes;
        EXPECT_EQ(sweep.states.find('!'), std::string::npos) << sweep.states;
        if (row.locks.states != nullptr) {
            const std::string known = Stages(row.locks.outcomes, row.locks.states);
            EXPECT_NE(known.find(Stages(sweep.outcomes, sweep.states)), std::string::npos)
                << sweep.outcomes << "\n"
                << sweep.states;
        }
    }
}

TEST_P(FaultSweep, AFailingBroadcastComesOut)
{
    ExpectSweep(GetParam(), Poco::Message::PRIO_TRACE, BROADCAST, {nullptr, nullptr}, "B.C");
}

INSTANTIATE_TEST_SUITE_P(Dispatcher, FaultSweep, testing::ValuesIn(DispatcherRows()),
                         support::CaseName());
INSTANTIATE_TEST_SUITE_P(Mock, FaultSweep, testing::ValuesIn(MockRows()), support::CaseName());
INSTANTIATE_TEST_SUITE_P(Request, FaultSweep, testing::ValuesIn(RequestRows()),
                         support::CaseName());
INSTANTIATE_TEST_SUITE_P(WholeStack, FaultSweep, testing::ValuesIn(WholeStackRows()),
                         support::CaseName());

} // namespace
