#ifndef TARN_TESTS_SUPPORT_THROWING_CHANNEL_H
#define TARN_TESTS_SUPPORT_THROWING_CHANNEL_H

#include <Poco/AutoPtr.h>
#include <Poco/Channel.h>
#include <Poco/Logger.h>

#include <atomic>
#include <stdexcept>

namespace tarn::test
{

/// A log that fails, as one on a full disk does.
class ThrowingChannel : public Poco::Channel
{
public:
    void log(const Poco::Message&) override
    {
        ++mCalls;
        throw std::runtime_error("no space left");
    }

    std::atomic<int> mCalls{0};
};

/// Gives a logger such a channel for as long as it lives.
class BrokenLog
{
public:
    explicit BrokenLog(const char* logger)
        : mLogger(Poco::Logger::get(logger)),
          mChannel(new ThrowingChannel)
    {
        mLogger.setChannel(mChannel);
    }
    ~BrokenLog() { mLogger.setChannel(nullptr); }
    BrokenLog(const BrokenLog&) = delete;
    BrokenLog& operator=(const BrokenLog&) = delete;

    int Calls() const { return mChannel->mCalls; }

private:
    Poco::Logger& mLogger;
    const Poco::AutoPtr<ThrowingChannel> mChannel;
};

} // namespace tarn::test

#endif
