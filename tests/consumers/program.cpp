// What a project of somebody else does with all three libraries.
#include <plexa_can/VirtualCanBus.h>
#include <plexa_common/LoggerMutex.h>
#include <tarn/TarnAsyncDispatcher.h>
#include <tarn/TarnMessage.h>
#include <tarn/Version.h>
#include <tarn/iTarnMessageHandler.h>

#include <Poco/Mutex.h>

#include <iostream>
#include <string>

struct Keeper : tarn::iTarnMessageHandler {
    bool DispatchResponse(tarn::TarnMessage& message) override
    {
        text = message.RawMessageRef().ToString();
        return false;
    }
    std::string text;
};

int main()
{
    tarn::GetLoggerMutex().lock();
    tarn::GetLoggerMutex().unlock();
    Keeper keeper;
    const auto bus = tarn::VirtualCanBus::Create();
    const auto sender = tarn::TarnAsyncDispatcher::Create(bus->Connect());
    const auto receiver = tarn::TarnAsyncDispatcher::Create(bus->Connect());
    receiver->SubscribeAll(&keeper);
    receiver->Start();
    tarn::TarnMessage message;
    message.SetTargetAddr(9);
    sender->Send(message);
    bus->WaitUntilIdle(20000);
    receiver->Stop();
    std::cout << TARN_VERSION << ' ' << keeper.text << '\n';
    return keeper.text == "0F800481#20" ? 0 : 1;
}
