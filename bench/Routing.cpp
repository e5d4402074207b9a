#include "Fakes.h"
#include "Path.h"

#include <tarn/TarnAsyncDispatcher.h>

#include <memory>
#include <vector>

// From a frame, as the lower layer hands it over, to the handlers.

namespace
{

using bench::FakeBus;
using tarn::CanMessage;
using tarn::TarnAsyncDispatcher;

template <typename Handler, unsigned char Count = 1>
struct Route {
    std::tr1::shared_ptr<FakeBus> bus{new FakeBus};
    std::tr1::shared_ptr<TarnAsyncDispatcher> dispatcher = TarnAsyncDispatcher::Create(bus);
    std::vector<Handler> handlers = std::vector<Handler>(Count);
    CanMessage frame = bench::DataFrame();

    Route()
    {
        dispatcher->Start();
        for (Handler& handler : handlers)
            dispatcher->SubscribeSource(bench::SOURCE, &handler);
    }

    void operator()() { bus->Receive(frame); }
};

struct RouteAmongOthers : Route<bench::ReadsFourFields> {
    RouteAmongOthers()
    {
        for (unsigned char address = 0; address <= 126; ++address) {
            if (address != bench::SOURCE)
                dispatcher->SubscribeSource(address, &handlers.front());
        }
    }
};

struct RouteToNobody : Route<bench::ReadsFourFields, 0> {
};

struct RouteChcp : Route<bench::ReadsNothing> {
    RouteChcp()
    {
        frame = bench::ChcpFrame();
        dispatcher->SubscribeChcp(&handlers.front());
    }
};

/// Tens of thousands of entries stand on this address; the frame is for another one.
struct RoutePastMany : Route<bench::ReadsFourFields> {
    RoutePastMany()
    {
        for (unsigned int entry = 0; entry < 10000; ++entry)
            dispatcher->SubscribeSource(bench::SOURCE + 1, &handlers.front());
    }
};

const bool added = bench::AddPath<Route<bench::ReadsNothing>>("route/one_handler") &&
                   bench::AddPath<Route<bench::ReadsFourFields>>("route/four_fields") &&
                   bench::AddPath<RouteAmongOthers>("route/among_126_addresses") &&
                   bench::AddPath<RoutePastMany>("route/past_10000_entries") &&
                   bench::AddPath<Route<bench::ReadsFourFields, 100>>("route/100_handlers") &&
                   bench::AddPath<RouteToNobody>("route/no_handler") &&
                   bench::AddPath<RouteChcp>("route/chcp");

} // namespace
