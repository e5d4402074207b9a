#ifndef TARN_TESTS_SUPPORT_LOG_CAPTURE_H
#define TARN_TESTS_SUPPORT_LOG_CAPTURE_H

#include <Poco/AutoPtr.h>
#include <Poco/Channel.h>
#include <Poco/Logger.h>
#include <Poco/Message.h>

#include <mutex>
#include <string>

namespace tarn::test
{

/// Collects the lines of loggers, each as "PRIORITY LOGGER TEXT\n".
class LogCapture : public Poco::Channel
{
public:
    void log(const Poco::Message& message) override
    {
        const std::lock_guard<std::mutex> lock(mMutex);
        mLines += std::to_string(message.getPriority()) + ' ' + message.getSource() + ' ' +
                  message.getText() + '\n';
    }

    std::string Take()
    {
        const std::lock_guard<std::mutex> lock(mMutex);
        std::string lines;
        lines.swap(mLines);
        return lines;
    }

    /// A capture on the loggers of all classes, at this level.
    static Poco::AutoPtr<LogCapture> OnAll(int level)
    {
        Poco::AutoPtr<LogCapture> capture(new LogCapture);
        for (const char* name :
             {"TarnAsyncDispatcher", "TarnAsyncDispatcherMock", "TarnSyncRequest"}) {
            Poco::Logger::get(name).setChannel(capture);
            Poco::Logger::get(name).setLevel(level);
        }
        return capture;
    }

    static void SetLevel(int level)
    {
        for (const char* name :
             {"TarnAsyncDispatcher", "TarnAsyncDispatcherMock", "TarnSyncRequest"})
            Poco::Logger::get(name).setLevel(level);
    }

private:
    std::mutex mMutex;
    std::string mLines;
};

} // namespace tarn::test

#endif
