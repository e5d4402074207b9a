#include "support/DispatchFakes.h"

#include <plexa_can/CanException.h>
#include <tarn/TarnAsyncDispatcher.h>

#include <gtest/gtest.h>

#include <functional>
#include <string>

namespace
{

using namespace tarn;
using namespace tarn::test;

class Lifecycle : public testing::Test
{
protected:
    Lifecycle()
        : mLower(new RecordingCanDispatcher),
          mDispatcher(TarnAsyncDispatcher::Create(mLower))
    {
    }
    ~Lifecycle() override { mDispatcher.reset(); }

    std::tr1::shared_ptr<RecordingCanDispatcher> mLower;
    std::tr1::shared_ptr<TarnAsyncDispatcher> mDispatcher;
    TarnMessage mMessage;
};

TEST_F(Lifecycle, StartAndStopReachTheConnectionEveryTime)
{
    mDispatcher->Stop();
    EXPECT_EQ(mLower->mCalls, "Stop of another;") << "Start was not called yet";
    mDispatcher->Start();
    mDispatcher->Start();
    mDispatcher->Stop();
    mDispatcher->Stop();
    EXPECT_EQ(mLower->mCalls, "Stop of another;Start;Start;Stop;Stop;");
    EXPECT_EQ(mLower->mHandler, static_cast<iCanMessageHandler*>(mDispatcher.get()));
}

TEST_F(Lifecycle, SendReachesTheConnectionOnceAndNoLocalHandler)
{
    std::string calls;
    RecordingHandler handler("H", calls);
    mDispatcher->SubscribeSource(1, &handler);
    mDispatcher->SubscribeTarget(0, &handler);
    mDispatcher->SubscribeAll(&handler);
    mDispatcher->Start();
    mDispatcher->Send(mMessage);
    EXPECT_EQ(mLower->mCalls, "Start;Send 0F800001#20;");
    EXPECT_EQ(calls, "");
}

TEST_F(Lifecycle, SendHandsOverTheFrameInsideTheMessage)
{
    const CanMessage* sent = nullptr;
    mLower->mOnSend = [&](CanMessage& frame) { sent = &frame; };
    mDispatcher->Send(mMessage);
    EXPECT_EQ(sent, &mMessage.RawMessageRef());
}

TEST_F(Lifecycle, DestructionReleasesTheConnectionAndDoesNotStopIt)
{
    mDispatcher->Start();
    EXPECT_EQ(mLower.use_count(), 2);
    mDispatcher.reset();
    EXPECT_EQ(mLower.use_count(), 1);
    EXPECT_EQ(mLower->mCalls, "Start;");
}

/// Throws from every operation.
class BrokenCanDispatcher : public iCanAsyncDispatcher
{
public:
    void Start(iCanMessageHandler*) override { throw CanException("start", 1); }
    void Stop(iCanMessageHandler*) override { throw CanException("stop", 2); }
    void Send(CanMessage&) override { throw CanException("send", 3); }
};

std::string ThrownBy(const std::function<void()>& operation)
{
    try {
        operation();
    } catch (const CanException& exception) {
        return exception.message() + " " + std::to_string(exception.code());
    }
    return "nothing";
}

TEST_F(Lifecycle, WhatTheConnectionThrowsReachesTheCallerUnchanged)
{
    const auto dispatcher = TarnAsyncDispatcher::Create(
        std::tr1::shared_ptr<iCanAsyncDispatcher>(new BrokenCanDispatcher));
    EXPECT_EQ(ThrownBy([&] { dispatcher->Start(); }), "start 1");
    EXPECT_EQ(ThrownBy([&] { dispatcher->Stop(); }), "stop 2");
    EXPECT_EQ(ThrownBy([&] { dispatcher->Send(mMessage); }), "send 3");
}

} // namespace
