#include "support/DispatchFakes.h"
#include "support/ScriptedDispatcher.h"

#include <tarn/TarnAsyncDispatcher.h>
#include <tarn/TarnAsyncDispatcherMock.h>
#include <tarn/TarnSyncRequest.h>

#include <gtest/gtest.h>

#include <string>
#include <type_traits>

// Programs that were built against the interfaces call through their virtual tables, by number. So
// do these tests, by the rules of the Itanium C++ ABI: the address of an object's table stands
// first in the object, a method gets the object as its first argument, slots 0 and 1 are the
// complete and the deleting destructor.

namespace
{

using namespace tarn;
using namespace tarn::test;

template <typename Result, typename... Arguments>
Result CallSlot(void* object, int slot, Arguments... arguments)
{
    using Method = Result (*)(void*, Arguments...);
    void** const table = *static_cast<void***>(object);
    return reinterpret_cast<Method>(table[slot])(object, arguments...);
}

enum tSlot : int {
    DELETING_DESTRUCTOR = 1,
    START,
    STOP,
    SEND,
    SUBSCRIBE_SOURCE,
    UNSUBSCRIBE_SOURCE,
    SUBSCRIBE_TARGET,
    UNSUBSCRIBE_TARGET,
    SUBSCRIBE_CHCP,
    UNSUBSCRIBE_CHCP,
    SUBSCRIBE_ALL,
    UNSUBSCRIBE_ALL,
    DISPATCH_RESPONSE
};

class Slots : public testing::Test
{
protected:
    /// What the handler hears of one DATA frame from 5 to 9 and one CHCP frame.
    std::string Heard(void* dispatcher)
    {
        mCalls.clear();
        CanMessage data = DataFrame(5, 9);
        CanMessage chcp = ChcpFrame(1);
        CallSlot<void, CanMessage&>(dispatcher, DISPATCH_RESPONSE, data);
        mCalls += "|";
        CallSlot<void, CanMessage&>(dispatcher, DISPATCH_RESPONSE, chcp);
        return mCalls;
    }

