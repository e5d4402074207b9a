#include "support/AllocationCounter.h"

#include <plexa_can/CanMessage.h>
#include <tarn/TarnAsyncDispatcher.h>
#include <tarn/iTarnMessageHandler.h>

#include <gtest/gtest.h>

#include <vector>

// Over another CAN layer, whose frames hand out no more room than they have bytes.

namespace
{

using namespace tarn;

class ReadsNothing : public iTarnMessageHandler
{
public:
    ~ReadsNothing() noexcept override {}
    bool DispatchResponse(TarnMessage&) override { return false; }
};

unsigned long AllocationsOfRouting(std::vector<unsigned char> data)
{
    const auto dispatcher =
        TarnAsyncDispatcher::Create(std::tr1::shared_ptr<iCanAsyncDispatcher>());
    ReadsNothing handler;
    dispatcher->SubscribeSource(5, &handler);
    CanMessage frame;
    frame.SetHeader(0x0F000485);
    frame.GetFlags() = 1;
    frame.SetData(data);
    dispatcher->DispatchResponse(frame);
    return support::CountAllocations([&] { dispatcher->DispatchResponse(frame); });
}

TEST(ForeignFrame, OfAnEmptyPayloadCostsTwoAllocations)
{
    EXPECT_EQ(AllocationsOfRouting({0x50}), 2u) << "the frame's bytes, and room for a full payload";
}

TEST(ForeignFrame, OfAFullPayloadCostsOneAllocation)
{
    EXPECT_EQ(AllocationsOfRouting({1, 2, 3, 4, 5, 6, 0x58}), 1u);
}

} // namespace
