#include "DemoBus.h"

#include "Failure.h"

#include <utility>

namespace tarn::tool
{

namespace
{

/// Milliseconds after which a bus that does not come to rest is given up.
constexpr unsigned int PATIENCE = 10000;

SimulatedDevice::Options At(unsigned char address)
{
    SimulatedDevice::Options options;
    options.address = address;
    return options;
}

SimulatedDevice::Options LateAt(unsigned char address, std::chrono::milliseconds delay)
{
    SimulatedDevice::Options options = At(address);
    options.delay = delay;
    return options;
}

SimulatedDevice::Options SilentAt(unsigned char address)
{
    SimulatedDevice::Options options = At(address);
    options.silent = true;
    return options;
}

} // namespace

Station::Station(VirtualCanBus& bus) : mDispatcher(TarnAsyncDispatcher::Create(bus.Connect()))
{
    mDispatcher->Start();
}

Station::~Station()
{
    mDispatcher->Stop();
}

DemoBus::DemoBus()
    : mBus(VirtualCanBus::Create()),
      mWatchers{Watcher(*this, SOURCE_HANDLER), Watcher(*this, TARGET_HANDLER),
                Watcher(*this, CHCP_HANDLER), Watcher(*this, ALL_HANDLER)},
      mController(*mBus),
      mSensorStation(*mBus),
      mMotorStation(*mBus),
      mDisplayStation(*mBus),
      mSensor(mSensorStation.GetDispatcher(), At(SENSOR)),
      mMotor(mMotorStation.GetDispatcher(), LateAt(MOTOR, MOTOR_DELAY)),
      mDisplay(mDisplayStation.GetDispatcher(), SilentAt(DISPLAY)),
      mRequest(TarnSyncRequest::Create(mController.GetDispatcher()))
{
    mSensor.GetRegisters().Add({0, TEMPERATURE}, RegisterMap::READ_ONLY,
                               RegisterValue::From<float>({21.5F}));
    mMotor.GetRegisters().Add({MOTOR_MODULE, SPEED}, RegisterMap::READ_WRITE,
                              RegisterValue::From<unsigned short>({1500}));
    iTarnAsyncDispatcher& controller = *mController.GetDispatcher();
    controller.SubscribeSource(SENSOR, &mWatchers[SOURCE_HANDLER]);
    controller.SubscribeTarget(CONTROLLER, &mWatchers[TARGET_HANDLER]);
    controller.SubscribeChcp(&mWatchers[CHCP_HANDLER]);
    controller.SubscribeAll(&mWatchers[ALL_HANDLER]);
}

DemoBus::~DemoBus() = default;

void DemoBus::SendAs(unsigned char device, TarnMessage& message)
{
    const Station& station = device == SENSOR  ? mSensorStation
                             : device == MOTOR ? mMotorStation
                                               : mDisplayStation;
    station.GetDispatcher()->Send(message);
}

std::vector<DemoBus::Received> DemoBus::TakeReceived()
{
    if (!mBus->WaitUntilIdle(PATIENCE))
        throw Trouble("the bus: frames still wait after 10 s; this machine is too busy, try later");
    const std::lock_guard<std::mutex> lock(mMutex);
    return std::exchange(mReceived, {});
}

/// Called with one message after another, and for each with the All handler last.
void DemoBus::Note(tHandler which, const TarnMessage& message)
{
    const std::lock_guard<std::mutex> lock(mMutex);
    if (mLastIsComplete)
        mReceived.push_back({message, {}});
    mReceived.back().handlers.set(which);
    mLastIsComplete = which == ALL_HANDLER;
}

bool DemoBus::Watcher::DispatchResponse(TarnMessage& message)
{
    mBus.Note(mWhich, message);
    return false; // stay subscribed
}

} // namespace tarn::tool
