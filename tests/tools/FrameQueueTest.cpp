#include "FrameQueue.h"

#include "support/Await.h"
#include "support/CanFakes.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <poll.h>
#include <thread>

namespace
{

using namespace tarn;
using namespace tarn::test;
using namespace tarn::tool;
using testing::ElementsAre;

void Put(FrameQueue& queue, unsigned int header)
{
    CanMessage frame = ExtendedFrame(header);
    queue.DispatchResponse(frame);
}

std::vector<unsigned int> TakeHeaders(FrameQueue& queue)
{
    std::vector<CanMessage> frames;
    queue.TakeAll(frames);
    std::vector<unsigned int> headers;
    for (const CanMessage& frame : frames)
        headers.push_back(frame.GetHeader());
    return headers;
}

bool IsReadable(const FrameQueue& queue)
{
    pollfd descriptor = {queue.GetDescriptor(), POLLIN, 0};
    return ::poll(&descriptor, 1, 0) == 1;
}

TEST(FrameQueue, KeepsTheOrderAndWakesUp)
{
    FrameQueue queue(FrameQueue::COUNT_LOSS);
    EXPECT_FALSE(IsReadable(queue));
    Put(queue, 1);
    Put(queue, 2);
    EXPECT_TRUE(IsReadable(queue));
    EXPECT_THAT(TakeHeaders(queue), ElementsAre(1u, 2u));
    EXPECT_FALSE(IsReadable(queue));
    Put(queue, 3);
    EXPECT_TRUE(IsReadable(queue));
    EXPECT_THAT(TakeHeaders(queue), ElementsAre(3u));
}

TEST(FrameQueue, CountsWhatFindsNoRoom)
{
    FrameQueue queue(FrameQueue::COUNT_LOSS, 2);
    for (unsigned int header = 1; header <= 5; ++header)
        Put(queue, header);
    EXPECT_EQ(queue.GetOverflows(), 3u);
    EXPECT_THAT(TakeHeaders(queue), ElementsAre(1u, 2u));
    Put(queue, 6);
    EXPECT_THAT(TakeHeaders(queue), ElementsAre(6u));
    EXPECT_EQ(queue.GetOverflows(), 3u);
}

TEST(FrameQueue, ALogWaitsForRoom)
{
    FrameQueue queue(FrameQueue::WAIT, 2);
    constexpr unsigned int COUNT = 1000;
    std::thread log([&] {
        for (unsigned int header = 0; header < COUNT; ++header)
            Put(queue, header);
    });
    unsigned int expected = 0;
    while (expected < COUNT) {
        for (const unsigned int header : TakeHeaders(queue))
            EXPECT_EQ(header, expected++);
    }
    log.join();
    EXPECT_EQ(queue.GetOverflows(), 0u);
}

TEST(FrameQueue, ClosingEndsTheWait)
{
    FrameQueue queue(FrameQueue::WAIT, 1);
    Put(queue, 1);
    std::thread log([&] { Put(queue, 2); });
    queue.Close();
    log.join();
    EXPECT_THAT(TakeHeaders(queue), ElementsAre(1u));
}

} // namespace
