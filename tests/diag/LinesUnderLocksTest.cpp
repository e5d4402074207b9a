#include "dispatch/HandlerFamilies.h"
#include "support/DispatchFakes.h"
#include "support/LogCapture.h"
#include "support/OwnProcess.h"
#include "support/ScriptedDispatcher.h"

#include <tarn/TarnAsyncDispatcher.h>
#include <tarn/TarnAsyncDispatcherMock.h>
#include <tarn/TarnSyncRequest.h>

#include <Poco/AutoPtr.h>
#include <Poco/Channel.h>
#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <utility>
#include <vector>

// A line that is written under a mutex stands in the log in the order of what the mutex guards. So
// each line is captured with the mutexes that are held meanwhile: those that another thread cannot
// take.

namespace tarn::test
{

// What an explicit instantiation names may be private.
template <typename Tag, Poco::Mutex TarnSyncRequest::*MUTEX>
struct Opened {
    friend Poco::Mutex& MutexOf(TarnSyncRequest& request, Tag) { return request.*MUTEX; }
};
struct ResponseTag {
    friend Poco::Mutex& MutexOf(TarnSyncRequest& request, ResponseTag);
};
struct SendTag {
    friend Poco::Mutex& MutexOf(TarnSyncRequest& request, SendTag);
};
template struct Opened<ResponseTag, &TarnSyncRequest::mResponseMutex>;
template struct Opened<SendTag, &TarnSyncRequest::mSendMutex>;

} // namespace tarn::test

namespace
{

using namespace tarn;
using namespace tarn::test;

using Mutexes = std::vector<std::pair<char, Poco::Mutex*>>;

/// Collects what lines say behind their operation, each followed by the letters of the mutexes
/// held.
class LockProbe : public Poco::Channel
{
public:
    explicit LockProbe(Mutexes mutexes) : mMutexes(std::move(mutexes)) {}

    void log(const Poco::Message& message) override
    {
        const std::string& text = message.getText();
        mLines += text.substr(text.find("() - ") + 5) + " [" + Held() + "]\n";
    }

    std::string mLines;

private:
    std::string Held()
    {
        std::string held;
        std::thread([&] {
            for (const auto& [letter, mutex] : mMutexes) {
                if (mutex->tryLock())
                    mutex->unlock();
                else
                    held += letter;
            }
        }).join();
        return held;
    }

