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
#include <random>
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
/// On purpose, some answers may be wrong, late or left out.
///
/// Ignored are CHCP messages, responses and whatever is for others. Answers without delay are sent
/// on the thread that brings the request, late ones on a thread of the device's own. An answer that
/// the bus does not take is counted, and the device goes on.
class SimulatedDevice : public iTarnMessageHandler
{
public:
    /// Which share of the answers goes wrong, each 0 to 1. An answer may go wrong in several ways.
    struct Faults {
        double wrongRegister = 0; ///< names the register with the lowest bit changed
        double wrongSource = 0;   ///< comes from the address with the lowest bit changed
        double wrongStatus = 0;   ///< carries the status that follows its own
        double noAnswer = 0;
        double late = 0;
        std::chrono::nanoseconds lateBy = std::chrono::seconds(1); ///< beside the delay
        /// The same seed makes the same answers go wrong again; none: others each time.
        std::optional<unsigned int> seed;
    };

    struct Options {
        unsigned char address = 0;      ///< 0 to 126
        std::set<unsigned char> groups; ///< groups it answers for, each 0 to 126
        TarnMessage::tTarnRStatus status = TarnMessage::STATUS_OPERATING;
        std::chrono::nanoseconds delay{0}; ///< between request and answer
        bool silent = false;               ///< never answers; writes are done all the same
        Faults faults;
    };

    struct Counters {
        unsigned long long requests = 0; ///< for this device
        unsigned long long answers = 0;  ///< sent
        unsigned long long reports = 0;  ///< sent without being asked
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

    /// Sends the value of a register without being asked, as the response to a WRITE.
    void Report(RegisterMap::Place place, unsigned char target,
                TarnMessage::tTarnAddressing addressing);

    bool DispatchResponse(TarnMessage& message) override;

private:
    std::set<unsigned char> Addresses() const;
    bool IsForMe(const TarnMessage& message) const;
    TarnMessage AnswerTo(const TarnMessage& request);
    RegisterMap::Refusal Access(const TarnMessage& request, RegisterValue& value);
    bool Happens(double share);
    void Spoil(TarnMessage& answer);
    void SendInTime(TarnMessage& answer, std::chrono::nanoseconds delay);
    void SendNow(TarnMessage& message, std::atomic<unsigned long long>& sent);

    const std::tr1::shared_ptr<iTarnAsyncDispatcher> mDispatcher;
    const Options mOptions;
    RegisterMap mRegisters;
    std::atomic<TarnMessage::tTarnRStatus> mStatus;
    std::atomic<unsigned long long> mRequests{0};
    std::atomic<unsigned long long> mAnswers{0};
    std::atomic<unsigned long long> mReports{0};
    std::atomic<unsigned long long> mUnsent{0};
    std::mt19937_64 mChance;                 ///< of the thread that brings requests alone
    std::unique_ptr<LateSender> mLateSender; ///< only where answers are delayed
};

} // namespace tarn::tool

#endif
