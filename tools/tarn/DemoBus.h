#ifndef TARN_TOOLS_DEMO_BUS_H
#define TARN_TOOLS_DEMO_BUS_H

#include "SimulatedDevice.h"

#include <plexa_can/VirtualCanBus.h>
#include <tarn/TarnAsyncDispatcher.h>
#include <tarn/TarnMessage.h>
#include <tarn/TarnSyncRequest.h>
#include <tarn/iTarnMessageHandler.h>

#include <array>
#include <bitset>
#include <mutex>
#include <tr1/memory>
#include <vector>

namespace tarn::tool
{

/// A dispatcher on a bus node of its own, which receives from beginning to end of its life.
class Station
{
public:
    explicit Station(VirtualCanBus& bus);
    ~Station();
    Station(const Station&) = delete;
    Station& operator=(const Station&) = delete;

    const std::tr1::shared_ptr<TarnAsyncDispatcher>& GetDispatcher() const { return mDispatcher; }

private:
    const std::tr1::shared_ptr<TarnAsyncDispatcher> mDispatcher;
};

/// A controller and three devices on a bus inside the process.
class DemoBus
{
public:
    static constexpr unsigned char CONTROLLER = 1;
    static constexpr unsigned char SENSOR = 10;
    static constexpr unsigned char TEMPERATURE = 1; ///< register of the sensor, read only
    static constexpr unsigned char MOTOR = 20;
    static constexpr unsigned char MOTOR_MODULE = 3;
    static constexpr unsigned char SPEED = 7; ///< register of the motor's module
    static constexpr std::chrono::milliseconds MOTOR_DELAY{200};
    static constexpr unsigned char DISPLAY = 30;

    /// The handlers of the controller, in the order in which a message reaches them.
    enum tHandler { SOURCE_HANDLER, TARGET_HANDLER, CHCP_HANDLER, ALL_HANDLER, HANDLERS };

    /// A message that the controller received.
    struct Received {
        TarnMessage message;
        std::bitset<HANDLERS> handlers; ///< those that were called with it
    };

    DemoBus();
    ~DemoBus();
    DemoBus(const DemoBus&) = delete;
    DemoBus& operator=(const DemoBus&) = delete;

    TarnSyncRequest& GetRequest() { return *mRequest; }
    void SendAs(unsigned char device, TarnMessage& message);

    /// What the controller received since the last call, once the bus is at rest.
    /// @throws Failure when it does not come to rest
    std::vector<Received> TakeReceived();

    VirtualCanBus::Counters GetCounters() const { return mBus->GetCounters(); }

private:
    /// Notes what it is called with.
    class Watcher : public iTarnMessageHandler
    {
    public:
        Watcher(DemoBus& bus, tHandler which) : mBus(bus), mWhich(which) {}
        ~Watcher() noexcept override = default;
        bool DispatchResponse(TarnMessage& message) override;

    private:
        DemoBus& mBus;
        const tHandler mWhich;
    };

    void Note(tHandler which, const TarnMessage& message);

    const std::tr1::shared_ptr<VirtualCanBus> mBus;
    std::mutex mMutex;
    std::vector<Received> mReceived;
    bool mLastIsComplete = true;

    std::array<Watcher, HANDLERS> mWatchers;
    // The devices go before the dispatchers that bring them requests.
    Station mController;
    Station mSensorStation;
    Station mMotorStation;
    Station mDisplayStation;
    SimulatedDevice mSensor;
    SimulatedDevice mMotor;
    SimulatedDevice mDisplay;
    std::tr1::shared_ptr<TarnSyncRequest> mRequest;
};

} // namespace tarn::tool

#endif
