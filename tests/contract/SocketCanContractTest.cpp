#include "CanBusContract.h"

#include <plexa_can/SocketCanDispatcher.h>

// The contract over an interface of the kernel.

namespace
{

using namespace tarn;
using contract::CanBusUnderTest;

CanBusUnderTest SocketCan()
{
    CanBusUnderTest bus;
    bus.name = "SocketCan";
    bus.connect = [](std::size_t count) {
        SocketCanDispatcher::Options options;
        options.filters = {{0, 0}}; // 11-bit frames too
        options.receiveBuffer = 8u << 20;
        options.sendTimeout = 20000;
        std::vector<CanBusUnderTest::Connection> connections;
        while (connections.size() < count)
            connections.push_back(SocketCanDispatcher::Create("vcan0", options));
        return connections;
    };
    return bus;
}

const bool ADDED =
    contract::AddCanBusContract(SocketCan()) && contract::AddTarnContract(SocketCan());

} // namespace
