#include "stress/Random.h"
#include "stress/Scene.h"
#include "support/EntriesOf.h"
#include "support/LoopbackServer.h"
#include "support/TemporaryFolder.h"

#include <plexa_can/CanBus.h>
#include <plexa_can/VirtualCanBus.h>

#include <CLI/CLI.hpp>
#include <Poco/Logger.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <optional>
#include <random>
#include <string>
#include <sys/syscall.h>
#include <thread>
#include <unistd.h>
#include <vector>

// Many threads do at random all that applications and handlers may do, on all buses, round after
// round. Told by its exit status: the figures of every bus add up at the end of each round, every
// exception arrived somewhere, no thread and no descriptor is left over, nothing stands still.

namespace
{

using namespace tarn;
using namespace tarn::stress;
using Clock = std::chrono::steady_clock;

constexpr std::chrono::seconds STANDSTILL(60);
constexpr unsigned int THREADS_OF_A_SCENE = 2;

struct Options {
    double seconds = 30;
    double roundSeconds = 2;
    unsigned long long seed = std::random_device{}();
    bool anyOrder = false;
    std::vector<std::string> buses;
};

/// A log with frames of all families.
std::string WriteLog(const test::TemporaryFolder& folder)
{
    std::string text;
    for (int i = 0; i < 200; ++i)
        text += i % 3 == 0 ? "(1.0) can0 10000005#01020304050010\n" : "(1.0) can0 0F000102#50\n";
    return folder.File("play.log", text);
}

/// What a round is played with; goes with it.
struct Stage {
    Stage(const Options& options, unsigned long long round)
    {
        const std::string id = std::to_string(round);
        if (!options.buses.empty()) {
            for (const std::string& name : options.buses)
                Add(name, options);
            return;
        }
        AddVirtual("threaded" + id, "?queue=32&timeout=20", options);
        AddVirtual("inline" + id, "?delivery=inline", options);
        AddVirtual("paced" + id, "?bitrate=1000000&queue=32&timeout=20", options);
        AddVirtual("faulty" + id,
                   "?queue=32&timeout=20&loss=0.1&duplication=0.1&error=0.1&seed=" + id, options);
        served = VirtualCanBus::Create();
        server.emplace(served->Connect());
        Add(server->BusName() + "?timeout=5000", options);
        Add("log:" + WriteLog(folder) + "?speed=max&loop=1&record=" + folder.PathOf("record.log"),
            options);
        scenes.push_back(std::make_unique<Scene>("mock", std::tr1::shared_ptr<iCanBus>(),
                                                 Usage{true, false, false}));
    }

    /// Two dispatchers, each of a connection of its own. On an inline bus a handler that sends is
    /// one that dispatches frames, so that there must be no second receive thread.
    void Add(const std::string& name, const Options& options)
    {
        const bool inlined = name.find("delivery=inline") != std::string::npos;
        Connect(name, {false, options.anyOrder});
        if (name.rfind("log:", 0) != 0)
            Connect(name, {!inlined, options.anyOrder});
    }

    void Connect(const std::string& name, const Usage& usage)
    {
        scenes.push_back(std::make_unique<Scene>(name, CanBus::Open(name), usage));
    }

    void AddVirtual(const std::string& name, const std::string& query, const Options& options)
    {
        Add("virtual:" + name + query, options);
        buses.push_back(VirtualCanBus::Open(name));
    }

