#ifndef TARN_TOOLS_SOCKET_CAND_SERVER_H
#define TARN_TOOLS_SOCKET_CAND_SERVER_H

#include "BusSender.h"
#include "FrameQueue.h"
#include "HostAddress.h"
#include "ServerClient.h"

#include <plexa_can/iCanBus.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <tr1/memory>
#include <vector>

namespace tarn::tool
{

/// Offers a bus to clients over TCP, by the protocol of socketcand in raw mode. What a client sends
/// reaches the bus and then the other clients, not itself.
///
/// One thread runs Serve(); no client makes it wait. The bus is listened to while a client wants
/// its frames.
class SocketCandServer
{
public:
    using Clock = std::chrono::steady_clock;

    struct Options {
        SocketAddress listen;
        std::string busName;            ///< by which clients open the bus
        std::vector<HostRange> allowed; ///< who may connect; empty: everybody
        std::size_t maxClients = 64;
        std::size_t queueBytes = 256 * 1024; ///< most that waits for one client
        bool readOnly = false;
        bool isLog = false; ///< the bus waits for whoever listens to it
        std::chrono::milliseconds timeToOpen{10000};
        /// Where to tell every two seconds that there is a server.
        std::optional<SocketAddress> beacon;
    };

    struct Counters {
        std::uint64_t clients = 0;   ///< connections that were accepted
        std::uint64_t refused = 0;   ///< too many, or not allowed
        std::uint64_t dropped = 0;   ///< too slow, or silent at the beginning
        std::uint64_t malformed = 0; ///< commands that were none
        std::uint64_t taken = 0;     ///< frames from clients that the bus took
        std::uint64_t notTaken = 0;  ///< frames from clients that it did not take
        std::uint64_t told = 0;      ///< copies of frames put into the queues of clients
        std::uint64_t lost = 0;      ///< copies that found no room, or whose client went
    };

    /// Begins to listen.
    /// @throws Failure when the address cannot be had
    SocketCandServer(std::tr1::shared_ptr<iCanBus> bus, const Options& options);
    ~SocketCandServer();
    SocketCandServer(const SocketCandServer&) = delete;
    SocketCandServer& operator=(const SocketCandServer&) = delete;

    /// Where it listens, with the port that was found for port 0.
    const SocketAddress& GetAddress() const { return mAddress; }

    /// Serves until the time, Stop() or a stop signal.
    void Serve(Clock::time_point until);

    /// Ends Serve(), from any thread.
    void Stop();

    const Counters& GetCounters() const { return mCounters; }

    /// Frames of the bus that came faster than they were handed out.
    std::uint64_t GetOverflows() const { return mQueue.GetOverflows(); }

    std::size_t CountClients() const { return mClients.size(); }

private:
    using Clients = std::map<std::uint64_t, std::unique_ptr<ServerClient>>;
    /// A descriptor that is closed with its owner.
    class Descriptor;
    class Beacon;

    void OpenListener();
    bool Watch(int descriptor, std::uint64_t id, unsigned int interest, int operation) const;
    void TakeEvents();
    void TakeEvent(std::uint64_t id, unsigned int events);
    void Accept();
    void Refuse(int descriptor, const char* complaint);
    void Welcome(int descriptor, const SocketAddress& peer);
    bool IsAllowed(const SocketAddress& peer) const;

    void Attend(std::uint64_t id, ServerClient& client, unsigned int events);
    void TakeElements(std::uint64_t id, ServerClient& client);
    void Obey(std::uint64_t id, ServerClient& client, const SocketCandElement& element);
    void OpenBus(ServerClient& client, const std::string& name);
    void EnterRawMode(ServerClient& client);
    void PassOn(std::uint64_t id, ServerClient& client, const CanMessage& frame);
    void Complain(ServerClient& client, const std::string& complaint);
    void Answer(ServerClient& client, const std::string& text);

    void HandOutBusFrames();
    void HandOutOutcomes();
    void ReadOn();
    void HandOut(const CanMessage& frame, std::uint64_t except);
    void DropSlow(ServerClient& client);
    void Leave(ServerClient& client);

    void WriteOut();
    void LookAtDeadlines(Clock::time_point now);
    Clock::time_point NextDeadline() const;
    void SetInterest(std::uint64_t id, ServerClient& client) const;
    void SweepUp();
    void ListenToBus();

    const std::tr1::shared_ptr<iCanBus> mBus;
    const Options mOptions;
    SocketAddress mAddress;
    std::unique_ptr<Descriptor> mListener;
    std::unique_ptr<Descriptor> mWaitSet;
    std::unique_ptr<Descriptor> mStop;
    std::unique_ptr<Beacon> mBeacon;
    FrameQueue mQueue;
    BusSender mSender;
    Clients mClients;
    std::vector<std::uint64_t> mGone;
    std::uint64_t mNextId;
    Clock::time_point mAcceptAgain = {}; ///< set while no descriptor is to be had
    bool mIsListening = false;
    bool mStopped = false;
    std::vector<CanMessage> mFrames;
    std::vector<BusSender::Outcome> mOutcomes;
    Counters mCounters;
};

} // namespace tarn::tool

#endif
