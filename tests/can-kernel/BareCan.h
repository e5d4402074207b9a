#ifndef TARN_TESTS_CAN_KERNEL_BARE_CAN_H
#define TARN_TESTS_CAN_KERNEL_BARE_CAN_H

#include "support/Await.h"

#include <plexa_can/SocketCanDispatcher.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <fstream>
#include <linux/can.h>
#include <linux/can/raw.h>
#include <mutex>
#include <net/if.h>
#include <poll.h>
#include <string>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace tarn::test
{

inline void Shell(const std::string& command)
{
    ASSERT_EQ(std::system(command.c_str()), 0) << command;
}

/// The bare kernel interface, for what a dispatcher does not do.
class BareSocket
{
public:
    /// @param interface empty for all interfaces, those to come too
    explicit BareSocket(const std::string& interface)
        : mDescriptor(::socket(PF_CAN, SOCK_RAW | SOCK_CLOEXEC, CAN_RAW))
    {
        sockaddr_can address = {};
        address.can_family = AF_CAN;
        if (!interface.empty())
            address.can_ifindex = static_cast<int>(::if_nametoindex(interface.c_str()));
        EXPECT_EQ(::bind(mDescriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address),
                  0);
    }
    ~BareSocket() { ::close(mDescriptor); }
    BareSocket(const BareSocket&) = delete;
    BareSocket& operator=(const BareSocket&) = delete;

    int Descriptor() const { return mDescriptor; }

    template <typename Value>
    void SetOption(int level, int name, const Value& value) const
    {
        EXPECT_EQ(::setsockopt(mDescriptor, level, name, &value, sizeof value), 0);
    }

    /// For a socket that only sends: nothing gathers in its receive buffer.
    void Deafen() const
    {
        EXPECT_EQ(::setsockopt(mDescriptor, SOL_CAN_RAW, CAN_RAW_FILTER, nullptr, 0), 0);
    }

    void Send(unsigned int word, const std::vector<unsigned char>& data = {}) const
    {
        can_frame frame = {};
        frame.can_id = word;
        frame.can_dlc = static_cast<unsigned char>(data.size());
        std::copy(data.begin(), data.end(), frame.data);
        Write(frame);
    }

    template <typename Frame>
    void Write(const Frame& frame) const
    {
        while (::write(mDescriptor, &frame, sizeof frame) != ssize_t{sizeof frame})
            std::this_thread::yield();
    }

    /// False when none came within the time.
    bool Receive(can_frame& frame, std::chrono::milliseconds patience = PATIENCE) const
    {
        pollfd readable = {mDescriptor, POLLIN, 0};
        return ::poll(&readable, 1, static_cast<int>(patience.count())) == 1 &&
               ::read(mDescriptor, &frame, sizeof frame) == ssize_t{sizeof frame};
    }

private:
    const int mDescriptor;
};

/// Waits until another program listens to all frames of the interface.
inline bool AwaitListener(const std::string& interface)
{
    const auto end = std::chrono::steady_clock::now() + PATIENCE;
    while (std::chrono::steady_clock::now() < end) {
        std::ifstream list("/proc/net/can/rcvlist_all");
        std::string word;
        while (list >> word) {
            // Headings have the name in quotes.
            if (word == interface)
                return true;
        }
        std::this_thread::yield();
    }
    return false;
}

class StateRecorder : public iCanBusStateListener
{
public:
    ~StateRecorder() noexcept override {}

    void OnBusState(tCanBusState state) override
    {
        const std::lock_guard<std::mutex> lock(mMutex);
        mStates.push_back(state);
        mChanged.notify_all();
    }

    bool AwaitLast(tCanBusState state)
    {
        std::unique_lock<std::mutex> lock(mMutex);
        return mChanged.wait_for(lock, PATIENCE,
                                 [&] { return !mStates.empty() && mStates.back() == state; });
    }

private:
    std::mutex mMutex;
    std::condition_variable mChanged;
    std::vector<tCanBusState> mStates;
};

} // namespace tarn::test

#endif
