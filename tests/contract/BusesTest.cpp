#include "CanBusContract.h"
#include "support/TemporaryFolder.h"

#include <plexa_can/LogReplayDispatcher.h>
#include <plexa_can/VirtualCanBus.h>

#include <fcntl.h>
#include <limits>
#include <memory>
#include <stdexcept>
#include <sys/stat.h>
#include <unistd.h>

// The contract over the buses that need nothing but this process.

namespace
{

using namespace tarn;
using contract::CanBusUnderTest;
using Connections = std::vector<CanBusUnderTest::Connection>;

VirtualCanBus::Options Patient()
{
    VirtualCanBus::Options options;
    options.sendTimeout = 20000;
    return options;
}

CanBusUnderTest Virtual(const std::string& name, const VirtualCanBus::Options& options)
{
    CanBusUnderTest bus;
    bus.name = name;
    bus.connect = [options](std::size_t count) {
        const auto shared = VirtualCanBus::Create(options);
        Connections connections;
        while (connections.size() < count)
            connections.push_back(shared->Connect());
        return connections;
    };
    return bus;
}

CanBusUnderTest Threaded()
{
    return Virtual("VirtualThreaded", Patient());
}

CanBusUnderTest Inline()
{
    VirtualCanBus::Options options = Patient();
    options.delivery = VirtualCanBus::DELIVERY_INLINE;
    return Virtual("VirtualInline", options);
}

CanBusUnderTest Paced()
{
    VirtualCanBus::Options options = Patient();
    options.bitRate = 1000000;
    return Virtual("VirtualPaced", options);
}

/// A pipe with a name, and with something in it, so that neither end waits for the other.
class Pipe
{
public:
    explicit Pipe(std::string path) : mPath(std::move(path))
    {
        static const char REMARK[] = "# a pipe\n";
        if (::mkfifo(mPath.c_str(), 0600) == 0)
            mDescriptor = ::open(mPath.c_str(), O_RDWR | O_CLOEXEC);
        if (::write(mDescriptor, REMARK, sizeof REMARK - 1) < 0)
            throw std::runtime_error("cannot make the pipe " + mPath);
    }
    ~Pipe() { ::close(mDescriptor); }
    Pipe(const Pipe&) = delete;
    Pipe& operator=(const Pipe&) = delete;

    const std::string& Path() const { return mPath; }

private:
    const std::string mPath;
    int mDescriptor = -1;
};

struct Pipes {
    const test::TemporaryFolder folder;
    const Pipe there{folder.PathOf("there")};
    const Pipe back{folder.PathOf("back")};
};

/// A log, and the pipes it comes from and is recorded to.
class Piped : public iCanAsyncDispatcher
{
public:
    Piped(std::shared_ptr<Pipes> pipes, const Pipe& from, const Pipe& to) : mPipes(std::move(pipes))
    {
        LogReplayDispatcher::Options options;
        options.speed = std::numeric_limits<double>::infinity();
        options.recordPath = to.Path();
        mLog = LogReplayDispatcher::Create(from.Path(), options);
    }

    void Start(iCanMessageHandler* handler) override { mLog->Start(handler); }
    void Stop(iCanMessageHandler* handler) override { mLog->Stop(handler); }
    void Send(CanMessage& frame) override { mLog->Send(frame); }

private:
    const std::shared_ptr<Pipes> mPipes;
    std::tr1::shared_ptr<LogReplayDispatcher> mLog;
};

/// Each of two logs is what the other one records. A log keeps its frames for handlers.
CanBusUnderTest Log()
{
    CanBusUnderTest bus;
    bus.name = "Log";
    bus.connect = [](std::size_t) {
        const auto pipes = std::make_shared<Pipes>();
        Connections connections;
        connections.emplace_back(new Piped(pipes, pipes->there, pipes->back));
        connections.emplace_back(new Piped(pipes, pipes->back, pipes->there));
        return connections;
    };
    bus.connectsThree = false;
    bus.forgetsUnheard = false;
    return bus;
}

bool Add(const CanBusUnderTest& bus)
{
    return contract::AddCanBusContract(bus) && contract::AddTarnContract(bus);
}

const bool ADDED = Add(Threaded()) && Add(Inline()) && Add(Paced()) && Add(Log());

} // namespace
