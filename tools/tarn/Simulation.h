#ifndef TARN_TOOLS_SIMULATION_H
#define TARN_TOOLS_SIMULATION_H

#include "Installation.h"
#include "SimulatedDevice.h"

#include <tarn/iTarnAsyncDispatcher.h>

#include <chrono>
#include <memory>
#include <tr1/memory>
#include <vector>

namespace tarn::tool
{

/// The devices of an installation in software. They answer on the threads of the dispatcher;
/// reports that nobody asked for are sent by the thread that owns this object.
class Simulation
{
public:
    using Clock = std::chrono::steady_clock;

    explicit Simulation(std::tr1::shared_ptr<iTarnAsyncDispatcher> dispatcher)
        : mDispatcher(std::move(dispatcher))
    {
    }

    /// Begins to answer for a device; until this returns, registers may be missing.
    void Add(const InstalledDevice& device);

    /// For every device with a MAC identifier, sends a CHCP message with its device code, and its
    /// address for CHCP identifier.
    /// @throws CanException
    void Announce();

    /// Sends what is due. After a delay there is no burst to make up for it.
    void SendReports();

    /// When the next report is due; the end of time for none.
    Clock::time_point NextReport() const;

    /// Of all devices.
    SimulatedDevice::Counters GetCounters() const;

private:
    struct Reporter {
        SimulatedDevice* device;
        UnaskedReport plan;
        std::vector<RegisterMap::Place> places;
        Clock::time_point due;
    };

    void AddRegister(const InstalledRegister& entry, RegisterMap& registers) const;

    const std::tr1::shared_ptr<iTarnAsyncDispatcher> mDispatcher;
    const Clock::time_point mBegin = Clock::now();
    std::vector<std::unique_ptr<SimulatedDevice>> mDevices;
    std::vector<TarnMessage> mAnnouncements;
    std::vector<Reporter> mReporters;
};

} // namespace tarn::tool

#endif
