#include "faults/World.h"
#include "support/LogCapture.h"
#include "support/MutexFaults.h"
#include "support/OwnProcess.h"

#include <plexa_can/CanException.h>
#include <tarn/TarnSyncRequest.h>

#include <gtest/gtest.h>

#include <string>

// Failures of a synchronous request that a test without control of the thread library cannot cause.

namespace
{

using namespace tarn;
using namespace tarn::test;
using support::MutexFault;

class RefusingDispatcher : public PlainDispatcher
{
public:
    void Send(TarnMessage&) override { throw CanException("no such bus", 19); }
};

TEST(RequestFailure, OfTheBusComesOutAlsoWhenTheSendMutexCannotBeUnlocked)
{
    EXPECT_EQ(InOwnProcess([] {
                  const auto sync = TarnSyncRequest::Create(
                      std::tr1::shared_ptr<iTarnAsyncDispatcher>(new RefusingDispatcher));
                  TarnMessage request = Request();
                  TarnMessage response;
                  const auto send = [&] {
                      EXPECT_THROW(sync->Send(request, response, 0), CanException);
                  };
                  send(); // decides the log statements
                  const unsigned int unlocks = CountCalls(support::UNLOCK, send);
                  const MutexFault fault(support::UNLOCK, unlocks);
                  send();
                  return "done";
              }),
              "done");
}

TEST(RequestFailure, OfTheLongestTimeOutIsWrittenInFull)
{
    EXPECT_EQ(InOwnProcess([] {
                  auto capture = LogCapture::OnAll(Poco::Message::PRIO_DEBUG);
                  const auto sync = TarnSyncRequest::Create(
                      std::tr1::shared_ptr<iTarnAsyncDispatcher>(new PlainDispatcher));
                  TarnMessage request = Request();
                  TarnMessage response;
                  const MutexFault atOnce(support::WAIT, 1);
                  EXPECT_FALSE(sync->Send(request, response, 4294967295u));
                  return capture->Take();
              }),
              "7 TarnSyncRequest N4tarn15TarnSyncRequestE::Send() - timeout after 4294967295 "
              "msec!\n");
}

} // namespace
