#include "Simulation.h"

#include "TypedValues.h"

#include <algorithm>

namespace tarn::tool
{

namespace
{

bool IsMoving(const InstalledRegister& entry)
{
    return std::any_of(entry.values.begin(), entry.values.end(), [](const InstalledValue& value) {
        return value.motion.kind != Motion::CONSTANT;
    });
}

TarnMessage AnnouncementOf(const InstalledDevice& device)
{
    TarnMessage message;
    message.SetType(TarnMessage::TYPE_CHCP);
    message.SetChcpMacID(*device.mac);
    message.SetChcpDeviceCode(static_cast<TarnMessage::tTarnDeviceCode>(device.deviceCode));
    message.SetChcpID(device.Address());
    return message;
}

/// The values of a register at any time.
class MovingRegister
{
public:
    MovingRegister(const InstalledRegister& entry, Simulation::Clock::time_point begin)
        : mEntry(entry),
          mBegin(begin)
    {
        for (const InstalledValue& value : entry.values)
            mValues.emplace_back(value.motion);
    }

    RegisterValue operator()()
    {
        const Duration time = Simulation::Clock::now() - mBegin;
        std::vector<double> numbers;
        for (std::size_t at = 0; at < mValues.size(); ++at)
            numbers.push_back(mEntry.values[at].OnBus(mValues[at].At(time)));
        return PayloadOf(mEntry.dataType, numbers);
    }

private:
    InstalledRegister mEntry;
    Simulation::Clock::time_point mBegin;
    std::vector<MovingValue> mValues;
};

} // namespace

void Simulation::Add(const InstalledDevice& device)
{
    mDevices.push_back(std::make_unique<SimulatedDevice>(mDispatcher, device.options));
    for (const InstalledRegister& entry : device.registers)
        AddRegister(entry, mDevices.back()->GetRegisters());
    if (device.mac)
        mAnnouncements.push_back(AnnouncementOf(device));
    if (!device.report)
        return;
    Reporter reporter = {mDevices.back().get(), *device.report, {}, mBegin};
    for (const std::size_t at : device.report->registers)
        reporter.places.push_back(device.registers[at].place);
    mReporters.push_back(std::move(reporter));
}

void Simulation::Announce()
{
    for (TarnMessage& announcement : mAnnouncements)
        mDispatcher->Send(announcement);
}

void Simulation::AddRegister(const InstalledRegister& entry, RegisterMap& registers) const
{
    MovingRegister values(entry, mBegin);
    if (IsMoving(entry))
        registers.AddMoving(entry.place, entry.access, std::move(values));
    else
        registers.Add(entry.place, entry.access, values());
}

void Simulation::SendReports()
{
    const Clock::time_point now = Clock::now();
    for (Reporter& reporter : mReporters) {
        if (reporter.due > now)
            continue;
        for (const RegisterMap::Place place : reporter.places)
            reporter.device->Report(place, reporter.plan.target, reporter.plan.addressing);
        reporter.due = std::max(reporter.due + reporter.plan.interval, now);
    }
}

Simulation::Clock::time_point Simulation::NextReport() const
{
    Clock::time_point next = Clock::time_point::max();
    for (const Reporter& reporter : mReporters)
        next = std::min(next, reporter.due);
    return next;
}

SimulatedDevice::Counters Simulation::GetCounters() const
{
    SimulatedDevice::Counters sum;
    for (const auto& device : mDevices) {
        const SimulatedDevice::Counters counters = device->GetCounters();
        sum.requests += counters.requests;
        sum.answers += counters.answers;
        sum.reports += counters.reports;
        sum.unsent += counters.unsent;
    }
    return sum;
}

} // namespace tarn::tool
