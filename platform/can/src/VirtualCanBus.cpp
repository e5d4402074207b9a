#include "SteadyLock.h"
#include "VirtualCanBusCore.h"

#include <plexa_can/VirtualCanBus.h>

#include <map>
#include <utility>

namespace tarn
{

namespace
{

/// The buses in use by name. An entry goes with the last user of its bus.
class NamedBuses
{
public:
    static NamedBuses& Instance()
    {
        static auto* const instance = new NamedBuses; // outlives static objects that hold a bus
        return *instance;
    }

    std::shared_ptr<VirtualCanBus::Core> Open(const std::string& name,
                                              const VirtualCanBus::Options& options)
    {
        const SteadyRecursiveLock lock(mMutex);
        const auto entry = mBuses.find(name);
        if (entry != mBuses.end()) {
            if (auto bus = entry->second.lock())
                return bus;
        }
        std::shared_ptr<VirtualCanBus::Core> bus(new VirtualCanBus::Core(options),
                                                 [this, name](VirtualCanBus::Core* core) {
                                                     delete core;
                                                     Forget(name);
                                                 });
        mBuses[name] = bus;
        return bus;
    }

private:
    void Forget(const std::string& name)
    {
        const SteadyRecursiveLock lock(mMutex);
        const auto entry = mBuses.find(name);
        if (entry != mBuses.end() && entry->second.expired())
            mBuses.erase(entry);
    }

    std::recursive_mutex mMutex; // a bus that cannot be entered goes while it is held
    std::map<std::string, std::weak_ptr<VirtualCanBus::Core>> mBuses;
};

} // namespace

std::tr1::shared_ptr<VirtualCanBus> VirtualCanBus::Create(const Options& options)
{
    return std::tr1::shared_ptr<VirtualCanBus>(new VirtualCanBus(std::make_shared<Core>(options)));
}

std::tr1::shared_ptr<VirtualCanBus> VirtualCanBus::Create()
{
    return Create(Options());
}

std::tr1::shared_ptr<VirtualCanBus> VirtualCanBus::Open(const std::string& name,
                                                        const Options& options)
{
    return std::tr1::shared_ptr<VirtualCanBus>(
        new VirtualCanBus(NamedBuses::Instance().Open(name, options)));
}

std::tr1::shared_ptr<VirtualCanBus> VirtualCanBus::Open(const std::string& name)
{
    return Open(name, Options());
}

VirtualCanBus::VirtualCanBus(std::shared_ptr<Core> core) : mCore(std::move(core)) {}

VirtualCanBus::~VirtualCanBus() = default;

std::tr1::shared_ptr<VirtualCanNode> VirtualCanBus::Connect()
{
    const auto core = std::make_shared<VirtualCanNode::Core>(mCore);
    std::tr1::shared_ptr<VirtualCanNode> node(new VirtualCanNode(core));
    mCore->Connect(core);
    return node;
}

void VirtualCanBus::SetFaults(const Faults& faults)
{
    mCore->SetFaults(faults);
}

VirtualCanBus::Counters VirtualCanBus::GetCounters() const
{
    return mCore->GetCounters();
}

bool VirtualCanBus::WaitUntilIdle(unsigned int timeout) const
{
    return mCore->WaitUntilIdle(std::chrono::milliseconds(timeout));
}

VirtualCanNode::VirtualCanNode(std::shared_ptr<Core> core) : mCore(std::move(core)) {}

VirtualCanNode::~VirtualCanNode() noexcept
{
    mCore->Close();
}

void VirtualCanNode::Start(iCanMessageHandler* handler)
{
    mCore->Start(handler);
}

void VirtualCanNode::Stop(iCanMessageHandler* handler)
{
    mCore->Stop(handler);
}

void VirtualCanNode::Send(CanMessage& frame)
{
    mCore->Bus().Send(*mCore, frame);
}

CanBusCounters VirtualCanNode::GetCounters() const
{
    return mCore->Bus().GetCounters(*mCore);
}

void VirtualCanNode::SetBusOff(bool busOff)
{
    mCore->Bus().SetBusOff(*mCore, busOff);
}

} // namespace tarn
