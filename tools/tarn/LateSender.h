#ifndef TARN_TOOLS_LATE_SENDER_H
#define TARN_TOOLS_LATE_SENDER_H

#include <tarn/TarnMessage.h>

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <functional>
#include <map>
#include <mutex>
#include <thread>

namespace tarn::tool
{

/// Sends messages when they are due, on a thread of its own, so that whoever hands them over need
/// not wait. Messages due at the same time keep their order.
class LateSender
{
public:
    using Clock = std::chrono::steady_clock;

    /// Most messages that wait.
    static constexpr std::size_t CAPACITY = 1024;

    /// @param send is called on the thread, one call after another; must not throw
    explicit LateSender(std::function<void(TarnMessage&)> send);

    /// Ends the thread, once a message being sent is sent. Messages still waiting are dropped.
    ~LateSender();
    LateSender(const LateSender&) = delete;
    LateSender& operator=(const LateSender&) = delete;

    /// @return false when too many messages wait already
    bool Put(const TarnMessage& message, Clock::time_point due);

private:
    void Run();

    const std::function<void(TarnMessage&)> mSend;
    std::mutex mMutex;
    std::condition_variable mChanged;
    std::multimap<Clock::time_point, TarnMessage> mWaiting;
    bool mStopping = false;
    std::thread mThread;
};

} // namespace tarn::tool

#endif
