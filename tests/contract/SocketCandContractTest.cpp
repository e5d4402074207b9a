#include "CanBusContract.h"
#include "support/LoopbackServer.h"

#include <memory>

// The contract over TCP: clients of a server on the loopback interface.

namespace
{

using namespace tarn;
using contract::CanBusUnderTest;

struct Served {
    const std::tr1::shared_ptr<VirtualCanBus> bus = VirtualCanBus::Create();
    test::LoopbackServer server{bus->Connect()};
};

/// A connection, and its part in the server.
class Client : public iCanAsyncDispatcher
{
public:
    explicit Client(std::shared_ptr<Served> served) : mServed(std::move(served))
    {
        SocketCandDispatcher::Options options;
        options.connectTimeout = 20000;
        options.sendTimeout = 20000;
        options.keepAlive = 20000;
        mBus = SocketCandDispatcher::Create(mServed->server.Address(), options);
    }

    void Start(iCanMessageHandler* handler) override { mBus->Start(handler); }
    void Stop(iCanMessageHandler* handler) override { mBus->Stop(handler); }
    void Send(CanMessage& frame) override { mBus->Send(frame); }

private:
    const std::shared_ptr<Served> mServed;
    std::tr1::shared_ptr<SocketCandDispatcher> mBus;
};

CanBusUnderTest SocketCand()
{
    CanBusUnderTest bus;
    bus.name = "SocketCand";
    bus.connect = [](std::size_t count) {
        const auto served = std::make_shared<Served>();
        std::vector<CanBusUnderTest::Connection> connections;
        while (connections.size() < count)
            connections.emplace_back(new Client(served));
        return connections;
    };
    return bus;
}

/// One end is a client, the other a node on the bus that is served.
CanBusUnderTest Mixed()
{
    CanBusUnderTest bus = SocketCand();
    bus.name = "SocketCandAndNode";
    bus.connect = [](std::size_t count) {
        const auto served = std::make_shared<Served>();
        std::vector<CanBusUnderTest::Connection> connections;
        connections.emplace_back(new Client(served));
        connections.push_back(served->bus->Connect());
        if (count > 2)
            connections.emplace_back(new Client(served));
        return connections;
    };
    return bus;
}

bool Add(const CanBusUnderTest& bus)
{
    return contract::AddCanBusContract(bus) && contract::AddTarnContract(bus);
}

const bool ADDED = Add(SocketCand()) && Add(Mixed());

} // namespace
