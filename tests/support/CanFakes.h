#ifndef TARN_TESTS_SUPPORT_CAN_FAKES_H
#define TARN_TESTS_SUPPORT_CAN_FAKES_H

#include "support/Await.h"

#include <plexa_can/CanMessage.h>
#include <plexa_can/iCanMessageHandler.h>

#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

namespace tarn::test
{

inline CanMessage ExtendedFrame(unsigned int header, const std::vector<unsigned char>& data = {})
{
    CanMessage frame;
    frame.SetHeader(header);
    frame.GetFlags() = CanMessage::FLAG_EXTENDED;
    frame.SetData(data);
    return frame;
}

/// Keeps the frames it gets, for any number of threads.
class FrameRecorder : public iCanMessageHandler
{
public:
    explicit FrameRecorder(std::function<void(CanMessage&)> action = {})
        : mAction(std::move(action))
    {
    }
    ~FrameRecorder() noexcept override {}

    void DispatchResponse(CanMessage& frame) override
    {
        {
            const std::lock_guard<std::mutex> lock(mMutex);
            mFrames.push_back(frame);
            mChanged.notify_all();
        }
        if (mAction)
            mAction(frame);
    }

    bool AwaitCount(std::size_t count)
    {
        std::unique_lock<std::mutex> lock(mMutex);
        return mChanged.wait_for(lock, PATIENCE, [&] { return mFrames.size() >= count; });
    }

    std::vector<CanMessage> Frames()
    {
        const std::lock_guard<std::mutex> lock(mMutex);
        return mFrames;
    }

    /// The frames' identifiers, in the order of arrival.
    std::vector<unsigned int> Headers()
    {
        std::vector<unsigned int> headers;
        for (const CanMessage& frame : Frames())
            headers.push_back(frame.GetHeader());
        return headers;
    }

private:
    std::function<void(CanMessage&)> mAction;
    std::mutex mMutex;
    std::condition_variable mChanged;
    std::vector<CanMessage> mFrames;
};

} // namespace tarn::test

#endif
