#include "SocketCanCore.h"

#include <plexa_can/SocketCanDispatcher.h>

#include <utility>

namespace tarn
{

std::tr1::shared_ptr<SocketCanDispatcher> SocketCanDispatcher::Create(const std::string& interface,
                                                                      const Options& options)
{
    return std::tr1::shared_ptr<SocketCanDispatcher>(
        new SocketCanDispatcher(std::make_shared<Core>(RealCanSystem(), interface, options)));
}

std::tr1::shared_ptr<SocketCanDispatcher> SocketCanDispatcher::Create(const std::string& interface)
{
    return Create(interface, Options());
}

SocketCanDispatcher::SocketCanDispatcher(std::shared_ptr<Core> core) : mCore(std::move(core)) {}

SocketCanDispatcher::~SocketCanDispatcher() noexcept
{
    mCore->Close();
}

void SocketCanDispatcher::Start(iCanMessageHandler* handler)
{
    mCore->Start(handler);
}

void SocketCanDispatcher::Stop(iCanMessageHandler* handler)
{
    mCore->Stop(handler);
}

void SocketCanDispatcher::Send(CanMessage& frame)
{
    mCore->Send(frame);
}

CanBusCounters SocketCanDispatcher::GetCounters() const
{
    return mCore->GetCounters();
}

tCanBusState SocketCanDispatcher::GetBusState() const
{
    return mCore->GetBusState();
}

void SocketCanDispatcher::AddStateListener(iCanBusStateListener* listener)
{
    mCore->AddStateListener(listener);
}

void SocketCanDispatcher::RemoveStateListener(iCanBusStateListener* listener)
{
    mCore->RemoveStateListener(listener);
}

bool SocketCanDispatcher::IsRealTime() const
{
    return mCore->IsRealTime();
}

} // namespace tarn