    test::TemporaryFolder folder;
    std::tr1::shared_ptr<VirtualCanBus> served;
    std::optional<test::LoopbackServer> server;
    std::vector<std::tr1::shared_ptr<VirtualCanBus>> buses;
    std::vector<std::unique_ptr<Scene>> scenes;
};

/// A thread that was joined may be seen for a moment yet.
bool ComesBackTo(const char* folder, std::size_t entries)
{
    const Clock::time_point end = Clock::now() + std::chrono::seconds(20);
    while (test::EntriesOf(folder) != entries) {
        if (Clock::now() > end)
            return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

/// With the first thread, ThreadSanitizer starts one of its own: threads are counted after that,
/// and when the first one is no longer seen.
std::size_t ThreadsFromTheBeginning()
{
    std::string folder;
    std::thread([&folder] {
        folder = "/proc/self/task/" + std::to_string(::syscall(SYS_gettid));
    }).join();
    while (std::filesystem::exists(folder))
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    return test::EntriesOf("/proc/self/task");
}

/// Ends the process when a thread stands still, so that somebody may look at it.
class Watchdog
{
public:
    Watchdog() : mThread([this] { Watch(); }) {}
    ~Watchdog()
    {
        mEnd = true;
        mThread.join();
    }
    void Moved() { ++mMoves; }

private:
    void Watch()
    {
        unsigned long long seen = 0;
        Clock::time_point last = Clock::now();
        while (!mEnd) {
            std::this_thread::sleep_for(std::chrono::milliseconds(50));
            if (seen != mMoves)
                last = Clock::now();
            seen = mMoves;
            if (Clock::now() - last > STANDSTILL) {
                std::fprintf(stderr, "stress: nothing moves any more; seed %llu\n", gSeed.load());
                std::abort();
            }
        }
    }

    std::atomic<bool> mEnd{false};
    std::atomic<unsigned long long> mMoves{0};
    std::thread mThread;
};

void Perform(Stage& stage, Clock::time_point end)
{
    std::vector<std::thread> threads;
    std::atomic<std::size_t> acting{stage.scenes.size() * THREADS_OF_A_SCENE};
    std::vector<std::unique_ptr<Watchdog>> dogs; // one a thread: each has to come to its end
    for (auto& scene : stage.scenes) {
        for (unsigned int i = 0; i < THREADS_OF_A_SCENE; ++i) {
            dogs.push_back(std::make_unique<Watchdog>());
            threads.emplace_back([&scene, &acting, end, dog = dogs.back().get()] {
                while (Clock::now() < end) {
                    scene->ActAsApplication();
                    dog->Moved();
                }
                // Others may wait for a handler of this scene until all have come to their end.
                --acting;
                while (acting != 0) {
                    dog->Moved();
                    std::this_thread::sleep_for(std::chrono::milliseconds(1));
                }
            });
        }
    }
    for (auto& thread : threads)
        thread.join();
}

/// Waits until the figures of all scenes and buses stand still and are right, or long enough.
std::string Settle(Stage& stage)
{
    for (auto& scene : stage.scenes)
        scene->CalmDown();
    const Clock::time_point end = Clock::now() + std::chrono::seconds(20);
    std::string complaint;
    do {
        complaint.clear();
        for (auto& bus : stage.buses) {
            if (!bus->WaitUntilIdle(1000))
                complaint += "a virtual bus does not come to rest\n";
            const VirtualCanBus::Counters c = bus->GetCounters();
            if (c.sent != c.onBus + c.waitingToSend + c.unsent ||
                c.copies + c.duplicated + c.errorFrames !=
                    c.delivered + c.waiting + c.lost + c.unheard)
                complaint += "the figures of a virtual bus do not add up\n";
        }
        for (auto& scene : stage.scenes)
            complaint += scene->Complaint();
    } while (!complaint.empty() && Clock::now() < end);
    return complaint;
}

struct Figures {
    unsigned long long rounds = 0;
    unsigned long long calls = 0;
};

std::string Round(const Options& options, Figures& figures, Clock::time_point end)
{
    Stage stage(options, figures.rounds);
    Perform(stage, end);
    const std::string complaint = Settle(stage);
    ++figures.rounds;
    for (auto& scene : stage.scenes)
        figures.calls += scene->Calls();
    return complaint;
}

int Run(const Options& options)
{
    gSeed = options.seed;
    std::printf("stress: seed %llu, %g s\n", options.seed, options.seconds);
    std::fflush(stdout);
    const std::size_t threads = ThreadsFromTheBeginning();
    const std::size_t descriptors = test::EntriesOf("/proc/self/fd");
    const auto all = std::chrono::duration<double>(options.seconds);
    const auto one = std::chrono::duration<double>(options.roundSeconds);
    const Clock::time_point end = Clock::now() + std::chrono::duration_cast<Clock::duration>(all);
    Figures figures;
    do {
        const Clock::time_point next =
            Clock::now() + std::chrono::duration_cast<Clock::duration>(one);
        std::string complaint = Round(options, figures, std::min(next, end));
        if (!ComesBackTo("/proc/self/fd", descriptors))
            complaint += "a descriptor is left over\n";
        if (!ComesBackTo("/proc/self/task", threads))
            complaint += "a thread is left over\n";
        if (!complaint.empty()) {
            std::fprintf(stderr, "stress: round %llu of seed %llu:\n%s", figures.rounds,
                         options.seed, complaint.c_str());
            return EXIT_FAILURE;
        }
    } while (Clock::now() < end);
    if (figures.calls < 1000 * figures.rounds) {
        std::fprintf(stderr, "stress: handlers were called %llu times only\n", figures.calls);
        return EXIT_FAILURE;
    }
    std::printf("stress: %llu rounds, handlers called %llu times, nothing lost\n", figures.rounds,
                figures.calls);
    return EXIT_SUCCESS;
}

} // namespace

int main(int argc, char** argv)
{
    Options options;
    CLI::App app("Many threads do at random what applications and handlers may do, on all buses.",
                 "stress");
    app.add_option("--seconds", options.seconds, "how long")->capture_default_str();
    app.add_option("--round", options.roundSeconds, "seconds until all is made anew")
        ->capture_default_str();
    app.add_option("--seed", options.seed,
                   "repeats the chances of a run; their order is the threads'");
    app.add_flag("--any-order", options.anyOrder,
                 "handlers with one receive thread change any family; a detector of lock orders "
                 "has to be off");
    app.add_option("BUS", options.buses, "by name, instead of one of every kind");
    CLI11_PARSE(app, argc, argv);
    Poco::Logger::root().setLevel(Poco::Message::PRIO_FATAL);
    return Run(options);
}
