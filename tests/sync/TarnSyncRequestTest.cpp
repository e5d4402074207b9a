#include "support/Await.h"
#include "support/DispatchFakes.h"
#include "support/ScriptedDispatcher.h"

#include <plexa_can/CanException.h>
#include <plexa_can/VirtualCanBus.h>
#include <tarn/TarnAsyncDispatcher.h>
#include <tarn/TarnAsyncDispatcherMock.h>
#include <tarn/TarnSyncRequest.h>

#include <Poco/Exception.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <string>
#include <thread>
#include <vector>

namespace
{

using namespace tarn;
using namespace tarn::test;

constexpr unsigned int LONG_MS = 20000;

/// READ of register 0x11 at address 9, from address 1: the word is
/// (3 << 26) + (1 << 25) + (1 << 24) + (1 << 23) + (0x11 << 14) + (9 << 7) + 1 = 0x0F844481.
TarnMessage Request()
{
    TarnMessage request;
    request.SetTargetAddr(9);
    request.SetRegister(0x11);
    return request;
}

/// Its response: direction RESPONSE, from 9 to 1.
TarnMessage Response(unsigned short value = 300)
{
    TarnMessage response;
    response.SetDirection(TarnMessage::DIRECTION_RESPONSE);
    response.SetSourceAddr(9);
    response.SetTargetAddr(1);
    response.SetRegister(0x11);
    response.SetRStatus(TarnMessage::STATUS_OPERATING);
    std::vector<unsigned short> values{value};
    response.SetData(values);
    return response;
}

unsigned short ValueOf(const TarnMessage& message)
{
    std::vector<unsigned short> values;
    return message.GetData(values) ? values.at(0) : static_cast<unsigned short>(0);
}

class SyncRequest : public testing::Test
{
protected:
    ~SyncRequest() override { mSync.reset(); }

    bool Send(unsigned int timeout = 0) { return mSync->Send(mRequest, mResponse, timeout); }

    /// The device's message reaches the object, as the dispatcher's receive thread brings it.
    bool Receive(TarnMessage message) { return mSync->DispatchResponse(message); }

