#ifndef TARN_TOOLS_SIMULATED_DEVICE_H
#define TARN_TOOLS_SIMULATED_DEVICE_H

#include "LateSender.h"
#include "RegisterMap.h"

#include <tarn/iTarnAsyncDispatcher.h>
#include <tarn/iTarnMessageHandler.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <optional>
#include <set>
#include <tr1/memory>

namespace tarn::tool
{

/// A device that exists in software only: answers the READ and WRITE requests that a dispatcher
/// brings, out of a register map.
///
/// An answer repeats addressing, access type, addressing mode, register, module and priority of its
/// request, so that a TarnSyncRequest takes it, and swaps the addresses; that of a group request
/// has the group for its source. It carries the status of the device and the value of the register,
/// after a WRITE too; a refused request is answered with the reason for status and no value.
///
/// Ignored are CHCP messages, responses and whatever is for others. Answers without delay are sent
/// on the thread that brings the request, late ones on a thread of the device's own. An answer that
/// the bus does not take is counted, and the device goes on.
class SimulatedDevice : public iTarnMessageHandler
{
public:
    struct Options {
        unsigned char address = 0;      ///< 0 to 126
        std::set<unsigned char> groups; ///< groups it answers for, each 0 to 126
        TarnMessage::tTarnRStatus status = TarnMessage::STATUS_OPERATING;
        std::chrono::milliseconds delay{0}; ///< between request and answer
        bool silent = false;                ///< never answers; writes are done all the same
    };

    struct Counters {
        unsigned long long requests = 0; ///< for this device
        unsigned long long answers = 0;  ///< sent
        unsigned long long unsent = 0;   ///< answers that the bus refused, or too many that waited
    };

    /// Subscribes for its address and groups. The dispatcher is not started or stopped here.
    /// @throws std::invalid_argument for an address or group above 126
    SimulatedDevice(std::tr1::shared_ptr<iTarnAsyncDispatcher> dispatcher, Options options);

    /// Unsubscribes; answers that still wait are not sent. Not to be called inside a handler.
    ~SimulatedDevice() noexcept override;
    SimulatedDevice(const SimulatedDevice&) = delete;
    SimulatedDevice& operator=(const SimulatedDevice&) = delete;

    RegisterMap& GetRegisters() { return mRegisters; }
    void SetStatus(TarnMessage::tTarnRStatus status) { mStatus = status; }
    Counters GetCounters() const;

    bool DispatchResponse(TarnMessage& message) override;

private:
    std::set<unsigned char> Addresses() const;
    bool IsForMe(const TarnMessage& message) const;
    TarnMessage AnswerTo(const TarnMessage& request);
    RegisterMap::Refusal Access(const TarnMessage& request, RegisterValue& value);
    void SendInTime(TarnMessage& answer);
    void SendNow(TarnMessage& answer);

    const std::tr1::shared_ptr<iTarnAsyncDispatcher> mDispatcher;
    const Options mOptions;
    RegisterMap mRegisters;
    std::atomic<TarnMessage::tTarnRStatus> mStatus;
    std::atomic<unsigned long long> mRequests{0};
    std::atomic<unsigned long long> mAnswers{0};
    std::atomic<unsigned long long> mUnsent{0};
    std::unique_ptr<LateSender> mLateSender; ///< only with a delay
};

} // namespace tarn::tool

#endif
