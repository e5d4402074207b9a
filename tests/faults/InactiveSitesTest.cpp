#include "support/AllocationCounter.h"
#include "support/DispatchFakes.h"
#include "support/LogCapture.h"
#include "support/MutexFaults.h"
#include "support/OwnProcess.h"

#include <tarn/TarnAsyncDispatcher.h>
#include <tarn/TarnAsyncDispatcherMock.h>

#include <gtest/gtest.h>

#include <string>

namespace
{

using namespace tarn;
using namespace tarn::test;
using support::CountAllocations;
using support::CountCalls;

/// Subscribes and leaves in every family, starts and stops.
void Use(iTarnAsyncDispatcher& dispatcher, iTarnMessageHandler* handler)
{
    dispatcher.Start();
    dispatcher.SubscribeSource(5, handler);
    dispatcher.SubscribeTarget(5, handler);
    dispatcher.SubscribeChcp(handler);
    dispatcher.SubscribeAll(handler);
    dispatcher.UnsubscribeSource(5, handler);
    dispatcher.UnsubscribeTarget(5, handler);
    dispatcher.UnsubscribeChcp(handler);
    dispatcher.UnsubscribeAll(handler);
    dispatcher.Stop();
}

TEST(InactiveSites, AllocateNothingAndLockNothingOnceDecided)
{
    EXPECT_EQ(InOwnProcess([] {
                  auto capture = LogCapture::OnAll(Poco::Message::PRIO_INFORMATION);
                  const auto mock = TarnAsyncDispatcherMock::Create();
                  std::string calls;
                  RecordingHandler handler("H", calls);
                  EXPECT_EQ(CountAllocations([&] { Use(*mock, &handler); }), 4u)
                      << "one for each entry, also at the first pass";
                  EXPECT_EQ(CountCalls(support::LOCK, [&] { Use(*mock, &handler); }), 8u)
                      << "the families alone";
                  return capture->Take() + "done";
              }),
              "done");
}

TEST(ActiveSites, LockNothingOnceDecided)
{
    EXPECT_EQ(InOwnProcess([] {
                  LogCapture::SetLevel(Poco::Message::PRIO_TRACE); // and no channel that would lock
                  const auto mock = TarnAsyncDispatcherMock::Create();
                  mock->Start();
                  EXPECT_EQ(CountCalls(support::LOCK, [&] { mock->Start(); }), 0u);
                  return "done";
              }),
              "done");
}

} // namespace
