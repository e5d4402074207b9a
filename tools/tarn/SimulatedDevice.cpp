#include "SimulatedDevice.h"

#include "Motion.h"

#include <exception>
#include <stdexcept>
#include <string>
#include <utility>

namespace tarn::tool
{

namespace
{

constexpr unsigned char LAST_ADDRESS = 126;

} // namespace

SimulatedDevice::SimulatedDevice(std::tr1::shared_ptr<iTarnAsyncDispatcher> dispatcher,
                                 Options options)
    : mDispatcher(std::move(dispatcher)),
      mOptions(std::move(options)),
      mStatus(mOptions.status),
      mChance(mOptions.faults.seed ? *mOptions.faults.seed : std::random_device()())
{
    for (const unsigned char address : Addresses()) {
        if (address > LAST_ADDRESS)
            throw std::invalid_argument("device " + std::to_string(mOptions.address) +
                                        ": nobody can listen at address " +
                                        std::to_string(address) + "; give 0 to 126");
    }
    if (mOptions.delay.count() > 0 || mOptions.faults.late > 0)
        mLateSender = std::make_unique<LateSender>(
            [this](TarnMessage& answer) { SendNow(answer, mAnswers); });
    for (const unsigned char address : Addresses())
        mDispatcher->SubscribeTarget(address, this);
}

SimulatedDevice::~SimulatedDevice() noexcept
{
    for (const unsigned char address : Addresses())
        mDispatcher->UnsubscribeTarget(address, this);
}

/// Each once, also where a group has the number of the device.
std::set<unsigned char> SimulatedDevice::Addresses() const
{
    std::set<unsigned char> addresses = mOptions.groups;
    addresses.insert(mOptions.address);
    return addresses;
}

SimulatedDevice::Counters SimulatedDevice::GetCounters() const
{
    return {mRequests, mAnswers, mReports, mUnsent};
}

bool SimulatedDevice::DispatchResponse(TarnMessage& message)
{
    if (!IsForMe(message))
        return false;
    ++mRequests;
    TarnMessage answer = AnswerTo(message);
    const Faults& faults = mOptions.faults;
    if (mOptions.silent || Happens(faults.noAnswer))
        return false;
    Spoil(answer);
    SendInTime(answer, mOptions.delay + (Happens(faults.late) ? faults.lateBy
                                                              : std::chrono::nanoseconds::zero()));
    return false;
}

bool SimulatedDevice::IsForMe(const TarnMessage& message) const
{
    if (message.GetType() != TarnMessage::TYPE_DATA ||
        message.GetDirection() != TarnMessage::DIRECTION_REQUEST)
        return false;
    const unsigned char target = message.GetTargetAddr();
    return message.GetAddressing() == TarnMessage::ADDRESSING_GROUP
               ? mOptions.groups.count(target) != 0
               : target == mOptions.address;
}

TarnMessage SimulatedDevice::AnswerTo(const TarnMessage& request)
{
    TarnMessage answer;
    answer.SetFullHeader(request.GetFullHeader());
    answer.SetDirection(TarnMessage::DIRECTION_RESPONSE);
    answer.SetSourceAddr(request.GetTargetAddr());
    answer.SetTargetAddr(request.GetSourceAddr());
    answer.SetModule(request.GetModule());
    answer.SetAddressingMode(request.GetAddressingMode()); // SetModule() chose one of its own
    RegisterValue value;
    const RegisterMap::Refusal refusal = Access(request, value);
    answer.SetRStatus(refusal.value_or(mStatus));
    if (!refusal)
        value.PutInto(answer);
    return answer;
}

/// @param value gets what stands in the register now
RegisterMap::Refusal SimulatedDevice::Access(const TarnMessage& request, RegisterValue& value)
{
    const RegisterMap::Place place = {request.GetModule(), request.GetRegister()};
    if (request.GetAccessType() == TarnMessage::ACCESS_READ)
        return mRegisters.Read(place, value);
    const auto written = RegisterValue::Of(request);
    if (!written)
        return TarnMessage::STATUS_FRAME_FAILURE;
    value = *written;
    return mRegisters.Write(place, value);
}

bool SimulatedDevice::Happens(double share)
{
    return share > 0 && DrawShare(mChance) < share;
}

void SimulatedDevice::Spoil(TarnMessage& answer)
{
    const Faults& faults = mOptions.faults;
    if (Happens(faults.wrongRegister))
        answer.SetRegister(answer.GetRegister() ^ 1u);
    if (Happens(faults.wrongSource))
        answer.SetSourceAddr(answer.GetSourceAddr() ^ 1u);
    if (Happens(faults.wrongStatus))
        answer.SetRStatus(static_cast<TarnMessage::tTarnRStatus>((answer.GetRStatus() + 1) % 16));
}

void SimulatedDevice::SendInTime(TarnMessage& answer, std::chrono::nanoseconds delay)
{
    if (delay == std::chrono::nanoseconds::zero())
        SendNow(answer, mAnswers);
    else if (!mLateSender->Put(answer, LateSender::Clock::now() + delay))
        ++mUnsent;
}

void SimulatedDevice::Report(RegisterMap::Place place, unsigned char target,
                             TarnMessage::tTarnAddressing addressing)
{
    const auto value = mRegisters.Get(place);
    if (!value)
        return;
    TarnMessage report;
    report.SetDirection(TarnMessage::DIRECTION_RESPONSE);
    report.SetAccessType(TarnMessage::ACCESS_WRITE);
    report.SetAddressing(addressing);
    report.SetSourceAddr(mOptions.address);
    report.SetTargetAddr(target);
    report.SetRegister(place.reg);
    report.SetModule(place.module);
    report.SetRStatus(mStatus);
    value->PutInto(report);
    SendNow(report, mReports);
}

void SimulatedDevice::SendNow(TarnMessage& message, std::atomic<unsigned long long>& sent)
{
    try {
        mDispatcher->Send(message);
        ++sent;
    } catch (const std::exception&) { // the bus did not take it
        ++mUnsent;
    } catch (const std::string&) { // no frame can carry it
        ++mUnsent;
    }
}

} // namespace tarn::tool
