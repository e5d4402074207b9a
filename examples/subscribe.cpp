// Handlers by source, by target, for CHCP and for all messages: who is called with what.
#include <plexa_can/VirtualCanBus.h>
#include <tarn/TarnAsyncDispatcher.h>
#include <tarn/TarnMessage.h>
#include <tarn/iTarnMessageHandler.h>

#include <iostream>
using namespace tarn;

struct Printer : iTarnMessageHandler {
    explicit Printer(const char* name, bool once = false) : mName(name), mOnce(once) {}
    bool DispatchResponse(TarnMessage&) override // on the receive thread: be quick
    {
        std::cout << ' ' << mName;
        return mOnce; // true: this subscription ends here
    }
    const char* mName;
    bool mOnce;
};

void Show(const char* title, TarnMessage& message, iTarnAsyncDispatcher& from, VirtualCanBus& bus)
{
    std::cout << title;
    from.Send(message);
    bus.WaitUntilIdle(1000); // until all handlers have run
    std::cout << '\n';
}

TarnMessage Data(unsigned char source, unsigned char target)
{
    TarnMessage message;
    message.SetSourceAddr(source);
    message.SetTargetAddr(target);
    return message;
}

int main()
try {
    Printer source("source"), once("once", true), target("target"), chcp("chcp"), all("all");
    const auto bus = VirtualCanBus::Create();
    const auto sender = TarnAsyncDispatcher::Create(bus->Connect());
    const auto receiver = TarnAsyncDispatcher::Create(bus->Connect());
    receiver->SubscribeSource(9, &source);
    receiver->SubscribeSource(9, &once); // a list is called in the order of subscription
    receiver->SubscribeTarget(1, &target);
    receiver->SubscribeChcp(&chcp);
    receiver->SubscribeAll(&all);
    receiver->Start();
    TarnMessage messages[] = {Data(9, 1), Data(9, 2), Data(5, 1), TarnMessage()};
    messages[3].SetChcpCommand(TarnMessage::CHCP_COMMAND_1); // makes it a CHCP message
    Show("9 -> 1:", messages[0], *sender, *bus);
    Show("9 -> 2:", messages[1], *sender, *bus);
    Show("5 -> 1:", messages[2], *sender, *bus);
    Show("CHCP:", messages[3], *sender, *bus);
    receiver->Stop(); // from here on no handler runs: dispatcher and handlers may go
} catch (const std::exception& exception) {
    std::cerr << "subscribe: " << exception.what() << '\n';
    return 1;
}
