#include "CanBusContract.h"
#include "LocalBus.h"

namespace
{

tarn::contract::CanBusUnderTest OurBus()
{
    tarn::contract::CanBusUnderTest bus;
    bus.name = "LocalBus";
    bus.connect = [](std::size_t count) {
        const auto local = std::make_shared<LocalBus>();
        std::vector<tarn::contract::CanBusUnderTest::Connection> connections;
        while (connections.size() < count)
            connections.emplace_back(new LocalConnection(local));
        return connections;
    };
    bus.mayGoInsideItsHandler = false;
    return bus;
}

const bool ADDED =
    tarn::contract::AddCanBusContract(OurBus()) && tarn::contract::AddTarnContract(OurBus());

} // namespace
