#include "support/LogCapture.h"
#include "support/MutexFaults.h"
#include "support/OwnProcess.h"

#include <tarn/TarnAsyncDispatcher.h>
#include <tarn/TarnAsyncDispatcherMock.h>
#include <tarn/TarnSyncRequest.h>

#include <Poco/Exception.h>
#include <gtest/gtest.h>

#include <functional>
#include <optional>
#include <ostream>
#include <string>

// Whether a log statement is active is decided at its first pass. When the logger mutex fails then,
// it is decided at the next one: by the level at that time, which differs here.

namespace
{

using namespace tarn;
using namespace tarn::test;
using Poco::Message;
using support::BeforeMutexCall;
using support::MutexFault;

struct Site {
    const char* name;
    support::tMutexCall call;
    unsigned int nth; ///< the call that is the logger mutex for the site
    std::function<void(TarnAsyncDispatcherMock&)> pass;
    const char* line; ///< that the site writes
};

void PrintTo(const Site& site, std::ostream* out)
{
    *out << site.name;
}

class GateFailure : public testing::TestWithParam<Site>
{
protected:
    static void FailOnce(TarnAsyncDispatcherMock& mock)
    {
        const Site& site = GetParam();
        EXPECT_THROW(
            {
                const MutexFault fault(site.call, site.nth);
                site.pass(mock);
            },
            Poco::SystemException);
    }

