#include "CanBusContract.h"
#include "ContractTest.h"

#include <tarn/TarnAsyncDispatcher.h>
#include <tarn/TarnMessage.h>
#include <tarn/TarnSyncRequest.h>
#include <tarn/iTarnMessageHandler.h>

#include <atomic>

namespace tarn::contract
{

namespace
{

using Dispatcher = std::tr1::shared_ptr<TarnAsyncDispatcher>;

constexpr unsigned char CONTROLLER = 1;
constexpr unsigned char DEVICE = 9;
constexpr unsigned int PATIENCE_MS = 20000;

TarnMessage Message(unsigned char source, unsigned char target, unsigned char reg)
{
    TarnMessage message;
    std::vector<unsigned char> values{reg};
    message.SetDirection(TarnMessage::DIRECTION_RESPONSE);
    message.SetSourceAddr(source);
    message.SetTargetAddr(target);
    message.SetRegister(reg);
    message.SetData(values);
    return message;
}

/// Keeps the registers of the messages it gets.
class Subscriber : public iTarnMessageHandler
{
public:
    ~Subscriber() noexcept override {}

    bool DispatchResponse(TarnMessage& message) override
    {
        const std::lock_guard<std::mutex> lock(mMutex);
        mRegisters.push_back(message.GetRegister());
        mChanged.notify_all();
        return false;
    }

    bool AwaitRegister(unsigned char reg)
    {
        std::unique_lock<std::mutex> lock(mMutex);
        return mChanged.wait_for(lock, PATIENCE,
                                 [&] { return !mRegisters.empty() && mRegisters.back() == reg; });
    }

    std::vector<unsigned char> Registers()
    {
        const std::lock_guard<std::mutex> lock(mMutex);
        return mRegisters;
    }

private:
    std::mutex mMutex;
    std::condition_variable mChanged;
    std::vector<unsigned char> mRegisters;
};

/// Answers every request with the number of its register.
class Device : public iTarnMessageHandler
{
public:
    explicit Device(iTarnAsyncDispatcher& dispatcher) : mDispatcher(dispatcher) {}
    ~Device() noexcept override {}

    bool DispatchResponse(TarnMessage& request) override
    {
        TarnMessage answer = Message(DEVICE, request.GetSourceAddr(), request.GetRegister());
        mDispatcher.Send(answer);
        return false;
    }

private:
    iTarnAsyncDispatcher& mDispatcher;
};

void ADispatcherRoutesWhatComes(const CanBusUnderTest& bus)
{
    const auto ends = bus.connect(2);
    const Dispatcher sender = TarnAsyncDispatcher::Create(ends[0]);
    const Dispatcher receiver = TarnAsyncDispatcher::Create(ends[1]);
    Subscriber ofSource;
    Subscriber ofTarget;
    Subscriber all;
    receiver->SubscribeSource(5, &ofSource);
    receiver->SubscribeTarget(7, &ofTarget);
    receiver->SubscribeAll(&all);
    receiver->Start();
    const std::pair<unsigned char, unsigned char> ways[] = {{5, 6}, {6, 7}, {5, 7}, {6, 6}};
    unsigned char reg = 0;
    for (const auto& way : ways) {
        TarnMessage message = Message(way.first, way.second, ++reg);
        sender->Send(message);
        EXPECT_TRUE(all.AwaitRegister(reg));
    }
    receiver->Stop();
    EXPECT_EQ(ofSource.Registers(), (std::vector<unsigned char>{1, 3}));
    EXPECT_EQ(ofTarget.Registers(), (std::vector<unsigned char>{2, 3}));
    EXPECT_EQ(all.Registers(), (std::vector<unsigned char>{1, 2, 3, 4}));
}

void ADispatcherStopsAndStartsAgain(const CanBusUnderTest& bus)
{
    const auto ends = bus.connect(2);
    const Dispatcher sender = TarnAsyncDispatcher::Create(ends[0]);
    const Dispatcher receiver = TarnAsyncDispatcher::Create(ends[1]);
    Subscriber subscriber;
    receiver->SubscribeSource(DEVICE, &subscriber);
    for (unsigned char reg = 1; reg <= 3; ++reg) {
        receiver->Start();
        TarnMessage message = Message(DEVICE, CONTROLLER, reg);
        sender->Send(message);
        EXPECT_TRUE(subscriber.AwaitRegister(reg));
        receiver->Stop();
    }
    EXPECT_EQ(subscriber.Registers(), (std::vector<unsigned char>{1, 2, 3}));
}

void RequestsAreAnswered(const CanBusUnderTest& bus)
{
    const auto ends = bus.connect(2);
    const Dispatcher controller = TarnAsyncDispatcher::Create(ends[0]);
    const Dispatcher deviceSide = TarnAsyncDispatcher::Create(ends[1]);
    Device device(*deviceSide);
    deviceSide->SubscribeTarget(DEVICE, &device);
    deviceSide->Start();
    controller->Start();
    const auto sync = TarnSyncRequest::Create(controller);
    TarnMessage request;
    TarnMessage response;
    request.SetSourceAddr(CONTROLLER);
    request.SetTargetAddr(DEVICE);
    for (unsigned char reg = 0; reg < 200; ++reg) {
        std::vector<unsigned char> values;
        request.SetRegister(reg);
        ASSERT_TRUE(sync->Send(request, response, PATIENCE_MS)) << "request " << int{reg};
        EXPECT_TRUE(response.GetData(values));
        EXPECT_EQ(values, std::vector<unsigned char>{reg});
    }
    controller->Stop();
    deviceSide->Stop();
}

} // namespace

bool AddTarnContract(const CanBusUnderTest& bus)
{
    const std::string suite = "TarnContract";
    ContractTest::Add(suite, "ADispatcherRoutesWhatComes", bus, ADispatcherRoutesWhatComes);
    ContractTest::Add(suite, "ADispatcherStopsAndStartsAgain", bus, ADispatcherStopsAndStartsAgain);
    ContractTest::Add(suite, "RequestsAreAnswered", bus, RequestsAreAnswered);
    return true;
}

} // namespace tarn::contract
