// Tests a handler and a request without any bus: the mock dispatcher is fed by hand.
#include <tarn/TarnAsyncDispatcherMock.h>
#include <tarn/TarnMessage.h>
#include <tarn/TarnSyncRequest.h>
#include <tarn/iTarnMessageHandler.h>

#include <iostream>

using namespace tarn;

struct Alarm : iTarnMessageHandler { // the handler to be tested
    bool DispatchResponse(TarnMessage& message) override
    {
        std::vector<float> values;
        if (message.GetRegister() == 0x11 && message.GetData(values))
            mIsOn = values.at(0) > 60;
        return false;
    }
    bool mIsOn = false;
};

TarnMessage Temperature(float degrees)
{
    TarnMessage message;
    message.SetDirection(TarnMessage::DIRECTION_RESPONSE);
    message.SetSourceAddr(9);
    message.SetTargetAddr(1);
    message.SetRegister(0x11);
    std::vector<float> values = {degrees};
    message.SetData(values);
    return message;
}

struct MockDevice : TarnAsyncDispatcherMock { // answers every request; the plain mock answers none
    void Send(TarnMessage&) override { DispatchResponse(Temperature(21.5F).RawMessageRef()); }
};

int main()
try {
    const std::tr1::shared_ptr<MockDevice> mock(new MockDevice);
    Alarm alarm;
    mock->SubscribeSource(9, &alarm);
    for (const float degrees : {59.0F, 61.0F}) {
        mock->DispatchResponse(Temperature(degrees).RawMessageRef()); // calls the handler here, now
        std::cout << "at " << degrees << " the alarm is " << (alarm.mIsOn ? "on\n" : "off\n");
    }
    TarnMessage request, response;
    request.SetTargetAddr(9);
    request.SetRegister(0x11);
    const auto sync = TarnSyncRequest::Create(mock);
    std::cout << "request 0x11: " << (sync->Send(request, response, 0) ? "answer\n" : "time-out\n");
    request.SetRegister(0x12); // an answer for register 0x11 does not match
    std::cout << "request 0x12: " << (sync->Send(request, response, 0) ? "answer\n" : "time-out\n");
} catch (const std::exception& exception) {
    std::cerr << "mock_device: " << exception.what() << '\n';
    return 1;
}
