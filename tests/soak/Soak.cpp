#include "can-kernel/PacedSender.h"
#include "soak/Latencies.h"
#include "support/EntriesOf.h"
#include "support/LoopbackServer.h"

#include <plexa_can/CanBus.h>
#include <plexa_can/CanException.h>
#include <plexa_can/SocketCanDispatcher.h>
#include <plexa_can/VirtualCanBus.h>
#include <tarn/TarnAsyncDispatcher.h>
#include <tarn/TarnSyncRequest.h>

#include <CLI/CLI.hpp>
#include <Poco/Logger.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <malloc.h>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

// One bus under full load for as long as wanted, in ten phases, while clients come and go and, on
// CAN interfaces, another interface goes down and up. Between two phases everything comes to rest:
// every frame has to be accounted for, and nothing that the process holds may have grown.

namespace
{

using namespace tarn;
using namespace tarn::soak;
using Clock = std::chrono::steady_clock;

constexpr int PHASES = 10;
constexpr std::size_t GROWTH = 64 * 1024;      ///< bytes of the heap that may come and go
constexpr std::chrono::milliseconds REST(200); ///< without a change, until all are gone that went

struct Options {
    std::string bus = "virtual:soak";
    double seconds = 60;
    unsigned int rate = 76000;
    std::string flapping; ///< the interface that goes down and up; empty for none
};

bool Await(const std::function<bool()>& condition)
{
    const auto end = Clock::now() + std::chrono::seconds(60);
    while (!condition()) {
        if (Clock::now() > end)
            return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

/// What must not grow.
struct Holdings {
    std::size_t threads = 0;
    std::size_t descriptors = 0;
    std::size_t heap = 0;     ///< bytes in use
    std::size_t resident = 0; ///< kB

    static Holdings Now()
    {
        Holdings now;
        now.threads = test::EntriesOf("/proc/self/task");
        now.descriptors = test::EntriesOf("/proc/self/fd");
        now.heap = ::mallinfo2().uordblks;
        std::ifstream status("/proc/self/statm");
        std::size_t size = 0;
        status >> size >> now.resident;
        now.resident *= 4;
        return now;
    }
};

/// Runs something again and again on a thread of its own, until it goes.
class Repeating
{
public:
    explicit Repeating(std::function<void()> work)
        : mThread([this, work = std::move(work)] {
              while (!mEnd)
                  work();
          })
    {
    }
    ~Repeating()
    {
        mEnd = true;
        mThread.join();
    }

private:
    std::atomic<bool> mEnd{false};
    std::thread mThread;
};

/// The bus, and who is on it for the whole time.
class Scene
{
public:
    explicit Scene(const Options& options) : mOptions(options)
    {
        if (IsVirtual()) {
            mBus = VirtualCanBus::Open(Interface());
            mServing = mBus->Connect();
            mServer.emplace(mServing);
            mSender = CanBus::Open(options.bus);
        }
        mReceiver = CanBus::Open(options.bus);
        mDispatcher = TarnAsyncDispatcher::Create(mReceiver);
        mReceiver->Start(&mLatencies);
        mDispatcher->Start();
    }

    ~Scene()
    {
        mDispatcher->Stop();
        mReceiver->Stop(&mLatencies);
    }

    /// A phase under load, then rest; says what is wrong.
    std::string Play(double seconds)
    {
        mLatencies.Reset();
        const unsigned long long before = mLoad;
        {
            const Repeating clients([this] { Visit(); });
            std::optional<Repeating> flapping;
            if (!mOptions.flapping.empty())
                flapping.emplace([this] { Flap(); });
            const auto begin = Clock::now();
            SendFor(seconds);
            mRate = static_cast<double>(mLoad - before) /
                    std::chrono::duration<double>(Clock::now() - begin).count();
        }
        Await([&] { return Complaint().empty(); });
        return Complaint();
    }

    const Latencies& GetLatencies() const { return mLatencies; }
    double Rate() const { return mRate; }
    unsigned long long Frames() const { return mLoad; }
    unsigned long long Visits() const { return mVisits; }
    unsigned long long Dismissed() const { return mDismissed; }
    unsigned long long Flaps() const { return mFlaps; }

private:
    /// Without options, which are the receiver's.
    std::string BusName() const { return mOptions.bus.substr(0, mOptions.bus.find('?')); }
    std::string Interface() const { return BusName().substr(BusName().find(':') + 1); }
    bool IsVirtual() const { return mOptions.bus.rfind("virtual:", 0) == 0; }

    /// What all others have put on the bus.
    unsigned long long Expected() const
    {
        return mLoad + mVisitorsSent + (mServing ? mServing->GetCounters().sent : 0);
    }

    void SendFor(double seconds)
    {
        if (!IsVirtual()) {
            const auto count = static_cast<unsigned int>(mOptions.rate * seconds);
            test::PacedSender sender(Interface(), mOptions.rate, count);
            sender.End();
            mLoad += count;
            return;
        }
        const auto end = Clock::now() + std::chrono::duration<double>(seconds);
        CanMessage frame;
        frame.SetHeader(0x0F000102);
        frame.GetFlags() = CanMessage::FLAG_EXTENDED;
        while (Clock::now() < end) {
            const long long now = Nanoseconds();
            unsigned char bytes[sizeof now];
            std::memcpy(bytes, &now, sizeof now);
            frame.SetBytes(bytes, sizeof bytes);
            mSender->Send(frame);
            ++mLoad;
        }
    }

    /// A client comes, listens, asks somebody who is not there, and goes. Every other one comes
    /// over TCP where the bus is served; it is the server's connection that counts its frames. The
    /// server dismisses a client that reads more slowly than the bus runs.
    void Visit()
    {
        const bool overTcp = mServer && mVisits % 2 == 1;
        ++mVisits;
        try {
            const auto bus = CanBus::Open(overTcp ? mServer->BusName() : BusName());
            const auto dispatcher = TarnAsyncDispatcher::Create(bus);
            dispatcher->Start();
            const auto request = TarnSyncRequest::Create(dispatcher);
            TarnMessage question;
            TarnMessage answer;
            question.SetTargetAddr(99);
            request->Send(question, answer, 1);
            dispatcher->Stop();
            if (!overTcp)
                mVisitorsSent += bus->GetCounters().sent;
        } catch (const CanException& failure) {
            if (overTcp)
                ++mDismissed;
            else
                mFailure = failure.message();
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }

    static void Link(const std::string& interface, const char* state)
    {
        const std::string command = "ip link set " + interface + ' ' + state;
        if (std::system(command.c_str()) != 0)
            std::fprintf(stderr, "soak: '%s' failed\n", command.c_str());
    }

    /// Down, noticed, up, noticed.
    void Flap()
    {
        if (!mFlapping)
            mFlapping = SocketCanDispatcher::Create(mOptions.flapping);
        mFlapping->Start(&mUnused);
        Link(mOptions.flapping, "down");
        const bool down = Await([&] { return mFlapping->GetBusState() == CAN_BUS_DOWN; });
        Link(mOptions.flapping, "up");
        const bool up = Await([&] { return mFlapping->GetBusState() == CAN_BUS_ERROR_ACTIVE; });
        if (!down || !up)
            mFailure = "an interface went down and up without a word";
        ++mFlaps;
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }

    std::string Complaint()
    {
        const unsigned long long expected = Expected();
        const CanBusCounters c = mReceiver->GetCounters();
        std::string text = mFailure;
        if (c.received != expected || c.droppedByKernel != 0)
            text += "; " + std::to_string(expected) + " frames were sent, " +
                    std::to_string(c.received) + " received, " + std::to_string(c.droppedByKernel) +
                    " dropped";
        if (c.received != c.delivered + c.unheard + c.filtered || c.unheard != 0)
            text += "; received frames were not delivered";
        if (mDismissed > 1 + mVisits / 4)
            text += "; " + std::to_string(mDismissed) + " clients over TCP were dismissed";
        return text;
    }

    const Options mOptions;
    std::tr1::shared_ptr<VirtualCanBus> mBus;
    std::tr1::shared_ptr<iCanBus> mServing; ///< the connection of the server
    std::optional<test::LoopbackServer> mServer;
    std::tr1::shared_ptr<iCanBus> mSender;
    std::tr1::shared_ptr<iCanBus> mReceiver;
    std::tr1::shared_ptr<TarnAsyncDispatcher> mDispatcher;
    std::tr1::shared_ptr<SocketCanDispatcher> mFlapping;
    Latencies mLatencies;
    Latencies mUnused;
    unsigned long long mLoad = 0;
    std::atomic<unsigned long long> mVisitorsSent{0};
    std::atomic<unsigned long long> mVisits{0};
    std::atomic<unsigned long long> mDismissed{0};
    std::atomic<unsigned long long> mFlaps{0};
    std::string mFailure; ///< of the visitors; read when they are gone
    double mRate = 0;
};

std::string Growth(const Holdings& settled, const Holdings& now)
{
    std::string text;
    if (now.threads > settled.threads)
        text += "; threads: " + std::to_string(settled.threads) + ", now " +
                std::to_string(now.threads);
    if (now.descriptors > settled.descriptors)
        text += "; descriptors: " + std::to_string(settled.descriptors) + ", now " +
                std::to_string(now.descriptors);
    if (now.heap > settled.heap + GROWTH)
        text += "; bytes of the heap: " + std::to_string(settled.heap) + ", now " +
                std::to_string(now.heap);
    return text;
}

/// A thread that was joined, and a client that the server has yet to miss, take a moment to go.
Holdings Settled()
{
    Holdings settled = Holdings::Now();
    Clock::time_point since = Clock::now();
    while (Clock::now() - since < REST) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
        const Holdings now = Holdings::Now();
        if (now.threads != settled.threads || now.descriptors != settled.descriptors)
            since = Clock::now();
        settled = now;
    }
    return settled;
}

void PrintPhase(int phase, const Scene& scene, const Holdings& holdings)
{
    const Latencies& latencies = scene.GetLatencies();
    std::printf("%5d %9.0f %8.1f %8.1f %8.1f %9.1f %8zu %11zu %10zu %8zu\n", phase, scene.Rate(),
                latencies.Percentile(0.5), latencies.Percentile(0.99), latencies.Percentile(0.999),
                latencies.Percentile(1), holdings.threads, holdings.descriptors,
                holdings.heap / 1024, holdings.resident);
    std::fflush(stdout);
}

int Run(const Options& options)
{
    Scene scene(options);
    std::printf("%s, %g s\n", options.bus.c_str(), options.seconds);
    std::printf("phase  frames/s   50 %% us  99 %% us 99.9 %% us  max us  threads descriptors "
                "heap kB rss kB\n");
    Holdings settled;
    for (int phase = 1; phase <= PHASES; ++phase) {
        std::string complaint = scene.Play(options.seconds / PHASES);
        Holdings now = phase == 2 ? Settled() : Holdings::Now();
        if (phase == 2)
            settled = now;
        if (phase > 2) {
            Await([&] { return Growth(settled, now = Holdings::Now()).empty(); });
            complaint += Growth(settled, now);
        }
        PrintPhase(phase, scene, now);
        if (!complaint.empty()) {
            std::fprintf(stderr, "soak: phase %d: %s\n", phase, complaint.c_str());
            return EXIT_FAILURE;
        }
    }
    std::printf("%llu frames, %llu clients, %llu of them dismissed, %llu times down and up: every "
                "frame accounted for, nothing grew\n",
                scene.Frames(), scene.Visits(), scene.Dismissed(), scene.Flaps());
    return EXIT_SUCCESS;
}

} // namespace

int main(int argc, char** argv)
{
    Options options;
    CLI::App app("One bus under full load, for as long as wanted.", "soak");
    app.add_option("BUS", options.bus, "by name")->capture_default_str();
    app.add_option("--seconds", options.seconds, "how long")->capture_default_str();
    app.add_option("--rate", options.rate,
                   "frames a second on an interface: ten times a full bus of 1 Mbit/s")
        ->capture_default_str();
    app.add_option("--flap", options.flapping, "an interface to set down and up");
    CLI11_PARSE(app, argc, argv);
    Poco::Logger::root().setLevel(Poco::Message::PRIO_FATAL);
    return Run(options);
}
