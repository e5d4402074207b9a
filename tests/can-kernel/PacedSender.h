#ifndef TARN_TESTS_CAN_KERNEL_PACED_SENDER_H
#define TARN_TESTS_CAN_KERNEL_PACED_SENDER_H

#include "BareCan.h"

#include <array>
#include <chrono>
#include <cstring>
#include <linux/can.h>
#include <pthread.h>
#include <string>
#include <sys/socket.h>
#include <thread>

namespace tarn::test
{

/// Sends numbered 29-bit frames of 8 bytes, which are the steady clock in nanoseconds, at a steady
/// rate, a burst each tick. Runs ahead of
/// everything else on the machine, as the interrupts of a controller do: a real bus does not
/// wait for its readers.
class PacedSender
{
public:
    using Clock = std::chrono::steady_clock;

    /// @param identifiers how many there are; frames have them in turn
    PacedSender(const std::string& interface, unsigned int framesPerSecond, unsigned int count,
                unsigned int identifiers = 1u << 29,
                std::chrono::microseconds tick = std::chrono::milliseconds(1))
        : mSocket(interface),
          mRate(framesPerSecond),
          mCount(count),
          mIdentifiers(identifiers),
          mTick(tick),
          mThread([this] { Run(); })
    {
    }
    ~PacedSender() { End(); }

    void End()
    {
        if (mThread.joinable())
            mThread.join();
    }

    /// After End(): the frames a second that were reached.
    double Rate() const { return mCount / std::chrono::duration<double>(mTook).count(); }

private:
    static constexpr unsigned int MOST_AT_ONCE = 128;

    void Run()
    {
        sched_param parameter = {};
        parameter.sched_priority = 90;
        EXPECT_EQ(::pthread_setschedparam(::pthread_self(), SCHED_FIFO, &parameter), 0);
        mSocket.Deafen();
        const auto begin = Clock::now();
        unsigned int sent = 0;
        for (unsigned int tick = 1; sent < mCount; ++tick) {
            const auto due = mRate * (tick * mTick).count() / 1'000'000;
            const auto until = static_cast<unsigned int>(std::min<long long>(due, mCount));
            while (sent < until)
                sent += Burst(sent, std::min(until - sent, MOST_AT_ONCE));
            mTook = Clock::now() - begin;
            std::this_thread::sleep_until(begin + tick * mTick);
        }
    }

    unsigned int Burst(unsigned int first, unsigned int count)
    {
        std::array<can_frame, MOST_AT_ONCE> frames = {};
        std::array<iovec, MOST_AT_ONCE> parts = {};
        std::array<mmsghdr, MOST_AT_ONCE> messages = {};
        const long long now = Clock::now().time_since_epoch() / std::chrono::nanoseconds(1);
        for (unsigned int i = 0; i < count; ++i) {
            frames[i].can_id = CAN_EFF_FLAG | (first + i) % mIdentifiers;
            frames[i].can_dlc = 8;
            std::memcpy(frames[i].data, &now, sizeof now);
            parts[i] = {&frames[i], sizeof frames[i]};
            messages[i].msg_hdr.msg_iov = &parts[i];
            messages[i].msg_hdr.msg_iovlen = 1;
        }
        const int sent = ::sendmmsg(mSocket.Descriptor(), messages.data(), count, 0);
        return sent > 0 ? static_cast<unsigned int>(sent) : 0;
    }

    const BareSocket mSocket;
    const unsigned int mRate;
    const unsigned int mCount;
    const unsigned int mIdentifiers;
    const std::chrono::microseconds mTick;
    Clock::duration mTook{1};
    std::thread mThread;
};

} // namespace tarn::test

#endif
