#include "LogReplayCore.h"

#include <plexa_can/LogReplayDispatcher.h>

#include <utility>

namespace tarn
{

std::tr1::shared_ptr<LogReplayDispatcher> LogReplayDispatcher::Create(const std::string& path,
                                                                      const Options& options)
{
    return std::tr1::shared_ptr<LogReplayDispatcher>(
        new LogReplayDispatcher(std::make_shared<Core>(path, options)));
}

std::tr1::shared_ptr<LogReplayDispatcher> LogReplayDispatcher::Create(const std::string& path)
{
    return Create(path, Options());
}

LogReplayDispatcher::LogReplayDispatcher(std::shared_ptr<Core> core) : mCore(std::move(core)) {}

LogReplayDispatcher::~LogReplayDispatcher() noexcept
{
    mCore->Close();
}

void LogReplayDispatcher::Start(iCanMessageHandler* handler)
{
    mCore->Start(handler);
}

void LogReplayDispatcher::Stop(iCanMessageHandler* handler)
{
    mCore->Stop(handler);
}

void LogReplayDispatcher::Send(CanMessage& frame)
{
    mCore->Send(frame);
}

bool LogReplayDispatcher::IsFinished() const
{
    return mCore->IsFinished();
}

bool LogReplayDispatcher::WaitUntilFinished(unsigned int timeout) const
{
    return mCore->WaitUntilFinished(std::chrono::milliseconds(timeout));
}

std::string LogReplayDispatcher::GetFailure() const
{
    return mCore->GetFailure();
}

LogReplayDispatcher::Progress LogReplayDispatcher::GetProgress() const
{
    return mCore->GetProgress();
}

CanBusCounters LogReplayDispatcher::GetCounters() const
{
    return mCore->GetCounters();
}

} // namespace tarn
