#include "Fakes.h"
#include "Path.h"

#include <Poco/Mutex.h>

#include <memory>
#include <new>

// What the contract demands of a frame on its way to one handler, and nothing else: its locks, the
// message's mutex, one allocation, the calls.

namespace
{

using Poco::Mutex;

struct BareMessage {
    BareMessage() : payload(::operator new(8)) {}
    ~BareMessage() { ::operator delete(payload); }
    BareMessage(const BareMessage&) = delete;
    BareMessage& operator=(const BareMessage&) = delete;

    [[gnu::noinline]] unsigned int Field(unsigned int first)
    {
        mutex.lock();
        const unsigned int value = (header >> first) & 0x7Fu;
        mutex.unlock();
        return value;
    }

    Mutex mutex;
    unsigned int header = 0x00000005u;
    void* payload;
};

class BareHandler
{
public:
    BareHandler() = default;
    virtual ~BareHandler() = default;
    BareHandler(const BareHandler&) = delete;
    BareHandler& operator=(const BareHandler&) = delete;
    virtual bool Handle(BareMessage& message) = 0;
};

class BareReadsNothing : public BareHandler
{
    bool Handle(BareMessage& message) override
    {
        benchmark::DoNotOptimize(&message);
        return false;
    }
};

class BareReadsFourFields : public BareHandler
{
    bool Handle(BareMessage& message) override
    {
        for (const unsigned int first : {0u, 7u, 14u, 21u})
            benchmark::DoNotOptimize(message.Field(first));
        return false;
    }
};

class BareDispatcher
{
public:
    BareDispatcher() = default;
    virtual ~BareDispatcher() = default;
    BareDispatcher(const BareDispatcher&) = delete;
    BareDispatcher& operator=(const BareDispatcher&) = delete;

    virtual void Dispatch(BareHandler& handler)
    {
        BareMessage message;
        benchmark::DoNotOptimize(message.Field(28)); // the type
        mSource.lock();
        benchmark::DoNotOptimize(message.Field(0));
        handler.Handle(message);
        mSource.unlock();
        mTarget.lock();
        benchmark::DoNotOptimize(message.Field(7));
        mTarget.unlock();
        mAll.lock();
        mAll.unlock();
    }

private:
    Mutex mSource;
    Mutex mTarget;
    Mutex mAll;
};

template <typename Handler>
struct BareRoute {
    std::unique_ptr<BareDispatcher> dispatcher = std::make_unique<BareDispatcher>();
    std::unique_ptr<BareHandler> handler = std::make_unique<Handler>();

    void operator()()
    {
        benchmark::DoNotOptimize(dispatcher.get());
        dispatcher->Dispatch(*handler);
    }
};

/// The calls of 100 handlers that each read four fields, on a message that is there already.
struct HundredCalls {
    std::vector<bench::ReadsFourFields> handlers = std::vector<bench::ReadsFourFields>(100);
    std::vector<tarn::iTarnMessageHandler*> calls;
    tarn::TarnMessage message;

    HundredCalls()
    {
        for (bench::ReadsFourFields& handler : handlers)
            calls.push_back(&handler);
    }

    void operator()()
    {
        for (tarn::iTarnMessageHandler* const handler : calls)
            benchmark::DoNotOptimize(handler->DispatchResponse(message));
    }
};

const bool added = bench::AddPath<BareRoute<BareReadsNothing>>("bare/one_handler") &&
                   bench::AddPath<BareRoute<BareReadsFourFields>>("bare/four_fields") &&
                   bench::AddPath<HundredCalls>("bare/100_calls");

} // namespace