    std::tr1::shared_ptr<ScriptedDispatcher> mDispatcher{new ScriptedDispatcher};
    std::tr1::shared_ptr<TarnSyncRequest> mSync = TarnSyncRequest::Create(mDispatcher);
    TarnMessage mRequest = Request();
    TarnMessage mResponse;
};

TEST_F(SyncRequest, SubscribesToTheTargetSendsAndReturnsTheResponse)
{
    mDispatcher->mOnSend = [&](TarnMessage&) { EXPECT_TRUE(Receive(Response())); };
    ASSERT_TRUE(Send(LONG_MS));
    EXPECT_EQ(mDispatcher->mCalls, "SubscribeSource 9;Send 0F844481#20;");
    TarnMessage expected = Response();
    EXPECT_TRUE(mResponse == expected);
}

TEST_F(SyncRequest, UnsubscribesOnTimeOutAndLeavesTheResponseAlone)
{
    mResponse = Response(7);
    EXPECT_FALSE(Send(1));
    EXPECT_EQ(mDispatcher->mCalls, "SubscribeSource 9;Send 0F844481#20;UnsubscribeSource 9;");
    EXPECT_EQ(ValueOf(mResponse), 7);
}

TEST_F(SyncRequest, WaitsAsLongAsTold)
{
    const auto start = std::chrono::steady_clock::now();
    EXPECT_FALSE(Send(30));
    const auto waited = std::chrono::steady_clock::now() - start;
    EXPECT_GE(waited, std::chrono::milliseconds(29));
}

TEST_F(SyncRequest, UnsubscribesFromTheAddressThatTheRequestHasAtTheTimeOut)
{
    mDispatcher->mOnSend = [&](TarnMessage& request) { request.SetTargetAddr(10); };
    EXPECT_FALSE(Send(0));
    EXPECT_EQ(mDispatcher->mCalls, "SubscribeSource 9;Send 0F844481#20;UnsubscribeSource 10;");
}

TEST_F(SyncRequest, TimeOutZeroTakesAResponseThatIsPendingAlready)
{
    EXPECT_FALSE(Send(0));
    mDispatcher->mOnSend = [&](TarnMessage&) { Receive(Response()); };
    EXPECT_TRUE(Send(0));
}

TEST_F(SyncRequest, AResponseBetweenTimeOutAndUnsubscribingAnswersTheNextRequest)
{
    mDispatcher->mOnUnsubscribe = [&] { EXPECT_TRUE(Receive(Response(1))); };
    EXPECT_FALSE(Send(0));
    TarnMessage other = Request();
    other.SetRegister(0x99);
    EXPECT_TRUE(mSync->Send(other, mResponse, 0));
    EXPECT_EQ(ValueOf(mResponse), 1);
    EXPECT_EQ(mResponse.GetRegister(), 0x11);
    mDispatcher->mOnUnsubscribe = {};
    EXPECT_FALSE(mSync->Send(other, mResponse, 0));
}

TEST_F(SyncRequest, AnswersWithTheLastOfSeveralResponses)
{
    mDispatcher->mOnSend = [&](TarnMessage&) {
        Receive(Response(1));
        Receive(Response(2));
    };
    EXPECT_TRUE(Send(LONG_MS));
    EXPECT_EQ(ValueOf(mResponse), 2);
    mDispatcher->mOnSend = {};
    EXPECT_FALSE(Send(0)) << "one signal only was left";
}

struct Mismatch {
    const char* name;
    void (*spoil)(TarnMessage&);
};

void PrintTo(const Mismatch& mismatch, std::ostream* out)
{
    *out << mismatch.name;
}

class SyncRequestRefuses : public SyncRequest, public testing::WithParamInterface<Mismatch>
{
};

TEST_P(SyncRequestRefuses, AMessageThatDiffersIn)
{
    TarnMessage wrong = Response();
    GetParam().spoil(wrong);
    mDispatcher->mOnSend = [&](TarnMessage&) { EXPECT_FALSE(Receive(wrong)); };
    EXPECT_FALSE(Send(0));
    mDispatcher->mOnSend = [&](TarnMessage&) {
        EXPECT_FALSE(Receive(wrong));
        EXPECT_TRUE(Receive(Response()));
    };
    EXPECT_TRUE(Send(0));
}

INSTANTIATE_TEST_SUITE_P(
    Field, SyncRequestRefuses,
    testing::Values(
        Mismatch{"Type", [](TarnMessage& m) { m.SetFullHeader(m.GetFullHeader() | 0x10000000u); }},
        Mismatch{"Addressing",
                 [](TarnMessage& m) { m.SetAddressing(TarnMessage::ADDRESSING_GROUP); }},
        Mismatch{"AccessType", [](TarnMessage& m) { m.SetAccessType(TarnMessage::ACCESS_WRITE); }},
        Mismatch{"Direction",
                 [](TarnMessage& m) { m.SetDirection(TarnMessage::DIRECTION_REQUEST); }},
        Mismatch{
            "AddressingMode",
            [](TarnMessage& m) { m.SetAddressingMode(TarnMessage::ADDRESSING_MODE_EXTENDED); }},
        Mismatch{"Register", [](TarnMessage& m) { m.SetRegister(0x12); }},
        Mismatch{"TargetAddr", [](TarnMessage& m) { m.SetTargetAddr(2); }},
        Mismatch{"SourceAddr", [](TarnMessage& m) { m.SetSourceAddr(8); }},
        Mismatch{"Module",
                 [](TarnMessage& m) {
                     m.SetModule(4);
                     m.SetAddressingMode(TarnMessage::ADDRESSING_MODE_STANDARD);
                 }}),
    [](const auto& mismatch) { return std::string(mismatch.param.name); });

TEST_F(SyncRequest, AcceptsAnyPriorityStatusTypeAndPayload)
{
    TarnMessage response = Response();
    response.SetPriority(TarnMessage::PRIORITY_SYNC);
    response.SetRStatus(TarnMessage::STATUS_ACCESS_NOT_GRANTED);
    std::vector<double> values{1.5};
    response.SetData(values);
    mDispatcher->mOnSend = [&](TarnMessage&) { EXPECT_TRUE(Receive(response)); };
    EXPECT_TRUE(Send(0));
}

TEST_F(SyncRequest, DoesNotLookAtTheDirectionOfTheRequest)
{
    mRequest.SetDirection(TarnMessage::DIRECTION_RESPONSE);
    mDispatcher->mOnSend = [&](TarnMessage&) { EXPECT_TRUE(Receive(Response())); };
    EXPECT_TRUE(Send(0));
}

TEST_F(SyncRequest, AnExtendedRequestIsAnsweredByItsModuleOnly)
{
    mRequest.SetModule(3);
    mDispatcher->mOnSend = [&](TarnMessage&) {
        TarnMessage response = Response();
        response.SetModule(4);
        EXPECT_FALSE(Receive(response));
        response.SetModule(3);
        EXPECT_TRUE(Receive(response));
    };
    EXPECT_TRUE(Send(0));
}

TEST_F(SyncRequest, AChcpRequestIsNeverAnswered)
{
    mRequest.SetType(TarnMessage::TYPE_CHCP);
    mDispatcher->mOnSend = [&](TarnMessage&) {
        EXPECT_FALSE(Receive(Response()));
        TarnMessage chcp = Response();
        chcp.SetType(TarnMessage::TYPE_CHCP);
        EXPECT_FALSE(Receive(chcp));
    };
    EXPECT_FALSE(Send(0));
}

TEST_F(SyncRequest, WithoutADispatcherSendSaysSo)
{
    const auto sync = TarnSyncRequest::Create(std::tr1::shared_ptr<iTarnAsyncDispatcher>());
    EXPECT_THROW(sync->Send(mRequest, mResponse, 0), Poco::NullPointerException);
    EXPECT_THROW(sync->Send(mRequest, mResponse, 0), Poco::NullPointerException);
}

TEST_F(SyncRequest, ARefusedRequestLeavesNoSubscriptionBehind)
{
    mDispatcher->mOnSend = [](TarnMessage&) { throw CanException("bus is off", 100); };
    EXPECT_THROW(Send(LONG_MS), CanException);
    EXPECT_EQ(mDispatcher->mCalls, "SubscribeSource 9;Send 0F844481#20;UnsubscribeSource 9;");
    mDispatcher->mOnUnsubscribe = [] { throw std::runtime_error("second"); };
    EXPECT_THROW(Send(LONG_MS), CanException);
    mDispatcher->mOnSend = [&](TarnMessage&) { Receive(Response()); };
    EXPECT_TRUE(Send(LONG_MS));
}

TEST_F(SyncRequest, AMessageThatCannotBeFramedPassesItsTextOn)
{
    std::vector<unsigned char> one{1};
    mRequest.SetData(one);
    mRequest.SetFullHeader(mRequest.GetFullHeader() | 0x10000000u);
    try {
        Send(LONG_MS);
        FAIL();
    } catch (const std::string& text) {
        EXPECT_EQ(text, "tarn::CanMessage tarn::TarnMessage::RawMessage() : TYPE_CHCP : "
                        "mData.size() != 6!");
    }
}

TEST_F(SyncRequest, DoesNotUnsubscribeWhenDestroyed)
{
    mSync.reset();
    EXPECT_EQ(mDispatcher->mCalls, "");
}

TEST_F(SyncRequest, SharesTheDispatcher)
{
    std::tr1::weak_ptr<ScriptedDispatcher> watched = mDispatcher;
    mDispatcher.reset();
    EXPECT_FALSE(watched.expired());
    mSync.reset();
    EXPECT_TRUE(watched.expired());
}

// Over real dispatchers.

TEST(SyncRequestOnMock, TimesOutUnlessAResponseIsFedIn)
{
    const auto mock = TarnAsyncDispatcherMock::Create();
    const auto sync = TarnSyncRequest::Create(mock);
    TarnMessage request = Request();
    TarnMessage response;
    EXPECT_FALSE(sync->Send(request, response, 1));
    std::atomic<bool> done{false};
    std::thread device([&] {
        CanMessage frame = Response().RawMessage();
        while (!done) {
            mock->DispatchResponse(frame);
            std::this_thread::yield();
        }
    });
    EXPECT_TRUE(sync->Send(request, response, LONG_MS));
    done = true;
    device.join();
    EXPECT_EQ(ValueOf(response), 300);
}

/// Answers each request to address 9 with the register's number as value.
class Device : public iTarnMessageHandler
{
public:
    explicit Device(iTarnAsyncDispatcher& dispatcher) : mDispatcher(dispatcher) {}
    ~Device() noexcept override {}