    static bool IsIn(const std::string& lines)
    {
        return lines.find(GetParam().line) != std::string::npos;
    }
};

TEST_P(GateFailure, IsDecidedAgainAndMayThenBeActive)
{
    const std::string lines = InOwnProcess([] {
        auto capture = LogCapture::OnAll(Message::PRIO_FATAL);
        const auto mock = TarnAsyncDispatcherMock::Create();
        FailOnce(*mock);
        EXPECT_EQ(capture->Take(), "");
        LogCapture::SetLevel(Message::PRIO_TRACE);
        GetParam().pass(*mock);
        return capture->Take();
    });
    EXPECT_TRUE(IsIn(lines)) << lines;
}

TEST_P(GateFailure, IsDecidedAgainAndMayThenBeInactive)
{
    const std::string lines = InOwnProcess([] {
        LogCapture::SetLevel(Message::PRIO_TRACE);
        const auto mock = TarnAsyncDispatcherMock::Create();
        FailOnce(*mock); // without a channel, as that would lock as well
        auto capture = LogCapture::OnAll(Message::PRIO_FATAL);
        GetParam().pass(*mock);
        LogCapture::SetLevel(Message::PRIO_TRACE);
        GetParam().pass(*mock);
        return "done " + capture->Take();
    });
    EXPECT_EQ(lines.substr(0, 5), "done ") << lines;
    EXPECT_FALSE(IsIn(lines)) << lines;
}

// Unsubscribing locks for ENTER, Deleting, the family and EXIT; the family is unlocked last. The
// error line comes after ENTER.
INSTANTIATE_TEST_SUITE_P(
    Of, GateFailure,
    testing::Values(Site{"EnterAtTheLock", support::LOCK, 1, [](auto& mock) { mock.Start(); },
                         "Start() - ENTER"},
                    Site{"EnterAtTheUnlock", support::UNLOCK, 1, [](auto& mock) { mock.Start(); },
                         "Start() - ENTER"},
                    Site{"ProgressAtTheLock", support::LOCK, 2,
                         [](auto& mock) { mock.UnsubscribeAll(nullptr); }, "Deleting Handler ..."},
                    Site{"ProgressAtTheUnlock", support::UNLOCK, 2,
                         [](auto& mock) { mock.UnsubscribeAll(nullptr); }, "Deleting Handler ..."},
                    Site{"ErrorAtTheLock", support::LOCK, 2,
                         [](auto& mock) { mock.SubscribeAll(nullptr); }, "Handler is NULL"},
                    Site{"ErrorAtTheUnlock", support::UNLOCK, 2,
                         [](auto& mock) { mock.SubscribeAll(nullptr); }, "Handler is NULL"},
                    Site{"ExitUnderTheFamilyAtTheLock", support::LOCK, 4,
                         [](auto& mock) { mock.UnsubscribeAll(nullptr); },
                         "UnsubscribeAll() - EXIT"},
                    Site{"ExitUnderTheFamilyAtTheUnlock", support::UNLOCK, 3,
                         [](auto& mock) { mock.UnsubscribeAll(nullptr); },
                         "UnsubscribeAll() - EXIT"}),
    [](const auto& site) { return std::string(site.param.name); });

template <typename Object, typename... Arguments>
std::string LinesOfTwoConstructions(support::tMutexCall call, unsigned int nth,
                                    const Arguments&... arguments)
{
    return InOwnProcess([&] {
        auto capture = LogCapture::OnAll(Message::PRIO_FATAL);
        EXPECT_THROW(
            {
                const MutexFault fault(call, nth);
                Object object(arguments...);
            },
            Poco::SystemException);
        LogCapture::SetLevel(Message::PRIO_TRACE);
        Object object(arguments...);
        return capture->Take();
    });
}

TEST(GateFailureInConstructors, IsDecidedAgain)
{
    const std::tr1::shared_ptr<iCanAsyncDispatcher> bus;
    const std::tr1::shared_ptr<iTarnAsyncDispatcher> dispatcher;
    for (const support::tMutexCall call : {support::LOCK, support::UNLOCK}) {
        // Poco's registry of loggers comes first; the two messages of a request lock twenty times.
        EXPECT_EQ(LinesOfTwoConstructions<TarnAsyncDispatcher>(call, 2, bus),
                  "8 TarnAsyncDispatcher N4tarn19TarnAsyncDispatcherE::TarnAsyncDispatcher() - "
                  "ENTER\n"
                  "8 TarnAsyncDispatcher N4tarn19TarnAsyncDispatcherE::TarnAsyncDispatcher() - "
                  "EXIT\n");
        EXPECT_EQ(LinesOfTwoConstructions<TarnSyncRequest>(call, 22, dispatcher),
                  "8 TarnSyncRequest N4tarn15TarnSyncRequestE::TarnSyncRequest() - ENTER\n"
                  "8 TarnSyncRequest N4tarn15TarnSyncRequestE::TarnSyncRequest() - EXIT\n");
    }
}

TEST(GateFailureInDestructors, IsDecidedAgain)
{
    for (const support::tMutexCall call : {support::LOCK, support::UNLOCK}) {
        EXPECT_EQ(InOwnProcess([call] {
                      auto capture = LogCapture::OnAll(Message::PRIO_FATAL);
                      auto* const first = new TarnAsyncDispatcherMock;
                      auto* const second = new TarnAsyncDispatcherMock;
                      EXPECT_THROW(
                          {
                              const MutexFault fault(call, 1);
                              delete first;
                          },
                          Poco::SystemException);
                      LogCapture::SetLevel(Message::PRIO_TRACE);
                      delete second;
                      return capture->Take();
                  }),
                  "8 TarnAsyncDispatcherMock "
                  "N4tarn23TarnAsyncDispatcherMockE::~TarnAsyncDispatcherMock() - ENTER\n"
                  "8 TarnAsyncDispatcherMock "
                  "N4tarn23TarnAsyncDispatcherMockE::~TarnAsyncDispatcherMock() - EXIT\n");
    }
}

/// Another thread passes the sites of Start() while this one is about to decide the first of them,
/// and then the level is raised.
std::function<void()> DecidesInactive(TarnAsyncDispatcherMock& mock)
{
    return [&mock] {
        mock.Start();
        LogCapture::SetLevel(Message::PRIO_TRACE);
    };
}

TEST(GateRace, WhatAnotherThreadDecidedStays)
{
    EXPECT_EQ(InOwnProcess([] {
                  auto capture = LogCapture::OnAll(Message::PRIO_FATAL);
                  const auto mock = TarnAsyncDispatcherMock::Create();
                  {
                      const BeforeMutexCall race(support::LOCK, 1, DecidesInactive(*mock));
                      mock->Start();
                  }
                  return capture->Take() + "done";
              }),
              "done");
}

TEST(GateRace, WhatAnotherThreadDecidedStaysWhenTheUnlockFails)
{
    EXPECT_EQ(InOwnProcess([] {
                  auto capture = LogCapture::OnAll(Message::PRIO_FATAL);
                  const auto mock = TarnAsyncDispatcherMock::Create();
                  std::optional<MutexFault> fault;
                  const BeforeMutexCall race(support::LOCK, 1, [&] {
                      DecidesInactive (*mock)();
                      fault.emplace(support::UNLOCK, 1u);
                  });
                  EXPECT_THROW(mock->Start(), Poco::SystemException);
                  mock->Start();
                  return capture->Take() + "done";
              }),
              "done");
}

} // namespace
