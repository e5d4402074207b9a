// Two nodes of a virtual bus: a thermometer that answers, and a client that asks.
#include <plexa_can/VirtualCanBus.h>
#include <tarn/TarnAsyncDispatcher.h>
#include <tarn/TarnMessage.h>
#include <tarn/TarnSyncRequest.h>
#include <tarn/iTarnMessageHandler.h>

#include <iostream>
using namespace tarn;

struct Thermometer : iTarnMessageHandler {
    explicit Thermometer(iTarnAsyncDispatcher& bus) : mBus(bus) { mBus.SubscribeTarget(9, this); }
    ~Thermometer() override { mBus.UnsubscribeTarget(9, this); } // the dispatcher owns no handler

    bool DispatchResponse(TarnMessage& request) override
    {
        if (request.GetDirection() != TarnMessage::DIRECTION_REQUEST)
            return false;               // what others answer comes here too
        TarnMessage response = request; // repeats register, access, addressing and module
        response.SetDirection(TarnMessage::DIRECTION_RESPONSE);
        response.SetSourceAddr(request.GetTargetAddr());
        response.SetTargetAddr(request.GetSourceAddr());
        response.SetRStatus(TarnMessage::STATUS_OPERATING);
        std::vector<float> temperature = {21.5F};
        response.SetData(temperature);
        mBus.Send(response);
        return false; // true would end the subscription
    }
    iTarnAsyncDispatcher& mBus;
};

struct Running { // a dispatcher must be stopped before it goes, also when something throws
    explicit Running(iTarnAsyncDispatcher& bus) : mBus(bus) { mBus.Start(); }
    ~Running() { mBus.Stop(); }
    iTarnAsyncDispatcher& mBus;
};

int main()
try {
    const auto wire = VirtualCanBus::Create();
    const auto device = TarnAsyncDispatcher::Create(wire->Connect());
    const auto client = TarnAsyncDispatcher::Create(wire->Connect());
    Thermometer thermometer(*device);
    Running deviceRuns(*device), clientRuns(*client);
    TarnMessage request, response; // a READ request from address 1, unless told otherwise
    request.SetTargetAddr(9);
    request.SetRegister(0x11);
    std::vector<float> values;
    if (TarnSyncRequest::Create(client)->Send(request, response, 1000) &&
        response.GetRStatus() == TarnMessage::STATUS_OPERATING &&
        response.GetData(values)) // false for a payload of another type
        std::cout << "9 reports " << values.at(0) << " degrees\n";
    request.SetTargetAddr(10); // nobody is there
    if (!TarnSyncRequest::Create(client)->Send(request, response, 100))
        std::cout << "10 did not answer in 100 ms\n";
} catch (const std::exception& exception) { // the bus (CanException) or a lock failed
    std::cerr << "request_response: " << exception.what() << '\n';
    return 1;
}