    bool DispatchResponse(TarnMessage& request) override
    {
        TarnMessage response = Response(request.GetRegister());
        response.SetRegister(request.GetRegister());
        response.SetTargetAddr(request.GetSourceAddr());
        mDispatcher.Send(response);
        return false;
    }

private:
    iTarnAsyncDispatcher& mDispatcher;
};

class SyncRequestOnBus : public testing::TestWithParam<VirtualCanBus::tDelivery>
{
protected:
    SyncRequestOnBus()
    {
        VirtualCanBus::Options options;
        options.delivery = GetParam();
        const auto bus = VirtualCanBus::Create(options);
        mController = TarnAsyncDispatcher::Create(bus->Connect());
        mDeviceSide = TarnAsyncDispatcher::Create(bus->Connect());
        mDevice.reset(new Device(*mDeviceSide));
        mDeviceSide->SubscribeTarget(9, mDevice.get());
        mDeviceSide->Start();
        mController->Start();
    }

    ~SyncRequestOnBus() override
    {
        mController->Stop();
        mDeviceSide->Stop();
        mController.reset();
        mDeviceSide.reset();
    }

    std::tr1::shared_ptr<TarnAsyncDispatcher> mController;
    std::tr1::shared_ptr<TarnAsyncDispatcher> mDeviceSide;
    std::unique_ptr<Device> mDevice;
};

INSTANTIATE_TEST_SUITE_P(Delivery, SyncRequestOnBus,
                         testing::Values(VirtualCanBus::DELIVERY_THREADED,
                                         VirtualCanBus::DELIVERY_INLINE),
                         [](const auto& bus) {
                             return bus.param == VirtualCanBus::DELIVERY_INLINE ? "Inline"
                                                                                : "Threaded";
                         });

TEST_P(SyncRequestOnBus, EveryRequestOfManyObjectsGetsItsOwnAnswer)
{
    std::vector<std::thread> threads;
    std::atomic<int> right{0};
    for (unsigned char thread = 0; thread < 4; ++thread) {
        threads.emplace_back([&, thread] {
            const auto sync = TarnSyncRequest::Create(mController);
            for (unsigned char i = 0; i < 50; ++i) {
                TarnMessage request = Request();
                TarnMessage response;
                const auto reg = static_cast<unsigned char>(thread * 50 + i);
                request.SetRegister(reg);
                if (sync->Send(request, response, LONG_MS) && ValueOf(response) == reg)
                    ++right;
            }
        });
    }
    for (auto& thread : threads)
        thread.join();
    EXPECT_EQ(right, 200);
}

TEST_P(SyncRequestOnBus, ThreadsThatShareOneObjectAreServedInTurn)
{
    const auto sync = TarnSyncRequest::Create(mController);
    std::vector<std::thread> threads;
    std::atomic<int> right{0};
    for (unsigned char thread = 0; thread < 4; ++thread) {
        threads.emplace_back([&, thread] {
            for (int i = 0; i < 50; ++i) {
                TarnMessage request = Request();
                TarnMessage response;
                request.SetRegister(thread);
                if (sync->Send(request, response, LONG_MS) && ValueOf(response) == thread)
                    ++right;
            }
        });
    }
    for (auto& thread : threads)
        thread.join();
    EXPECT_EQ(right, 200);
}

} // namespace
