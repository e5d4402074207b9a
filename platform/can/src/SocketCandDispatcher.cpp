#include "ShownText.h"
#include "SocketCandCore.h"

#include <plexa_can/CanException.h>
#include <plexa_can/SocketCandDispatcher.h>

#include <algorithm>
#include <utility>

namespace tarn
{

namespace
{

[[noreturn]] void Refuse(const std::string& text, const char* reason)
{
    throw CanException("address '" + ShownText(text) + "': " + reason +
                       "; write it like 192.168.1.20:29536/can0 or [::1]:29536/can0");
}

bool IsPort(const std::string& text)
{
    const bool digits = !text.empty() && text.size() <= 5 &&
                        std::all_of(text.begin(), text.end(),
                                    [](char digit) { return digit >= '0' && digit <= '9'; });
    return digits && std::stoul(text) >= 1 && std::stoul(text) <= 65535;
}

/// Where the host ends, or npos.
std::size_t EndOfHost(const std::string& server)
{
    if (server.front() == '[')
        return server.find(']');
    return std::min(server.find(':'), server.size());
}

} // namespace

SocketCandAddress ParseSocketCandAddress(const std::string& text)
{
    const std::size_t slash = text.find('/');
    if (slash == std::string::npos || slash == 0)
        Refuse(text, "is not HOST:PORT/BUS");
    const std::string server = text.substr(0, slash);
    const std::size_t end = EndOfHost(server);
    if (end == std::string::npos)
        Refuse(text, "a '[' without its ']'");
    const std::size_t bracket = server.front() == '[' ? 1 : 0;
    SocketCandAddress address;
    address.host = server.substr(bracket, end - bracket);
    address.bus = text.substr(slash + 1);
    const std::string rest = server.substr(end + bracket);
    if (address.host.empty())
        Refuse(text, "names no host");
    if (!rest.empty()) {
        address.port = rest.substr(1);
        if (rest.front() != ':' || !IsPort(address.port))
            Refuse(text, "the port is no number from 1 to 65535");
    }
    if (!IsSocketCandBusName(address.bus))
        Refuse(text, "the bus has no name of 1 to 64 printable characters without < and >");
    return address;
}

std::tr1::shared_ptr<SocketCandDispatcher>
SocketCandDispatcher::Create(const SocketCandAddress& address, const Options& options)
{
    const auto core = std::make_shared<Core>(RealTcpSystem(), address, options);
    std::tr1::shared_ptr<SocketCandDispatcher> bus(new SocketCandDispatcher(core));
    core->Open();
    return bus;
}

std::tr1::shared_ptr<SocketCandDispatcher>
SocketCandDispatcher::Create(const SocketCandAddress& address)
{
    return Create(address, Options());
}

SocketCandDispatcher::SocketCandDispatcher(std::shared_ptr<Core> core) : mCore(std::move(core)) {}

SocketCandDispatcher::~SocketCandDispatcher() noexcept
{
    mCore->Close();
}

void SocketCandDispatcher::Start(iCanMessageHandler* handler)
{
    mCore->Start(handler);
}

void SocketCandDispatcher::Stop(iCanMessageHandler* handler)
{
    mCore->Stop(handler);
}

void SocketCandDispatcher::Send(CanMessage& frame)
{
    mCore->Send(frame);
}

CanBusCounters SocketCandDispatcher::GetCounters() const
{
    return mCore->GetCounters();
}

bool SocketCandDispatcher::IsConnected() const
{
    return mCore->IsConnected();
}

std::string SocketCandDispatcher::GetFailure() const
{
    return mCore->GetFailure();
}

} // namespace tarn
