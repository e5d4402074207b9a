#include "support/DispatchFakes.h"
#include "support/LogCapture.h"
#include "support/OwnProcess.h"
#include "support/ScriptedDispatcher.h"

#include <plexa_can/CanException.h>
#include <tarn/TarnAsyncDispatcher.h>
#include <tarn/TarnAsyncDispatcherMock.h>
#include <tarn/TarnSyncRequest.h>

#include <gtest/gtest.h>

#include <locale>
#include <string>

// Whether a log statement is active is decided once in the life of a process, so each test runs
// what it observes in a process of its own.

namespace
{

using namespace tarn;
using namespace tarn::test;
using Poco::Message;

using CanDispatcher = std::tr1::shared_ptr<iCanAsyncDispatcher>;

/// Every line in the text, with "TYPE::" and the logger's name put before and behind the operation.
std::string Lines(const std::string& logger, const std::string& type,
                  std::initializer_list<std::string> lines)
{
    std::string text;
    for (const std::string& line : lines)
        text += line.substr(0, 2) + logger + " " + type + "::" + line.substr(2) + "\n";
    return text;
}

std::string DispatcherLines(std::initializer_list<std::string> lines)
{
    return Lines("TarnAsyncDispatcher", "N4tarn19TarnAsyncDispatcherE", lines);
}

std::string MockLines(std::initializer_list<std::string> lines)
{
    return Lines("TarnAsyncDispatcherMock", "N4tarn23TarnAsyncDispatcherMockE", lines);
}

std::string SyncLines(std::initializer_list<std::string> lines)
{
    return Lines("TarnSyncRequest", "N4tarn15TarnSyncRequestE", lines);
}

bool Done(TarnMessage&)
{
    return true;
}

template <typename Dispatcher>
void SubscribeAndUnsubscribeEverywhere(Dispatcher& dispatcher, iTarnMessageHandler* handler)
{
    dispatcher.SubscribeSource(5, handler);
    dispatcher.UnsubscribeSource(5, handler);
    dispatcher.SubscribeTarget(126, handler);
    dispatcher.UnsubscribeTarget(126, handler);
    dispatcher.SubscribeChcp(handler);
    dispatcher.UnsubscribeChcp(handler);
    dispatcher.SubscribeAll(handler);
    dispatcher.UnsubscribeAll(handler);
}

template <typename Dispatcher>
void SubscribeBadly(Dispatcher& dispatcher, iTarnMessageHandler* handler)
{
    dispatcher.SubscribeSource(127, handler);
    dispatcher.SubscribeSource(0xC8, nullptr);
    dispatcher.SubscribeSource(0, nullptr);
    dispatcher.UnsubscribeSource(127, handler);
    dispatcher.UnsubscribeSource(0, nullptr);
    dispatcher.SubscribeTarget(127, handler);
    dispatcher.SubscribeTarget(0, nullptr);
    dispatcher.UnsubscribeTarget(127, handler);
    dispatcher.UnsubscribeTarget(0, nullptr);
    dispatcher.SubscribeChcp(nullptr);
    dispatcher.UnsubscribeChcp(nullptr);
    dispatcher.SubscribeAll(nullptr);
    dispatcher.UnsubscribeAll(nullptr);
}

TEST(TraceLines, OfTheDispatchersLife)
{
    const std::string lines = InOwnProcess([] {
        auto capture = LogCapture::OnAll(Message::PRIO_TRACE);
        auto dispatcher = TarnAsyncDispatcher::Create(CanDispatcher(new RecordingCanDispatcher));
        TarnMessage message;
        dispatcher->Start();
        dispatcher->Send(message);
        dispatcher->Stop();
        dispatcher.reset();
        return capture->Take();
    });
    EXPECT_EQ(lines, DispatcherLines(
                         {"8 TarnAsyncDispatcher() - ENTER", "8 TarnAsyncDispatcher() - EXIT",
                          "8 Start() - ENTER", "8 Start() - EXIT", "8 Send() - ENTER",
                          "8 Send() - Sending message...", "8 Send() - EXIT", "8 Stop() - ENTER",
                          "8 Stop() - EXIT", "8 ~TarnAsyncDispatcher() - ENTER",
                          "8 ~TarnAsyncDispatcher() - EXIT"}));
}

TEST(TraceLines, OfADispatcherWithoutABus)
{
    const std::string lines = InOwnProcess([] {
        auto capture = LogCapture::OnAll(Message::PRIO_TRACE);
        const auto dispatcher = TarnAsyncDispatcher::Create(CanDispatcher());
        capture->Take();
        TarnMessage message;
        std::string thrown;
        try {
            dispatcher->Start();
        } catch (const CanException& exception) {
            thrown = std::to_string(exception.code()) + " " + exception.message() + "\n";
        }
        dispatcher->Stop();
        dispatcher->Send(message);
        return thrown + capture->Take();
    });
    EXPECT_EQ(lines, "0 N4tarn19TarnAsyncDispatcherE::Start() - mCanDispatcher is NULL!\n" +
                         DispatcherLines(
                             {"8 Start() - ENTER", "3 Start() - mCanDispatcher is NULL!",
                              "8 Stop() - ENTER", "3 Stop() - mCanDispatcher is NULL!",
                              "8 Stop() - EXIT", "8 Send() - ENTER",
                              "4 Send() - EXIT : mCanDispatcher invalid!", "8 Send() - EXIT"}));
}

TEST(TraceLines, OfALowerLayerThatThrowsEndWithoutExit)
{
    const std::string lines = InOwnProcess([] {
        auto capture = LogCapture::OnAll(Message::PRIO_TRACE);
        auto* const lower = new RecordingCanDispatcher;
        const auto dispatcher = TarnAsyncDispatcher::Create(CanDispatcher(lower));
        capture->Take();
        lower->mOnSend = [](CanMessage&) { throw CanException("no bus", 5); };
        TarnMessage message;
        EXPECT_THROW(dispatcher->Send(message), CanException);
        return capture->Take();
    });
    EXPECT_EQ(lines, DispatcherLines({"8 Send() - ENTER", "8 Send() - Sending message..."}));
}

TEST(TraceLines, OfTheDispatchersSubscriptions)
{
    const std::string lines = InOwnProcess([] {
        auto capture = LogCapture::OnAll(Message::PRIO_TRACE);
        const auto dispatcher = TarnAsyncDispatcher::Create(CanDispatcher());
        std::string calls;
        RecordingHandler handler("A", calls);
        capture->Take();
        SubscribeAndUnsubscribeEverywhere(*dispatcher, &handler);
        return capture->Take();
    });
    EXPECT_EQ(lines,
              DispatcherLines({"8 SubscribeSource() - ENTER",
                               "8 SubscribeSource() - Adding Handler with SourceAddr=5",
                               "8 SubscribeSource() - EXIT",
                               "8 UnsubscribeSource() - ENTER",
                               "8 UnsubscribeSource() - Deleting Handler with SourceAddr=5",
                               "8 UnsubscribeSource() - EXIT",
                               "8 SubscribeTarget() - ENTER",
                               "8 SubscribeTarget() - Adding Handler with TargetAddr=126",
                               "8 SubscribeTarget() - EXIT",
                               "8 UnsubscribeTarget() - ENTER",
                               "8 UnsubscribeTarget() - Deleting Handler with TargetAddr=126",
                               "8 UnsubscribeTarget() - EXIT",
                               "8 SubscribeChcp() - ENTER",
                               "8 SubscribeChcp() - Adding Handler ...",
                               "8 SubscribeChcp() - EXIT",
                               "8 UnsubscribeChcp() - ENTER",
                               "8 UnsubscribeChcp() - Deleting Handler ...",
                               "8 UnsubscribeChcp() - EXIT",
                               "8 SubscribeAll() - ENTER",
                               "8 SubscribeAll() - Adding Handler ...",
                               "8 SubscribeAll() - EXIT",
                               "8 UnsubscribeAll() - ENTER",
                               "8 UnsubscribeAll() - Deleting Handler ...",
                               "8 UnsubscribeAll() - EXIT"}));
}

TEST(TraceLines, OfTheMocksSubscriptionsLackThreeDeletingLines)
{
    const std::string lines = InOwnProcess([] {
        auto capture = LogCapture::OnAll(Message::PRIO_TRACE);
        const auto mock = TarnAsyncDispatcherMock::Create();
        std::string calls;
        RecordingHandler handler("A", calls);
        capture->Take();
        SubscribeAndUnsubscribeEverywhere(*mock, &handler);
        return capture->Take();
    });
    EXPECT_EQ(lines, MockLines({"8 SubscribeSource() - ENTER",
                                "8 SubscribeSource() - Adding Handler with SourceAddr=5",
                                "8 SubscribeSource() - EXIT",
                                "8 UnsubscribeSource() - ENTER",
                                "8 UnsubscribeSource() - EXIT",
                                "8 SubscribeTarget() - ENTER",
                                "8 SubscribeTarget() - Adding Handler with TargetAddr=126",
                                "8 SubscribeTarget() - EXIT",
                                "8 UnsubscribeTarget() - ENTER",
                                "8 UnsubscribeTarget() - EXIT",
                                "8 SubscribeChcp() - ENTER",
                                "8 SubscribeChcp() - Adding Handler ...",
                                "8 SubscribeChcp() - EXIT",
                                "8 UnsubscribeChcp() - ENTER",
                                "8 UnsubscribeChcp() - EXIT",
                                "8 SubscribeAll() - ENTER",
                                "8 SubscribeAll() - Adding Handler ...",
                                "8 SubscribeAll() - EXIT",
                                "8 UnsubscribeAll() - ENTER",
                                "8 UnsubscribeAll() - Deleting Handler ...",
                                "8 UnsubscribeAll() - EXIT"}));
}

// At error level, so that the lines are those of the refusals alone.
const std::initializer_list<std::string> REFUSALS = {
    "3 SubscribeSource() - Invalid SourceAddr: \x7F",
    "3 SubscribeSource() - Invalid SourceAddr: \xC8",
    "3 SubscribeSource() - Handler is NULL",
    "3 UnsubscribeSource() - Invalid SourceAddr: \x7F",
    "3 SubscribeTarget() - Invalid TargetAddr: \x7F",
    "3 SubscribeTarget() - Handler is NULL",
    "3 UnsubscribeTarget() - Invalid TargetAddr: \x7F",
    "3 SubscribeChcp() - Handler is NULL",
    "3 SubscribeAll() - Handler is NULL"};

TEST(TraceLines, OfRefusedSubscriptionsOfTheDispatcher)
{
    const std::string lines = InOwnProcess([] {
        auto capture = LogCapture::OnAll(Message::PRIO_ERROR);
        std::string calls;
        RecordingHandler handler("A", calls);
        SubscribeBadly(*TarnAsyncDispatcher::Create(CanDispatcher()), &handler);
        return capture->Take();
    });
    EXPECT_EQ(lines, DispatcherLines(REFUSALS));
}

TEST(TraceLines, OfRefusedSubscriptionsOfTheMock)
{
    const std::string lines = InOwnProcess([] {
        auto capture = LogCapture::OnAll(Message::PRIO_ERROR);
        std::string calls;
        RecordingHandler handler("A", calls);
        SubscribeBadly(*TarnAsyncDispatcherMock::Create(), &handler);
        return capture->Take();
    });
    EXPECT_EQ(lines, MockLines(REFUSALS));
}

TEST(TraceLines, OfARefusedSubscriptionEndWithoutExit)
{
    const std::string lines = InOwnProcess([] {
        auto capture = LogCapture::OnAll(Message::PRIO_TRACE);
        const auto dispatcher = TarnAsyncDispatcher::Create(CanDispatcher());
        capture->Take();
        dispatcher->SubscribeSource(127, nullptr);
        dispatcher->SubscribeChcp(nullptr);
        dispatcher->UnsubscribeTarget(127, nullptr);
        return capture->Take();
    });
    EXPECT_EQ(lines,
              DispatcherLines({"8 SubscribeSource() - ENTER",
                               "3 SubscribeSource() - Invalid SourceAddr: \x7F",
                               "8 SubscribeChcp() - ENTER", "3 SubscribeChcp() - Handler is NULL",
                               "8 UnsubscribeTarget() - ENTER",
                               "3 UnsubscribeTarget() - Invalid TargetAddr: \x7F"}));
}

template <typename Dispatcher>
std::string RouteEverywhere(Dispatcher& dispatcher, LogCapture& capture)
{
    std::string calls;
    RecordingHandler keeping("A", calls);
    RecordingHandler leaving("B", calls, Done);
    for (iTarnMessageHandler* handler : {&keeping, &leaving}) {
        dispatcher.SubscribeSource(5, handler);
        dispatcher.SubscribeTarget(9, handler);
        dispatcher.SubscribeChcp(handler);
        dispatcher.SubscribeAll(handler);
    }
    capture.Take();
    CanMessage data = DataFrame(5, 9);
    CanMessage chcp = ChcpFrame(0x1234585);
    dispatcher.DispatchResponse(data);
    dispatcher.SubscribeAll(&leaving);
    dispatcher.DispatchResponse(chcp);
    return capture.Take();
}

TEST(TraceLines, OfRouting)
{
    const std::string lines = InOwnProcess([] {
        auto capture = LogCapture::OnAll(Message::PRIO_TRACE);
        return RouteEverywhere(*TarnAsyncDispatcher::Create(CanDispatcher()), *capture);
    });
    // 0x0F000485 is priority DATA, DEVICE, READ, RESPONSE, target 9, source 5; the MAC identifier
    // 0x1234585 ends in the seven bits 0x05.
    EXPECT_EQ(lines,
              DispatcherLines({"8 DispatchResponse() - ENTER",
                               "8 DispatchResponse() - Can-Msg : 0F000485#50",
                               "8 DispatchResponse() - Dispatching Response for SourceAddr=5",
                               "8 DispatchResponse() - Dispatching Response for SourceAddr=5",
                               "8 DispatchResponse() - Removing Handler for SourceAddr=5",
                               "8 DispatchResponse() - Dispatching Response for TargetAddr=9",
                               "8 DispatchResponse() - Dispatching Response for TargetAddr=9",
                               "8 DispatchResponse() - Removing Handler for TargetAddr=9",
                               "8 DispatchResponse() - Dispatching Response for Tarn-Message",
                               "8 DispatchResponse() - Dispatching Response for Tarn-Message",
                               "8 DispatchResponse() - Removing Handler for Tarn-Message5",
                               "8 DispatchResponse() - EXIT",
                               "8 SubscribeAll() - ENTER",
                               "8 SubscribeAll() - Adding Handler ...",
                               "8 SubscribeAll() - EXIT",
                               "8 DispatchResponse() - ENTER",
                               "8 DispatchResponse() - Dispatching Response for Chcp-Message",
                               "8 DispatchResponse() - Dispatching Response for Chcp-Message",
                               "8 DispatchResponse() - Removing Handler for Chcp-Message5",
                               "8 DispatchResponse() - Dispatching Response for Tarn-Message",
                               "8 DispatchResponse() - Dispatching Response for Tarn-Message",
                               "8 DispatchResponse() - Removing Handler for Tarn-Message5",
                               "8 DispatchResponse() - EXIT"}));
}

TEST(TraceLines, OfTheMocksRouting)
{
    const std::string lines = InOwnProcess([] {
        auto capture = LogCapture::OnAll(Message::PRIO_TRACE);
        return RouteEverywhere(*TarnAsyncDispatcherMock::Create(), *capture);
    });
    EXPECT_EQ(lines, MockLines({"8 DispatchResponse() - ENTER",
                                "8 DispatchResponse() - Can-Msg : 0F000485#50",
                                "8 DispatchResponse() - Dispatching Response for SourceAddr=5",
                                "8 DispatchResponse() - Dispatching Response for SourceAddr=5",
                                "8 DispatchResponse() - Removing Handler for SourceAddr=5",
                                "8 DispatchResponse() - Dispatching Response for TargetAddr=9",
                                "8 DispatchResponse() - Dispatching Response for TargetAddr=9",
                                "8 DispatchResponse() - Removing Handler for TargetAddr=9",
                                "8 DispatchResponse() - EXIT", "8 SubscribeAll() - ENTER",
                                "8 SubscribeAll() - Adding Handler ...", "8 SubscribeAll() - EXIT",
                                "8 DispatchResponse() - ENTER",
                                "8 DispatchResponse() - Dispatching Response for Chcp-Message",
                                "8 DispatchResponse() - Dispatching Response for Chcp-Message",
                                "8 DispatchResponse() - Removing Handler for Chcp-Message5",
                                "8 DispatchResponse() - EXIT"}));
}

TEST(TraceLines, OfAHandlerThatLeftByItselfShowNoRemoval)
{
    const std::string lines = InOwnProcess([] {
        auto capture = LogCapture::OnAll(Message::PRIO_TRACE);
        const auto dispatcher = TarnAsyncDispatcher::Create(CanDispatcher());
        std::string calls;
        RecordingHandler leaving("A", calls);
        leaving.SetAction([&](TarnMessage&) {
            dispatcher->UnsubscribeChcp(&leaving);
            return true;
        });
        dispatcher->SubscribeChcp(&leaving);
        capture->Take();
        CanMessage chcp = ChcpFrame(1);
        dispatcher->DispatchResponse(chcp);
        return capture->Take();
    });
    EXPECT_EQ(lines,
              DispatcherLines({"8 DispatchResponse() - ENTER",
                               "8 DispatchResponse() - Dispatching Response for Chcp-Message",
                               "8 UnsubscribeChcp() - ENTER",
                               "8 UnsubscribeChcp() - Deleting Handler ...",
                               "8 UnsubscribeChcp() - EXIT", "8 DispatchResponse() - EXIT"}));
}

TEST(TraceLines, OfAnInvalidFrameAndOfAThrowingHandlerEndWithoutExit)
{
    const std::string lines = InOwnProcess([] {
        auto capture = LogCapture::OnAll(Message::PRIO_TRACE);
        const auto dispatcher = TarnAsyncDispatcher::Create(CanDispatcher());
        std::string calls;
        RecordingHandler throwing("A", calls, [](TarnMessage&) -> bool { throw 1; });
        dispatcher->SubscribeChcp(&throwing);
        capture->Take();
        CanMessage standard;
        CanMessage chcp = ChcpFrame(1);
        dispatcher->DispatchResponse(standard);
        EXPECT_THROW(dispatcher->DispatchResponse(chcp), int);
        return capture->Take();
    });
    EXPECT_EQ(lines,
              DispatcherLines({"8 DispatchResponse() - ENTER", "8 DispatchResponse() - ENTER",
                               "8 DispatchResponse() - Dispatching Response for Chcp-Message"}));
}

TEST(TraceLines, OfTheMocksLife)
{
    const std::string lines = InOwnProcess([] {
        auto capture = LogCapture::OnAll(Message::PRIO_TRACE);
        auto mock = TarnAsyncDispatcherMock::Create();
        TarnMessage message;
        mock->Start();
        mock->Send(message);
        mock->Stop();
        mock.reset();
        return capture->Take();
    });
    EXPECT_EQ(
        lines,
        MockLines({"8 TarnAsyncDispatcherMock() - ENTER", "8 TarnAsyncDispatcherMock() - EXIT",
                   "8 Start() - ENTER", "8 Start() - EXIT", "8 Send() - ENTER", "8 Send() - EXIT",
                   "8 Stop() - ENTER", "8 Stop() - EXIT", "8 ~TarnAsyncDispatcherMock() - ENTER",
                   "8 ~TarnAsyncDispatcherMock() - EXIT"}));
}

std::string RequestsOnAScriptedDispatcher(int level)
{
    auto capture = LogCapture::OnAll(level);
    std::tr1::shared_ptr<ScriptedDispatcher> dispatcher(new ScriptedDispatcher);
    auto sync = TarnSyncRequest::Create(dispatcher);
    TarnMessage request;
    TarnMessage response;
    EXPECT_FALSE(sync->Send(request, response, 5));
    dispatcher->mOnSend = [&](TarnMessage&) {
        TarnMessage wrong;
        sync->DispatchResponse(wrong);
        TarnMessage right;
        right.SetDirection(TarnMessage::DIRECTION_RESPONSE);
        right.SetSourceAddr(0);
        right.SetTargetAddr(1);
        sync->DispatchResponse(right);
    };
    EXPECT_TRUE(sync->Send(request, response, 500));
    sync.reset();
    return capture->Take();
}

TEST(TraceLines, OfSynchronousRequests)
{
    EXPECT_EQ(
        InOwnProcess([] { return RequestsOnAScriptedDispatcher(Message::PRIO_TRACE); }),
        SyncLines({"8 TarnSyncRequest() - ENTER", "8 TarnSyncRequest() - EXIT", "8 Send() - ENTER",
                   "8 Send() - Adding handler...", "8 Send() - Sending request message...",
                   "8 Send() - Waiting for response...", "7 Send() - timeout after 5 msec!",
                   "8 Send() - ENTER", "8 Send() - Adding handler...",
                   "8 Send() - Sending request message...", "8 DispatchResponse() - ENTER",
                   "8 DispatchResponse() - EXIT : got invalid response",
                   "8 DispatchResponse() - ENTER",
                   "8 DispatchResponse() - EXIT : got valid response",
                   "8 Send() - Waiting for response...", "8 Send() - EXIT",
                   "8 ~TarnSyncRequest() - ENTER", "8 ~TarnSyncRequest() - EXIT"}));
}

// Levels and gates.

TEST(TraceLevels, DebugShowsTheTimeOutAlone)
{
    EXPECT_EQ(InOwnProcess([] { return RequestsOnAScriptedDispatcher(Message::PRIO_DEBUG); }),
              SyncLines({"7 Send() - timeout after 5 msec!"}));
}

TEST(TraceLevels, ASiteThatWasOffAtFirstStaysOffWhenTheLevelIsRaised)
{
    EXPECT_EQ(InOwnProcess([] {
                  std::string lines = RequestsOnAScriptedDispatcher(Message::PRIO_INFORMATION);
                  lines += RequestsOnAScriptedDispatcher(Message::PRIO_TRACE);
                  return lines + "done";
              }),
              "done");
}

TEST(TraceLevels, AfterLoweringTheLevelOnlyErrorsAreWritten)
{
    const std::string lines = InOwnProcess([] {
        auto capture = LogCapture::OnAll(Message::PRIO_TRACE);
        const auto dispatcher = TarnAsyncDispatcher::Create(CanDispatcher());
        TarnMessage message;
        dispatcher->Stop();
        dispatcher->Send(message);
        capture->Take();
        LogCapture::SetLevel(Message::PRIO_ERROR);
        dispatcher->Stop();
        dispatcher->Send(message);
        return capture->Take();
    });
    EXPECT_EQ(lines, DispatcherLines({"3 Stop() - mCanDispatcher is NULL!"}));
}

TEST(TraceLevels, ALoggerWithoutAChannelTakesEverythingSilently)
{
    EXPECT_EQ(InOwnProcess([] {
                  LogCapture::SetLevel(Message::PRIO_TRACE);
                  const auto dispatcher = TarnAsyncDispatcher::Create(CanDispatcher());
                  std::string calls;
                  RecordingHandler handler("A", calls);
                  SubscribeAndUnsubscribeEverywhere(*dispatcher, &handler);
                  SubscribeBadly(*dispatcher, &handler);
                  return std::string("silent");
              }),
              "silent");
}

TEST(TraceGates, BelongToTheClass)
{
    const std::string lines = InOwnProcess([] {
        auto capture = LogCapture::OnAll(Message::PRIO_INFORMATION);
        std::string calls;
        RecordingHandler handler("A", calls);
        SubscribeAndUnsubscribeEverywhere(*TarnAsyncDispatcherMock::Create(), &handler);
        LogCapture::SetLevel(Message::PRIO_TRACE);
        const auto mock = TarnAsyncDispatcherMock::Create();
        const auto dispatcher = TarnAsyncDispatcher::Create(CanDispatcher());
        capture->Take();
        mock->SubscribeSource(5, &handler);
        dispatcher->SubscribeSource(5, &handler);
        return capture->Take();
    });
    EXPECT_EQ(lines, DispatcherLines({"8 SubscribeSource() - ENTER",
                                      "8 SubscribeSource() - Adding Handler with SourceAddr=5",
                                      "8 SubscribeSource() - EXIT"}));
}

TEST(TraceGates, BelongToTheSite)
{
    const std::string lines = InOwnProcess([] {
        auto capture = LogCapture::OnAll(Message::PRIO_INFORMATION);
        const auto dispatcher = TarnAsyncDispatcher::Create(CanDispatcher());
        std::string calls;
        RecordingHandler handler("A", calls);
        dispatcher->SubscribeSource(5, &handler);
        CanMessage data = DataFrame(5, 9);
        CanMessage chcp = ChcpFrame(1);
        dispatcher->DispatchResponse(data);
        LogCapture::SetLevel(Message::PRIO_TRACE);
        dispatcher->UnsubscribeSource(5, &handler);
        dispatcher->SubscribeSource(5, &handler);
        dispatcher->SubscribeTarget(9, &handler);
        dispatcher->SubscribeChcp(&handler);
        dispatcher->SubscribeAll(&handler);
        capture->Take();
        handler.SetAction(Done);
        dispatcher->DispatchResponse(data);
        dispatcher->DispatchResponse(chcp);
        return capture->Take();
    });
    EXPECT_EQ(lines,
              DispatcherLines({"8 DispatchResponse() - Removing Handler for SourceAddr=5",
                               "8 DispatchResponse() - Dispatching Response for TargetAddr=9",
                               "8 DispatchResponse() - Removing Handler for TargetAddr=9",
                               "8 DispatchResponse() - Dispatching Response for Tarn-Message",
                               "8 DispatchResponse() - Removing Handler for Tarn-Message5",
                               "8 DispatchResponse() - Dispatching Response for Chcp-Message",
                               "8 DispatchResponse() - Removing Handler for Chcp-Message1"}));
}

class DerivedDispatcher : public TarnAsyncDispatcherMock
{
};

TEST(TracePrefix, NamesTheRunTimeTypeAndWhatIsBeingBuiltOrTornDown)
{
    const std::string lines = InOwnProcess([] {
        auto capture = LogCapture::OnAll(Message::PRIO_TRACE);
        {
            DerivedDispatcher derived;
            derived.Start();
            derived.SubscribeChcp(nullptr);
        }
        return capture->Take();
    });
    const std::string derived = "N12_GLOBAL__N_117DerivedDispatcherE";
    EXPECT_EQ(
        lines,
        MockLines({"8 TarnAsyncDispatcherMock() - ENTER", "8 TarnAsyncDispatcherMock() - EXIT"}) +
            Lines("TarnAsyncDispatcherMock", derived,
                  {"8 Start() - ENTER", "8 Start() - EXIT", "8 SubscribeChcp() - ENTER",
                   "3 SubscribeChcp() - Handler is NULL"}) +
            MockLines(
                {"8 ~TarnAsyncDispatcherMock() - ENTER", "8 ~TarnAsyncDispatcherMock() - EXIT"}));
}

/// Groups every digit by itself.
class Grouping : public std::numpunct<char>
{
protected:
    char do_thousands_sep() const override { return '.'; }
    std::string do_grouping() const override { return "\1"; }
};

TEST(TraceLines, AreTheSameUnderEveryLocale)
{
    const std::string lines = InOwnProcess([] {
        std::locale::global(std::locale(std::locale::classic(), new Grouping));
        auto capture = LogCapture::OnAll(Message::PRIO_TRACE);
        const auto mock = TarnAsyncDispatcherMock::Create();
        capture->Take();
        std::string calls;
        RecordingHandler handler("A", calls);
        mock->SubscribeSource(126, &handler);
        return capture->Take();
    });
    EXPECT_EQ(lines, MockLines({"8 SubscribeSource() - ENTER",
                                "8 SubscribeSource() - Adding Handler with SourceAddr=126",
                                "8 SubscribeSource() - EXIT"}));
}

} // namespace
