#include "BusOptions.h"
#include "ShownText.h"

#include <plexa_can/BusName.h>
#include <plexa_can/CanBus.h>
#include <plexa_can/CanException.h>
#include <plexa_can/LogReplayDispatcher.h>
#include <plexa_can/SocketCanDispatcher.h>
#include <plexa_can/SocketCandDispatcher.h>
#include <plexa_can/VirtualCanBus.h>

#include <algorithm>
#include <cstdint>
#include <limits>

namespace tarn
{

namespace
{

using Connection = std::tr1::shared_ptr<iCanBus>;

constexpr unsigned int MOST_FRAMES = 1u << 20;
constexpr unsigned int MOST_MILLISECONDS = 3600u * 1000u;
constexpr unsigned int MOST_BUFFER_BYTES = 1u << 30;
constexpr unsigned int HIGHEST_PRIORITY = 99;
constexpr unsigned int MOST_BITS = 1000000; ///< a second, on classical CAN

bool ReadFaults(BusOptions& options, VirtualCanBus::Faults& faults)
{
    options.ReadProbability("loss", faults.loss);
    options.ReadProbability("duplication", faults.duplication);
    options.ReadProbability("error", faults.errorFrame);
    options.ReadWhole("delay", faults.delay, 0, MOST_MILLISECONDS);
    options.ReadWhole("seed", faults.seed, 0, std::numeric_limits<std::uint64_t>::max());
    const char* const keys[] = {"loss", "duplication", "error", "delay", "seed"};
    return std::any_of(std::begin(keys), std::end(keys),
                       [&](const char* key) { return options.Has(key); });
}

Connection OpenVirtual(const BusName& name)
{
    VirtualCanBus::Options bus;
    VirtualCanBus::Faults faults;
    bool isInline = false;
    BusOptions options(name);
    options.ReadChoice("delivery", "threaded", "inline", isInline);
    options.ReadWhole("queue", bus.queueSize, 1, MOST_FRAMES);
    options.ReadWhole("timeout", bus.sendTimeout, 0, MOST_MILLISECONDS);
    options.ReadWhole("bitrate", bus.bitRate, 0, MOST_BITS);
    const bool faulty = ReadFaults(options, faults);
    options.RequireAllKnown();
    bus.delivery = isInline ? VirtualCanBus::DELIVERY_INLINE : VirtualCanBus::DELIVERY_THREADED;
    const auto opened = VirtualCanBus::Open(name.address, bus);
    if (faulty)
        opened->SetFaults(faults);
    return opened->Connect();
}

Connection OpenLog(const BusName& name)
{
    LogReplayDispatcher::Options log;
    BusOptions options(name);
    options.ReadSpeed("speed", log.speed);
    options.ReadSwitch("loop", log.loop);
    options.ReadText("record", log.recordPath);
    options.RequireAllKnown();
    return LogReplayDispatcher::Create(name.address, log);
}

Connection OpenSocketCan(const BusName& name)
{
    SocketCanDispatcher::Options can;
    BusOptions options(name);
    options.ReadSwitch("errors", can.errorFrames);
    options.ReadWhole("buffer", can.receiveBuffer, 0, MOST_BUFFER_BYTES);
    options.ReadWhole("timeout", can.sendTimeout, 0, MOST_MILLISECONDS);
    options.ReadWhole("priority", can.realTimePriority, 0, HIGHEST_PRIORITY);
    options.RequireAllKnown();
    return SocketCanDispatcher::Create(name.address, can);
}

Connection OpenSocketCand(const BusName& name)
{
    SocketCandDispatcher::Options tcp;
    BusOptions options(name);
    options.ReadWhole("timeout", tcp.sendTimeout, 0, MOST_MILLISECONDS);
    options.ReadWhole("connect", tcp.connectTimeout, 1, MOST_MILLISECONDS);
    options.ReadSwitch("reconnect", tcp.reconnect);
    options.ReadWhole("keepalive", tcp.keepAlive, 0, MOST_MILLISECONDS);
    options.RequireAllKnown();
    return SocketCandDispatcher::Create(ParseSocketCandAddress(name.address), tcp);
}

struct Scheme {
    const char* name;
    const char* example;
    Connection (*open)(const BusName& name);
};

constexpr Scheme SCHEMES[] = {{"socketcan", "socketcan:can0", OpenSocketCan},
                              {"virtual", "virtual:bench", OpenVirtual},
                              {"log", "log:drive.log?speed=2", OpenLog},
                              {"socketcand", "socketcand:127.0.0.1:29536/can0", OpenSocketCand}};

} // namespace

std::tr1::shared_ptr<iCanBus> CanBus::Open(const std::string& name)
{
    const BusName parsed = ParseBusName(name);
    std::string known;
    for (const Scheme& scheme : SCHEMES) {
        if (parsed.scheme == scheme.name)
            return scheme.open(parsed);
        known +=
            (known.empty() ? "" : ", ") + std::string(scheme.name) + " (" + scheme.example + ')';
    }
    throw CanException("bus name '" + ShownText(name) + "': unknown scheme '" +
                       ShownText(parsed.scheme) + "'; there are: " + known);
}

} // namespace tarn