    Mutexes mMutexes;
};

Poco::AutoPtr<LockProbe> ProbeOn(const char* logger, Mutexes mutexes)
{
    Poco::AutoPtr<LockProbe> probe(new LockProbe(std::move(mutexes)));
    Poco::Logger::get(logger).setLevel(Poco::Message::PRIO_TRACE);
    Poco::Logger::get(logger).setChannel(probe);
    return probe;
}

template <typename Dispatcher>
Mutexes FamiliesOf(Dispatcher& dispatcher)
{
    return {{'S', &HandlerFamilies::Source::Mutex(dispatcher)},
            {'T', &HandlerFamilies::Target::Mutex(dispatcher)},
            {'C', &HandlerFamilies::Chcp::Mutex(dispatcher)},
            {'A', &HandlerFamilies::All::Mutex(dispatcher)}};
}

template <typename Dispatcher>
std::string LinesOfEverything(Dispatcher& dispatcher, const char* logger)
{
    const auto probe = ProbeOn(logger, FamiliesOf(dispatcher));
    std::string calls;
    RecordingHandler leaving("H", calls, [](TarnMessage&) { return true; });
    dispatcher.SubscribeSource(5, &leaving);
    dispatcher.SubscribeTarget(9, &leaving);
    dispatcher.SubscribeChcp(&leaving);
    dispatcher.SubscribeAll(&leaving);
    CanMessage data = DataFrame(5, 9);
    CanMessage chcp = ChcpFrame(1);
    dispatcher.DispatchResponse(data);
    dispatcher.DispatchResponse(chcp);
    dispatcher.UnsubscribeSource(5, &leaving);
    dispatcher.UnsubscribeTarget(9, &leaving);
    dispatcher.UnsubscribeChcp(&leaving);
    dispatcher.UnsubscribeAll(&leaving);
    Poco::Logger::get(logger).setChannel(nullptr);
    return probe->mLines;
}

TEST(LinesUnderLocks, OfTheDispatcher)
{
    EXPECT_EQ(InOwnProcess([] {
                  return LinesOfEverything(
                      *TarnAsyncDispatcher::Create(std::tr1::shared_ptr<iCanAsyncDispatcher>()),
                      "TarnAsyncDispatcher");
              }),
              "ENTER []\nAdding Handler with SourceAddr=5 []\nEXIT [S]\n"
              "ENTER []\nAdding Handler with TargetAddr=9 []\nEXIT [T]\n"
              "ENTER []\nAdding Handler ... []\nEXIT [C]\n"
              "ENTER []\nAdding Handler ... []\nEXIT [A]\n"
              "ENTER []\n"
              "Can-Msg : 0F000485#50 []\n"
              "Dispatching Response for SourceAddr=5 [S]\n"
              "Removing Handler for SourceAddr=5 [S]\n"
              "Dispatching Response for TargetAddr=9 [T]\n"
              "Removing Handler for TargetAddr=9 [T]\n"
              "Dispatching Response for Tarn-Message [A]\n"
              "Removing Handler for Tarn-Message5 [A]\n"
              "EXIT []\n"
              "ENTER []\n"
              "Dispatching Response for Chcp-Message [C]\n"
              "Removing Handler for Chcp-Message1 [C]\n"
              "EXIT []\n"
              "ENTER []\nDeleting Handler with SourceAddr=5 []\nEXIT [S]\n"
              "ENTER []\nDeleting Handler with TargetAddr=9 []\nEXIT [T]\n"
              "ENTER []\nDeleting Handler ... []\nEXIT [C]\n"
              "ENTER []\nDeleting Handler ... []\nEXIT [A]\n");
}

TEST(LinesUnderLocks, OfTheMockWhoseChcpWalkHoldsNone)
{
    EXPECT_EQ(InOwnProcess([] {
                  return LinesOfEverything(*TarnAsyncDispatcherMock::Create(),
                                           "TarnAsyncDispatcherMock");
              }),
              "ENTER []\nAdding Handler with SourceAddr=5 []\nEXIT [S]\n"
              "ENTER []\nAdding Handler with TargetAddr=9 []\nEXIT [T]\n"
              "ENTER []\nAdding Handler ... []\nEXIT [C]\n"
              "ENTER []\nAdding Handler ... []\nEXIT [A]\n"
              "ENTER []\n"
              "Can-Msg : 0F000485#50 []\n"
              "Dispatching Response for SourceAddr=5 [S]\n"
              "Removing Handler for SourceAddr=5 [S]\n"
              "Dispatching Response for TargetAddr=9 [T]\n"
              "Removing Handler for TargetAddr=9 [T]\n"
              "EXIT []\n"
              "ENTER []\n"
              "Dispatching Response for Chcp-Message []\n"
              "Removing Handler for Chcp-Message1 []\n"
              "EXIT []\n"
              "ENTER []\nEXIT [S]\n"
              "ENTER []\nEXIT [T]\n"
              "ENTER []\nEXIT [C]\n"
              "ENTER []\nDeleting Handler ... []\nEXIT [A]\n");
}

TEST(LinesUnderLocks, OfTheSynchronousRequest)
{
    EXPECT_EQ(InOwnProcess([] {
                  std::tr1::shared_ptr<ScriptedDispatcher> dispatcher(new ScriptedDispatcher);
                  auto sync = TarnSyncRequest::Create(dispatcher);
                  const auto probe =
                      ProbeOn("TarnSyncRequest", {{'S', &MutexOf(*sync, SendTag())},
                                                  {'R', &MutexOf(*sync, ResponseTag())}});
                  TarnMessage request;
                  TarnMessage response;
                  sync->Send(request, response, 0);
                  dispatcher->mOnSend = [&](TarnMessage&) {
                      sync->DispatchResponse(request);
                      TarnMessage right;
                      right.SetDirection(TarnMessage::DIRECTION_RESPONSE);
                      right.SetSourceAddr(0);
                      right.SetTargetAddr(1);
                      sync->DispatchResponse(right);
                  };
                  sync->Send(request, response, 0);
                  sync.reset();
                  return probe->mLines;
              }),
              "ENTER [S]\n"
              "Adding handler... [S]\n"
              "Sending request message... [S]\n"
              "Waiting for response... [S]\n"
              "timeout after 0 msec! [S]\n"
              "ENTER [S]\n"
              "Adding handler... [S]\n"
              "Sending request message... [S]\n"
              "ENTER [SR]\n"
              "EXIT : got invalid response [SR]\n"
              "ENTER [SR]\n"
              "EXIT : got valid response [SR]\n"
              "Waiting for response... [S]\n"
              "EXIT [SR]\n"
              "ENTER [R]\n"
              "EXIT [R]\n");
}

} // namespace
