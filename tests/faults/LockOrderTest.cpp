#include "faults/World.h"
#include "support/LockRecorder.h"
#include "support/OwnProcess.h"

#include <Poco/AutoPtr.h>
#include <Poco/Channel.h>
#include <Poco/Logger.h>
#include <Poco/Mutex.h>
#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <string>

// Which mutex is taken while which others are held, for every operation of the library with all of
// its log lines, each line decided anew in a process of its own.

namespace
{

using namespace tarn;
using namespace tarn::test;

std::atomic<const void*> gLoggerMutex{nullptr};
std::array<const void*, 8> gFamilies = {};
std::atomic<unsigned int> gInLogger{0};       ///< locks taken while the logger mutex is held
std::atomic<unsigned int> gSecondFamily{0};   ///< a family taken while another one is held
std::atomic<unsigned int> gLoggerInFamily{0}; ///< the logger mutex, taken while a family is held
std::atomic<unsigned int> gFamiliesTaken{0};

bool IsFamily(const void* mutex)
{
    for (const void* family : gFamilies) {
        if (mutex == family)
            return true;
    }
    return false;
}

bool HoldsAnotherFamily(const support::HeldMutexes& held, const void* mutex)
{
    for (std::size_t i = 0; i < held.count; ++i) {
        if (held.mutexes[i] != mutex && IsFamily(held.mutexes[i]))
            return true;
    }
    return false;
}

void Observe(const void* mutex, const support::HeldMutexes& held)
{
    if (mutex != gLoggerMutex && held.Contains(gLoggerMutex))
        ++gInLogger;
    if (mutex == gLoggerMutex && HoldsAnotherFamily(held, nullptr))
        ++gLoggerInFamily;
    if (!IsFamily(mutex))
        return;
    ++gFamiliesTaken;
    if (HoldsAnotherFamily(held, mutex))
        ++gSecondFamily;
}

template <typename Dispatcher>
void NameFamilies(Dispatcher& dispatcher, std::size_t first)
{
    gFamilies[first] = &HandlerFamilies::Source::Mutex(dispatcher);
    gFamilies[first + 1] = &HandlerFamilies::Target::Mutex(dispatcher);
    gFamilies[first + 2] = &HandlerFamilies::Chcp::Mutex(dispatcher);
    gFamilies[first + 3] = &HandlerFamilies::All::Mutex(dispatcher);
}

/// Locks while it writes, as the channels of consoles and files do.
class LockingChannel : public Poco::Channel
{
public:
    void log(const Poco::Message&) override { const Poco::FastMutex::ScopedLock lock(mMutex); }

private:
    Poco::FastMutex mMutex;
};

void LogEverything()
{
    static const Poco::AutoPtr<LockingChannel> channel(new LockingChannel);
    for (const char* name : {"TarnAsyncDispatcher", "TarnAsyncDispatcherMock", "TarnSyncRequest"}) {
        Poco::Logger::get(name).setChannel(channel);
        Poco::Logger::get(name).setLevel(Poco::Message::PRIO_TRACE);
    }
}

/// Uses every operation of dispatcher, mock and request while locks are observed, wrong values and
/// exceptions included.
void PlayEverything(World& world)
{
    gLoggerMutex = &GetLoggerMutex();
    support::ObserveLocks(Observe);
    world.dispatcher = new TarnAsyncDispatcher(world.bus);
    world.mock = new TarnAsyncDispatcherMock;
    world.request = new TarnSyncRequest(world.plain);
    NameFamilies(*world.dispatcher, 0);
    NameFamilies(*world.mock, 4);
    world.dispatcher->SubscribeSource(200, &world.a);
    world.dispatcher->SubscribeAll(nullptr);
    UseEverything(world);
    world.plain->mAnswer = &world.answer;
    UseEverything(world);
    support::ObserveLocks(nullptr);
}

std::string FiguresOf(const std::function<void(World&)>& play)
{
    return InOwnProcess([&] {
        LogEverything();
        World world;
        play(world);
        return "inside the logger mutex " + std::to_string(gInLogger) + ", a second family " +
               std::to_string(gSecondFamily) +
               (gLoggerInFamily > 0 ? ", decided in a family" : ", no decision in a family") +
               (gFamiliesTaken > 30 ? ", families taken" : ", families not taken");
    });
}

TEST(LockOrder, TheLoggerMutexIsInnermostAndNoTwoFamiliesAreHeldTogether)
{
    EXPECT_EQ(FiguresOf(PlayEverything),
              "inside the logger mutex 0, a second family 0, decided in a family, families taken");
}

/// That the observer sees what the first test says is not there.
TEST(LockOrder, WhatAHandlerDoesInAWalkIsSeen)
{
    EXPECT_EQ(
        FiguresOf([](World& world) {
            world.b.SetAction([&](TarnMessage&) {
                world.dispatcher->SubscribeAll(&world.c);
                world.dispatcher->UnsubscribeAll(&world.c);
                return true;
            });
            world.dispatcher = new TarnAsyncDispatcher(world.bus);
            NameFamilies(*world.dispatcher, 0);
            world.dispatcher->SubscribeSource(5, &world.b);
            support::ObserveLocks(Observe);
            world.dispatcher->DispatchResponse(world.data);
            const Poco::Mutex& logger = GetLoggerMutex();
            gLoggerMutex = &logger;
            GetLoggerMutex().lock();
            world.dispatcher->SubscribeChcp(&world.b);
            GetLoggerMutex().unlock();
            support::ObserveLocks(nullptr);
        }),
        "inside the logger mutex 4, a second family 2, decided in a family, families not taken");
}

} // namespace
