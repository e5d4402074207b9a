#include "BareCan.h"
#include "support/CanFakes.h"

#include <plexa_can/CanException.h>
#include <plexa_can/SocketCanDispatcher.h>

#include <gtest/gtest.h>

#include <atomic>
#include <map>
#include <set>
#include <string>
#include <thread>
#include <vector>

// An interface that goes down, comes up, is removed and made again while frames are sent and
// received. A bare socket on all interfaces, which stays through all of it, sees what is sent.

namespace
{

using namespace tarn;
using namespace tarn::test;

constexpr unsigned int FROM_PARTNER = 0x10000000;

/// Counts how often each frame of the others' came by, on a thread of its own.
class Witness
{
public:
    Witness() : mSocket("")
    {
        mSocket.SetOption(SOL_SOCKET, SO_RCVBUFFORCE, 64 << 20);
        mThread = std::thread([this] { Watch(); });
    }
    ~Witness() { End(); }

    /// Returns when all that was sent before is counted.
    void End()
    {
        mEnd = true;
        if (mThread.joinable())
            mThread.join();
    }

    /// After End().
    unsigned int CountOf(unsigned int number) const
    {
        const auto entry = mSeen.find(number);
        return entry == mSeen.end() ? 0 : entry->second;
    }
    bool InOrder() const { return mInOrder; }

private:
    void Watch()
    {
        for (;;) {
            const bool last = mEnd;
            can_frame frame = {};
            while (mSocket.Receive(frame, std::chrono::milliseconds(10)))
                Count(frame.can_id & CAN_EFF_MASK);
            if (last)
                return;
        }
    }

    void Count(unsigned int number)
    {
        if (number >= FROM_PARTNER)
            return;
        mInOrder = mInOrder && (mSeen.empty() || mSeen.rbegin()->first < number);
        ++mSeen[number];
    }

    BareSocket mSocket;
    std::atomic<bool> mEnd{false};
    std::map<unsigned int, unsigned int> mSeen;
    bool mInOrder = true;
    std::thread mThread;
};

/// Sends numbered frames without a pause, and notes which were refused.
class Sender
{
public:
    explicit Sender(SocketCanDispatcher& dispatcher) : mDispatcher(dispatcher)
    {
        mThread = std::thread([this] { Run(); });
    }
    ~Sender() { End(); }

    void End()
    {
        mEnd = true;
        if (mThread.joinable())
            mThread.join();
    }

    /// The number of the frame that is being sent.
    unsigned int Now() const { return mNumber; }

    /// Waits until so many more frames were sent or refused.
    bool Await(unsigned int more) const
    {
        const unsigned int goal = mNumber + more;
        const auto end = std::chrono::steady_clock::now() + PATIENCE;
        while (mNumber < goal && std::chrono::steady_clock::now() < end)
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        return mNumber >= goal;
    }

    /// After End().
    const std::set<unsigned int>& Refused() const { return mRefused; }

private:
    void Run()
    {
        while (!mEnd) {
            CanMessage frame = ExtendedFrame(mNumber, {1, 2, 3, 4, 5, 6, 7, 8});
            try {
                mDispatcher.Send(frame);
            } catch (const CanException&) {
                mRefused.insert(mNumber);
            }
            ++mNumber;
            // What comes and goes is tried, not the speed.
            std::this_thread::sleep_for(std::chrono::microseconds(200));
        }
    }

    SocketCanDispatcher& mDispatcher;
    std::atomic<bool> mEnd{false};
    std::atomic<unsigned int> mNumber{0};
    std::set<unsigned int> mRefused;
    std::thread mThread;
};

struct Stretch {
    unsigned int begin;
    unsigned int end;
};

class LinkChanges : public testing::Test
{
public:
    LinkChanges()
    {
        Shell(MAKE);
        mDispatcher = SocketCanDispatcher::Create("vcan8");
        mDispatcher->Start(&mFrames);
        mDispatcher->AddStateListener(&mStates);
    }
    ~LinkChanges() noexcept override { std::system("ip link del vcan8 2>/dev/null"); }

    /// Some frames, while nothing changes.
    Stretch Some(const Sender& sender)
    {
        const unsigned int begin = sender.Now() + 1;
        EXPECT_TRUE(sender.Await(100));
        return {begin, sender.Now()};
    }

    void HearPartner(unsigned int round)
    {
        const BareSocket partner("vcan8");
        partner.Send(CAN_EFF_FLAG | (FROM_PARTNER + round));
        EXPECT_TRUE(mFrames.AwaitCount(++mHeard)) << "round " << round;
    }