    std::string mCalls;
    RecordingHandler mHandler{"H", mCalls};
    iTarnMessageHandler* mPointer = &mHandler;
};

TEST_F(Slots, OfTheDispatcherInTheirOrder)
{
    using Handler = iTarnMessageHandler*;
    auto* const lower = new RecordingCanDispatcher;
    std::tr1::shared_ptr<iCanAsyncDispatcher> lowerPointer(lower);
    iTarnAsyncDispatcher* const dispatcher = new TarnAsyncDispatcher(lowerPointer);
    CallSlot<void>(dispatcher, START);
    CallSlot<void>(dispatcher, STOP);
    TarnMessage message;
    CallSlot<void, TarnMessage&>(dispatcher, SEND, message);
    EXPECT_EQ(lower->mCalls, "Start;Stop;Send 0F800001#20;");
    CallSlot<void, unsigned char, Handler>(dispatcher, SUBSCRIBE_SOURCE, 5, mPointer);
    EXPECT_EQ(Heard(dispatcher), "H|");
    CallSlot<void, unsigned char, Handler>(dispatcher, UNSUBSCRIBE_SOURCE, 5, mPointer);
    EXPECT_EQ(Heard(dispatcher), "|");
    CallSlot<void, unsigned char, Handler>(dispatcher, SUBSCRIBE_TARGET, 9, mPointer);
    EXPECT_EQ(Heard(dispatcher), "H|");
    CallSlot<void, unsigned char, Handler>(dispatcher, UNSUBSCRIBE_TARGET, 9, mPointer);
    CallSlot<void, Handler>(dispatcher, SUBSCRIBE_CHCP, mPointer);
    EXPECT_EQ(Heard(dispatcher), "|H");
    CallSlot<void, Handler>(dispatcher, UNSUBSCRIBE_CHCP, mPointer);
    CallSlot<void, Handler>(dispatcher, SUBSCRIBE_ALL, mPointer);
    EXPECT_EQ(Heard(dispatcher), "H|H");
    CallSlot<void, Handler>(dispatcher, UNSUBSCRIBE_ALL, mPointer);
    EXPECT_EQ(Heard(dispatcher), "|");
    CallSlot<void>(dispatcher, DELETING_DESTRUCTOR);
    EXPECT_EQ(lowerPointer.use_count(), 1) << "the destructor did not run";
}

TEST_F(Slots, OfTheDispatcherAsFrameHandler)
{
    TarnAsyncDispatcher dispatcher((std::tr1::shared_ptr<iCanAsyncDispatcher>()));
    dispatcher.SubscribeSource(5, &mHandler);
    iCanMessageHandler* const frameHandler = &dispatcher;
    CanMessage data = DataFrame(5, 9);
    CallSlot<void, CanMessage&>(frameHandler, 2, data);
    EXPECT_EQ(mCalls, "H");
}

TEST_F(Slots, OfTheMockInTheirOrder)
{
    using Handler = iTarnMessageHandler*;
    iTarnAsyncDispatcher* const mock = new TarnAsyncDispatcherMock;
    CallSlot<void, unsigned char, Handler>(mock, SUBSCRIBE_TARGET, 9, mPointer);
    CallSlot<void, Handler>(mock, SUBSCRIBE_CHCP, mPointer);
    CallSlot<void, Handler>(mock, SUBSCRIBE_ALL, mPointer);
    EXPECT_EQ(Heard(mock), "H|H");
    CallSlot<void, unsigned char, Handler>(mock, UNSUBSCRIBE_TARGET, 9, mPointer);
    CallSlot<void, Handler>(mock, UNSUBSCRIBE_CHCP, mPointer);
    EXPECT_EQ(Heard(mock), "|");
    CallSlot<void>(mock, DELETING_DESTRUCTOR);
}

TEST_F(Slots, OfTheSynchronousRequest)
{
    std::tr1::shared_ptr<ScriptedDispatcher> scripted(new ScriptedDispatcher);
    std::tr1::shared_ptr<iTarnAsyncDispatcher> dispatcher(scripted);
    iTarnMessageHandler* const request = new TarnSyncRequest(dispatcher);
    TarnMessage message;
    EXPECT_FALSE((CallSlot<bool, TarnMessage&>(request, 2, message)));
    CallSlot<void>(request, DELETING_DESTRUCTOR);
    EXPECT_EQ(dispatcher.use_count(), 2) << "the destructor did not run";
}

TEST(Bases, StandInTheirOrder)
{
    TarnAsyncDispatcher dispatcher((std::tr1::shared_ptr<iCanAsyncDispatcher>()));
    const void* const whole = &dispatcher;
    EXPECT_EQ(static_cast<iTarnAsyncDispatcher*>(&dispatcher), whole);
    EXPECT_EQ(reinterpret_cast<const char*>(static_cast<iCanMessageHandler*>(&dispatcher)),
              static_cast<const char*>(whole) + sizeof(void*));
    static_assert(!std::is_base_of_v<iCanMessageHandler, TarnAsyncDispatcherMock>);
    static_assert(std::is_base_of_v<iTarnAsyncDispatcher, TarnAsyncDispatcherMock>);
    static_assert(std::is_base_of_v<iTarnMessageHandler, TarnSyncRequest>);
}

TEST(Bases, DestroyTheWholeDispatcher)
{
    for (const bool asFrameHandler : {false, true}) {
        std::tr1::shared_ptr<iCanAsyncDispatcher> lower(new RecordingCanDispatcher);
        auto* const dispatcher = new TarnAsyncDispatcher(lower);
        EXPECT_EQ(lower.use_count(), 2);
        if (asFrameHandler)
            delete static_cast<iCanMessageHandler*>(dispatcher);
        else
            delete static_cast<iTarnAsyncDispatcher*>(dispatcher);
        EXPECT_EQ(lower.use_count(), 1);
    }
}

TEST(Destructors, MayThrowWhereTheyLockAndTheBaseAllowsIt)
{
    static_assert(!std::is_nothrow_destructible_v<iTarnMessageHandler>);
    static_assert(!std::is_nothrow_destructible_v<iTarnAsyncDispatcher>);
    static_assert(!std::is_nothrow_destructible_v<TarnAsyncDispatcherMock>);
    static_assert(!std::is_nothrow_destructible_v<TarnSyncRequest>);
    static_assert(std::is_nothrow_destructible_v<TarnAsyncDispatcher> ==
                  std::is_nothrow_destructible_v<iCanMessageHandler>);
}

} // namespace
