#ifndef TARN_TESTS_SUPPORT_LOOPBACK_SERVER_H
#define TARN_TESTS_SUPPORT_LOOPBACK_SERVER_H

#include "SocketCandServer.h"

#include <plexa_can/SocketCandDispatcher.h>
#include <plexa_can/VirtualCanBus.h>

#include <functional>
#include <string>
#include <thread>

namespace tarn::test
{

/// A server of a bus on a port of its own, as long as it lives.
class LoopbackServer
{
public:
    using Options = tool::SocketCandServer::Options;

    static Options Defaults(const std::string& listen = "127.0.0.1:0")
    {
        Options options;
        options.listen = tool::ParseSocketAddress("--listen", listen);
        options.busName = "bench";
        return options;
    }

    explicit LoopbackServer(std::tr1::shared_ptr<iCanBus> bus, const Options& options = Defaults())
        : mServer(std::move(bus), options),
          mThread([this] { mServer.Serve(tool::SocketCandServer::Clock::time_point::max()); })
    {
    }
    ~LoopbackServer() { End(); }
    LoopbackServer(const LoopbackServer&) = delete;
    LoopbackServer& operator=(const LoopbackServer&) = delete;

    /// Ends it; the ledger is at rest then.
    const tool::SocketCandServer::Counters& End()
    {
        mServer.Stop();
        if (mThread.joinable())
            mThread.join();
        return mServer.GetCounters();
    }

    /// "127.0.0.1:43210"
    std::string Where() const { return mServer.GetAddress().Text(); }
    std::string Port() const { return Where().substr(Where().rfind(':') + 1); }
    std::string BusName() const { return "socketcand:" + Where() + "/bench"; }
    SocketCandAddress Address() const { return ParseSocketCandAddress(Where() + "/bench"); }

private:
    tool::SocketCandServer mServer;
    std::thread mThread;
};

} // namespace tarn::test

#endif
