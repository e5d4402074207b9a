#include "support/RunCommand.h"

#include <plexa_can/SocketCanDispatcher.h>
#include <tarn/TarnAsyncDispatcher.h>
#include <tarn/TarnMessage.h>
#include <tarn/TarnSyncRequest.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <vector>

namespace
{

using namespace tarn;

struct Question {
    unsigned int number;
    unsigned char reg;
    unsigned char module;

    /// What DevicePartner.cpp says that its device answers.
    unsigned int Answer() const { return number * 2654435761u + reg; }
};

/// Every register and every module; both modes, reading and writing.
Question QuestionOf(unsigned int i)
{
    return {i, static_cast<unsigned char>(7 * i), static_cast<unsigned char>(i % 3 == 0 ? 0 : i)};
}

TarnMessage RequestFor(const Question& question)
{
    TarnMessage request;
    request.SetTargetAddr(9);
    request.SetSourceAddr(1);
    request.SetRegister(question.reg);
    request.SetModule(question.module);
    request.SetAccessType(question.number % 2 == 0 ? TarnMessage::ACCESS_READ
                                                   : TarnMessage::ACCESS_WRITE);
    std::vector<unsigned int> values{question.number};
    EXPECT_TRUE(request.SetData(values));
    return request;
}

TEST(TwoProcesses, TenThousandRequestsGetTheirOwnAnswers)
{
    constexpr unsigned int COUNT = 10000;
    support::RunningCommand device({DEVICE_PARTNER, "vcan0"});
    ASSERT_EQ(device.ReadLine(), "ready");
    const auto bus = SocketCanDispatcher::Create("vcan0");
    const auto dispatcher = TarnAsyncDispatcher::Create(bus);
    dispatcher->Start();
    const auto sync = TarnSyncRequest::Create(dispatcher);
    for (unsigned int i = 0; i < COUNT; ++i) {
        const Question question = QuestionOf(i);
        TarnMessage request = RequestFor(question);
        TarnMessage response;
        ASSERT_TRUE(sync->Send(request, response, 20000)) << "request " << i;
        std::vector<unsigned int> values;
        ASSERT_TRUE(response.GetData(values));
        ASSERT_THAT(values, testing::ElementsAre(question.Answer())) << "request " << i;
        ASSERT_EQ(response.GetModule(), question.module);
    }
    dispatcher->Stop();
    device.CloseInput();
    // Every fourth answer came with another ahead of it, which nobody had asked for.
    EXPECT_EQ(device.ReadLine(),
              "received 10000 delivered 10000 dropped 0 sent 12500 failed 0 threw 0");
    EXPECT_EQ(device.Wait(), 0);
    const CanBusCounters counters = bus->GetCounters();
    EXPECT_EQ(counters.sent, 10000u);
    EXPECT_EQ(counters.sendFailures, 0u);
    EXPECT_EQ(counters.received, 12500u);
    EXPECT_EQ(counters.delivered, 12500u);
    EXPECT_EQ(counters.droppedByKernel, 0u);
}

} // namespace
