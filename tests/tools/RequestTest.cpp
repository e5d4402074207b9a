#include "Requester.h"
#include "SimulatedDevice.h"
#include "Tarn.h"
#include "VerbRun.h"

#include <tarn/TarnAsyncDispatcher.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <cstdlib>
#include <future>
#include <thread>
#include <tr1/memory>

namespace
{

using namespace tarn;
using namespace tarn::test;
using namespace tarn::tool;
using testing::HasSubstr;
using testing::MatchesRegex;

/// Device 9 on a bus: register 0x11 is U16 100, read only; 0x12 is U8 1 2 3; 0x11 of module 3 is
/// FLOAT 1.5.
class Request : public testing::Test
{
protected:
    ~Request() noexcept override
    {
        mDevice.reset();
        if (mDispatcher)
            mDispatcher->Stop();
    }

    static SimulatedDevice::Options AtNine(bool silent = false)
    {
        SimulatedDevice::Options options;
        options.address = 9;
        options.silent = silent;
        return options;
    }

    void Simulate(const SimulatedDevice::Options& options = AtNine())
    {
        mDispatcher = TarnAsyncDispatcher::Create(mBus->Connect());
        mDispatcher->Start();
        mDevice = std::make_unique<SimulatedDevice>(mDispatcher, options);
        RegisterMap& registers = mDevice->GetRegisters();
        registers.Add({0, 0x11}, RegisterMap::READ_ONLY,
                      RegisterValue::From<unsigned short>({100}));
        registers.Add({0, 0x12}, RegisterMap::READ_WRITE,
                      RegisterValue::From<unsigned char>({1, 2, 3}));
        registers.Add({3, 0x11}, RegisterMap::READ_WRITE, RegisterValue::From<double>({1.5}));
    }

    /// Returns the exit status.
    int Run(std::vector<std::string> arguments)
    {
        arguments.insert(arguments.begin(), {"request", "-b", "virtual:" + BUS});
        VerbRun run(arguments);
        const int status = run.Wait();
        mOut = run.out;
        mErr = run.err;
        return status;
    }

    const std::string BUS = "request-test";
    const std::tr1::shared_ptr<VirtualCanBus> mBus = VirtualCanBus::Open(BUS);
    std::tr1::shared_ptr<iTarnAsyncDispatcher> mDispatcher;
    std::unique_ptr<SimulatedDevice> mDevice;
    std::string mOut;
    std::string mErr;
};

TEST_F(Request, PrintsTheValuesAlone)
{
    Simulate();
    EXPECT_EQ(Run({"--target", "9", "--register", "0x12"}), 0);
    EXPECT_EQ(mOut, "1 2 3\n");
    EXPECT_EQ(mErr, "");
    EXPECT_EQ(Run({"--target", "9", "--module", "3", "--register", "0x11"}), 0);
    EXPECT_EQ(mOut, "1.5\n");
}

TEST_F(Request, WritesValues)
{
    Simulate();
    EXPECT_EQ(Run({"--target", "9", "--register", "0x12", "--write", "--u8", "7", "8", "9"}), 0);
    EXPECT_EQ(mOut, "7 8 9\n");
    EXPECT_EQ(Run({"--target", "9", "--register", "0x12"}), 0);
    EXPECT_EQ(mOut, "7 8 9\n");
}

TEST_F(Request, TellsARefusal)
{
    Simulate();
    EXPECT_EQ(Run({"--target", "9", "--register", "0x11", "--write", "--u16", "5"}), 1);
    EXPECT_EQ(mErr, "tarn request: device 9 register 17: refused with status "
                    "ACCESS NOT GRANTED\n");
    EXPECT_EQ(Run({"--target", "9", "--register", "0x77", "-q"}), 1);
    EXPECT_EQ(mErr, "");
}

TEST_F(Request, TellsAStatusThatIsNotOperating)
{
    SimulatedDevice::Options options = AtNine();
    options.status = TarnMessage::STATUS_STANDBY;
    Simulate(options);
    EXPECT_EQ(Run({"--target", "9", "--register", "0x12"}), 0);
    EXPECT_EQ(mOut, "1 2 3\n");
    EXPECT_EQ(mErr, "tarn request: device 9 register 18: answered with status STANDBY\n");
}

TEST_F(Request, EndsWithThreeWhenNobodyAnswers)
{
    EXPECT_EQ(Run({"--target", "9", "--register", "0x11", "--timeout", "20ms"}), 3);
    EXPECT_EQ(mOut, "");
    EXPECT_EQ(mErr, "tarn request: device 9 register 17: no answer within 20 ms; is it there and "
                    "on?\n");
}

TEST_F(Request, AsksAgainAsOftenAsTold)
{
    Simulate(AtNine(true));
    EXPECT_EQ(Run({"--target", "9", "--timeout", "20ms", "--retries", "2"}), 3);
    EXPECT_EQ(mDevice->GetCounters().requests, 3u);
}

/// Tells that somebody sent, and which thread stopped it.
class StoppedBus : public iCanAsyncDispatcher
{
public:
    void Start(iCanMessageHandler*) override {}
    void Stop(iCanMessageHandler*) override { mStopper = std::this_thread::get_id(); }
    void Send(CanMessage&) override { mSent.set_value(); }

