#ifndef TARN_TESTS_SUPPORT_DISPATCH_FAKES_H
#define TARN_TESTS_SUPPORT_DISPATCH_FAKES_H

#include <plexa_can/CanMessage.h>
#include <plexa_can/iCanAsyncDispatcher.h>
#include <plexa_can/iCanMessageHandler.h>
#include <tarn/TarnMessage.h>
#include <tarn/iTarnMessageHandler.h>

#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace tarn::test
{

inline CanMessage MakeFrame(unsigned int header, const std::vector<unsigned char>& data)
{
    CanMessage frame;
    frame.SetHeader(header);
    frame.GetFlags() = CanMessage::FLAG_EXTENDED;
    frame.SetData(data);
    return frame;
}

/// A DATA response without payload: priority DATA, DEVICE, READ, STANDARD mode, register 0.
inline CanMessage DataFrame(unsigned int source, unsigned int target)
{
    return MakeFrame(0x0F000000u | (target << 7) | source, {0x50});
}

inline CanMessage ChcpFrame(unsigned int mac)
{
    return MakeFrame(0x10000000u | mac, {1, 2, 3, 4, 5, 0, 0x10});
}

/// Writes its name to a protocol at every call, and does what it was told to.
class RecordingHandler : public iTarnMessageHandler
{
public:
    using Action = std::function<bool(TarnMessage&)>;

    RecordingHandler(std::string name, std::string& calls, Action action = {})
        : mName(std::move(name)),
          mCalls(calls),
          mAction(std::move(action))
    {
    }

    ~RecordingHandler() noexcept override {} // fixtures that hold handlers may not throw

    void SetAction(Action action) { mAction = std::move(action); }

    bool DispatchResponse(TarnMessage& message) override
    {
        mCalls += mName;
        return mAction ? mAction(message) : false;
    }

private:
    std::string mName;
    std::string& mCalls;
    Action mAction;
};

/// A lower layer that keeps what it was asked to do.
class RecordingCanDispatcher : public iCanAsyncDispatcher
{
public:
    void Start(iCanMessageHandler* handler) override
    {
        mCalls += "Start;";
        mHandler = handler;
    }

    void Stop(iCanMessageHandler* handler) override
    {
        mCalls += handler == mHandler ? "Stop;" : "Stop of another;";
    }

    void Send(CanMessage& frame) override
    {
        mCalls += "Send " + frame.ToString() + ";";
        if (mOnSend)
            mOnSend(frame);
    }

    std::string mCalls;
    iCanMessageHandler* mHandler = nullptr;
    std::function<void(CanMessage&)> mOnSend;
};

} // namespace tarn::test

#endif