    void Round(unsigned int round, const Sender& sender)
    {
        const bool removed = round % 2 == 1;
        Shell(removed ? "ip link del vcan8" : "ip link set vcan8 down");
        EXPECT_TRUE(mStates.AwaitLast(removed ? CAN_BUS_REMOVED : CAN_BUS_DOWN));
        mGone.push_back(Some(sender));
        Shell(removed ? MAKE : "ip link set vcan8 up");
        EXPECT_TRUE(mStates.AwaitLast(CAN_BUS_ERROR_ACTIVE)) << "round " << round;
        HearPartner(round);
        mUp.push_back(Some(sender));
    }

    void JudgeStretches(const Sender& sender, const Witness& witness)
    {
        for (const Stretch& stretch : mUp)
            for (unsigned int i = stretch.begin; i < stretch.end; ++i)
                EXPECT_EQ(witness.CountOf(i), 1u) << "frame " << i << ", sent while it was up";
        for (const Stretch& stretch : mGone)
            for (unsigned int i = stretch.begin; i < stretch.end; ++i)
                EXPECT_EQ(sender.Refused().count(i), 1u) << "frame " << i << ", while it was gone";
    }

    static void JudgeFrames(const Sender& sender, const Witness& witness)
    {
        EXPECT_TRUE(witness.InOrder());
        for (unsigned int i = 0; i < sender.Now(); ++i) {
            EXPECT_LE(witness.CountOf(i), 1u) << "frame " << i;
            EXPECT_TRUE(witness.CountOf(i) == 0 || sender.Refused().count(i) == 0)
                << "frame " << i << " was refused and sent all the same";
        }
    }

    static constexpr const char* MAKE = "ip link add dev vcan8 type vcan && ip link set vcan8 up";

    std::tr1::shared_ptr<SocketCanDispatcher> mDispatcher;
    FrameRecorder mFrames;
    StateRecorder mStates;
    std::size_t mHeard = 0;
    std::vector<Stretch> mUp;
    std::vector<Stretch> mGone;
};

TEST_F(LinkChanges, TwentyTimesWhileSendingAndReceiving)
{
    constexpr unsigned int ROUNDS = 20;
    Witness witness;
    Sender sender(*mDispatcher);
    for (unsigned int round = 0; round < ROUNDS; ++round)
        Round(round, sender);
    sender.End();
    witness.End();
    mDispatcher->RemoveStateListener(&mStates);
    mDispatcher->Stop(&mFrames);

    JudgeStretches(sender, witness);
    JudgeFrames(sender, witness);
    const CanBusCounters counters = mDispatcher->GetCounters();
    EXPECT_EQ(counters.sendFailures, sender.Refused().size());
    EXPECT_EQ(counters.sent, sender.Now() - sender.Refused().size());
    EXPECT_EQ(counters.received, ROUNDS);
    EXPECT_EQ(counters.delivered, ROUNDS);
}

TEST_F(LinkChanges, StopAndDestructionReturnWhileItIsGone)
{
    const auto limit = std::chrono::seconds(2);
    for (const char* change : {"ip link set vcan8 down", "ip link del vcan8"}) {
        Shell(change);
        const auto since = std::chrono::steady_clock::now();
        mDispatcher->Stop(&mFrames);
        mDispatcher->Start(&mFrames);
        mDispatcher->Stop(&mFrames);
        EXPECT_LT(std::chrono::steady_clock::now() - since, limit) << change;
    }
    const auto since = std::chrono::steady_clock::now();
    mDispatcher->RemoveStateListener(&mStates);
    mDispatcher.reset();
    EXPECT_LT(std::chrono::steady_clock::now() - since, limit);
}

TEST_F(LinkChanges, DestructionReturnsAmidChanges)
{
    std::atomic<bool> end{false};
    std::thread changes([&] {
        while (!end)
            Shell("ip link set vcan8 down && ip link set vcan8 up && ip link del vcan8 && " +
                  std::string(MAKE));
    });
    unsigned int opened = 0;
    const auto begin = std::chrono::steady_clock::now();
    while (opened < 20 && std::chrono::steady_clock::now() - begin < PATIENCE) {
        try {
            const auto other = SocketCanDispatcher::Create("vcan8");
            FrameRecorder frames;
            other->Start(&frames);
            CanMessage frame = ExtendedFrame(1);
            ++opened;
            other->Send(frame);
        } catch (const CanException&) {
            // It was down or gone just then.
        }
    }
    end = true;
    changes.join();
    EXPECT_EQ(opened, 20u);
    mDispatcher->RemoveStateListener(&mStates);
}

} // namespace