    std::promise<void> mSent;
    std::thread::id mStopper;
};

// A thread that went on meanwhile would find loggers destroyed when the process ends.
TEST(Requester, WhatItUsedIsReleasedWhenItIsGone)
{
    for (int i = 0; i < 200; ++i) {
        const std::tr1::shared_ptr<StoppedBus> bus(new StoppedBus);
        {
            Requester requester(bus, {});
            while (requester.TakeResults([](const RequestResult&) {})) {
            }
        }
        ASSERT_EQ(bus->mStopper, std::this_thread::get_id());
        ASSERT_EQ(bus.use_count(), 1);
    }
    EXPECT_FALSE(Requester::HasLeftAny());
}

TEST(RequesterDeathTest, TellsThatARequestIsLeft)
{
    EXPECT_EXIT(
        {
            const std::tr1::shared_ptr<StoppedBus> bus(new StoppedBus);
            Requester::Plan plan;
            plan.requests.emplace_back();
            plan.timeout = 60000;
            Requester requester(bus, plan);
            bus->mSent.get_future().wait();
            requester.End();
            std::_Exit(Requester::HasLeftAny() ? 42 : 1);
        },
        testing::ExitedWithCode(42), "");
}

TEST_F(Request, SeveralTargetsAndRegistersMakeATable)
{
    Simulate();
    EXPECT_EQ(Run({"--target", "8-9", "--register", "0x11,0x12", "--timeout", "100ms"}), 3);
    EXPECT_THAT(
        mOut,
        MatchesRegex(
            "target    register    status                       type   time      values\n"
            "8          17 \\(0x11\\)  no answer\n"
            "8          18 \\(0x12\\)  no answer\n"
            "9          17 \\(0x11\\)  OPERATING                    U16    .* [mu]s +100\n"
            "9          18 \\(0x12\\)  OPERATING                    U8     .* [mu]s +1 2 3\n"));
}

TEST_F(Request, SumsLatenciesUp)
{
    Simulate();
    EXPECT_EQ(Run({"--target", "9", "--register", "0x11", "--repeat", "50"}), 0);
    EXPECT_THAT(mOut, MatchesRegex("50 requests, 0 lost\n"
                                   "minimum [0-9.]+ [mu]s, median [0-9.]+ [mu]s, 99 % [0-9.]+ "
                                   "[mu]s, maximum [0-9.]+ [mu]?s\n"
                                   "( *<= [0-9]+ [mu]?s +[0-9]+ #*\n)+"));
    EXPECT_EQ(mDevice->GetCounters().requests, 50u);
}

TEST_F(Request, PrintsEveryAnswerAsAnObject)
{
    Simulate();
    EXPECT_EQ(Run({"--target", "9", "--register", "0x11", "--repeat", "2", "--json"}), 0);
    // Device 9 to 1, register 17, READ, RESPONSE, OPERATING, U16: 9 + 5 * 16.
    const std::string object = "\\{\"time\":[0-9.]+,\"interface\":\"request-test\",\"latency\":0\\."
                               "[0-9]{9},\"frame\":\"0F044089#640059\",.*\"values\":\\[100\\]\\}\n";
    EXPECT_THAT(mOut, MatchesRegex(object + object));
    EXPECT_THAT(mErr, HasSubstr("2 requests, 0 lost\n"));
}

TEST_F(Request, WhatItPrintsIsReadByEncode)
{
    Simulate();
    EXPECT_EQ(Run({"--target", "9", "--register", "0x11", "--json"}), 0);
    EXPECT_EQ(Tarn({"encode", "--json"}, mOut).out, "0F044089#640059\n");
}

TEST_F(Request, RefusesWrongUse)
{
    EXPECT_EQ(Run({}), 2);
    EXPECT_EQ(mErr, "tarn request: no target: whom to ask is not told; add --target 9\n");
    EXPECT_EQ(Run({"--target", "9", "--interval", "1s"}), 2);
    EXPECT_EQ(Run({"--target", "9", "--timeout", "0"}), 2);
    EXPECT_EQ(Run({"--target", "128"}), 2);
}

TEST(RequestSignal, EndsALongWait)
{
    const auto result = support::RunCommand({"/usr/bin/timeout", "--preserve-status", "-s", "INT",
                                             "0.5", TARN_COMMAND, "request", "-b", "virtual:x",
                                             "--target", "9", "--timeout", "1h", "--repeat", "0"});
    EXPECT_EQ(result.exitStatus, 128 + SIGINT);
}

} // namespace
