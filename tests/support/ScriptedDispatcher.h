#ifndef TARN_TESTS_SUPPORT_SCRIPTED_DISPATCHER_H
#define TARN_TESTS_SUPPORT_SCRIPTED_DISPATCHER_H

#include <tarn/TarnMessage.h>
#include <tarn/iTarnAsyncDispatcher.h>
#include <tarn/iTarnMessageHandler.h>

#include <functional>
#include <string>

namespace tarn::test
{

/// A dispatcher that keeps what it was asked to do, and does on Send and on Unsubscribe what the
/// test tells it to.
class ScriptedDispatcher : public iTarnAsyncDispatcher
{
public:
    void Start() override { mCalls += "Start;"; }
    void Stop() override { mCalls += "Stop;"; }

    void Send(TarnMessage& message) override
    {
        mCalls += "Send " + message.RawMessage().ToString() + ";";
        if (mOnSend)
            mOnSend(message);
    }

    void SubscribeSource(unsigned char sourceAddr, iTarnMessageHandler* handler) override
    {
        mCalls += "SubscribeSource " + std::to_string(sourceAddr) + ";";
        mHandler = handler;
    }

    void UnsubscribeSource(unsigned char sourceAddr, iTarnMessageHandler* handler) override
    {
        mCalls += "UnsubscribeSource " + std::to_string(sourceAddr) + ";";
        if (mOnUnsubscribe)
            mOnUnsubscribe();
        if (handler == mHandler)
            mHandler = nullptr;
    }

    void SubscribeTarget(unsigned char, iTarnMessageHandler*) override { mCalls += "other;"; }
    void UnsubscribeTarget(unsigned char, iTarnMessageHandler*) override { mCalls += "other;"; }
    void SubscribeChcp(iTarnMessageHandler*) override { mCalls += "other;"; }
    void UnsubscribeChcp(iTarnMessageHandler*) override { mCalls += "other;"; }
    void SubscribeAll(iTarnMessageHandler*) override { mCalls += "other;"; }
    void UnsubscribeAll(iTarnMessageHandler*) override { mCalls += "other;"; }

    std::string mCalls;
    iTarnMessageHandler* mHandler = nullptr;
    std::function<void(TarnMessage&)> mOnSend;
    std::function<void()> mOnUnsubscribe;
};

} // namespace tarn::test

#endif
