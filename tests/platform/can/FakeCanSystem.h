#ifndef TARN_TESTS_PLATFORM_CAN_FAKE_CAN_SYSTEM_H
#define TARN_TESTS_PLATFORM_CAN_FAKE_CAN_SYSTEM_H

#include "CanSystem.h"
#include "support/Await.h"

#include <array>
#include <atomic>
#include <cerrno>
#include <condition_variable>
#include <cstring>
#include <deque>
#include <functional>
#include <linux/can.h>
#include <linux/errqueue.h>
#include <map>
#include <mutex>
#include <net/if.h>
#include <netinet/in.h>
#include <string>
#include <sys/socket.h>
#include <unistd.h>
#include <vector>

namespace tarn::test
{

/// A kernel with CAN, as far as a dispatcher sees it. Its sockets are pairs of local sockets, so
/// that poll() works; the test holds the far ends. Any call can be made to fail.
class FakeCanSystem : public iCanSystem
{
public:
    /// One thing to be received: a frame, or an error.
    struct Incoming {
        can_frame frame = {};
        std::size_t size = CAN_MTU;
        timespec stamp = {};         ///< no time stamp when 0
        timespec hardwareStamp = {}; ///< none when 0
        unsigned int drops = 0;      ///< no count when 0
        int error = 0;
    };

    ~FakeCanSystem() override
    {
        for (const int fd : mFarEnds)
            ::close(fd);
    }

    // What the test does.

    void FailNext(const std::string& call, std::deque<int> errors)
    {
        const std::lock_guard<std::mutex> lock(mMutex);
        mFailures[call] = std::move(errors);
    }

    /// True once every failure that was ordered for the call has happened.
    bool AwaitNoFailures(const std::string& call)
    {
        std::unique_lock<std::mutex> lock(mMutex);
        return mFailed.wait_for(lock, PATIENCE, [&] { return mFailures[call].empty(); });
    }

    void SetLink(unsigned int index, bool up)
    {
        mIndex = index;
        mUp = up;
        Poke(1);
    }

    void Receive(const Incoming& incoming)
    {
        {
            const std::lock_guard<std::mutex> lock(mMutex);
            mIncoming.push_back(incoming);
        }
        Poke(0);
    }

    std::vector<can_frame> Sent()
    {
        const std::lock_guard<std::mutex> lock(mMutex);
        return mSent;
    }

    struct Option {
        int level;
        int name;
        std::string value;
    };

    /// The last value of an option, "unset" where it was never set.
    std::string OptionValue(int level, int name)
    {
        const std::lock_guard<std::mutex> lock(mMutex);
        for (auto option = mOptions.rbegin(); option != mOptions.rend(); ++option) {
            if (option->level == level && option->name == name)
                return option->value;
        }
        return "unset";
    }

    int Bindings() const { return mBindings; }

    /// As the kernel does when the interface goes.
    void ForgetOptions()
    {
        const std::lock_guard<std::mutex> lock(mMutex);
        mOptions.clear();
    }

    std::vector<std::string> mInterfaces = {"can0", "vcan0"};
    std::atomic<unsigned int> mMemoryInfoDrops{0};
    bool mTellsDrops = false;

    // What the dispatcher does.

    int Socket(int, int, int) override
    {
        if (Fails("socket"))
            return -1;
        int ends[2] = {};
        if (::socketpair(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0, ends) != 0)
            return -1;
        mFarEnds.push_back(ends[1]);
        return ends[0];
    }

    int Close(int fd) override { return ::close(fd); }

    int Bind(int, const sockaddr*, socklen_t) override
    {
        ++mBindings;
        return Fails("bind") ? -1 : 0;
    }

    int SetOption(int, int level, int name, const void* value, socklen_t size) override
    {
        if (Fails("option " + std::to_string(name)))
            return -1;
        const std::lock_guard<std::mutex> lock(mMutex);
        mOptions.push_back({level, name, std::string(static_cast<const char*>(value), size)});
        return 0;
    }

    int GetOption(int, int, int, void* value, socklen_t* size) override
    {
        if (!mTellsDrops) {
            errno = ENOPROTOOPT;
            return -1;
        }
        std::array<unsigned int, 9> figures = {};
        figures[8] = mMemoryInfoDrops;
        *size = sizeof figures;
        std::memcpy(value, figures.data(), sizeof figures);
        return 0;
    }

    int ReceiveBatch(int fd, mmsghdr* messages, unsigned int count) override
    {
        char poke = 0;
        while (::recv(fd, &poke, 1, MSG_DONTWAIT) > 0) {
        }
        const std::lock_guard<std::mutex> lock(mMutex);
        unsigned int taken = 0;
        while (taken < count && !mIncoming.empty()) {
            const Incoming incoming = mIncoming.front();
            if (incoming.error != 0 && taken > 0)
                break;
            mIncoming.pop_front();
            if (incoming.error != 0) {
                errno = incoming.error;
                return Again(-1);
            }
            Fill(messages[taken++], incoming);
        }
        if (taken == 0)
            errno = EAGAIN;
        return Again(taken == 0 ? -1 : static_cast<int>(taken));
    }

    ssize_t Receive(int fd, void* buffer, std::size_t size) override
    {
        return Fails("recv") ? -1 : ::recv(fd, buffer, size, MSG_DONTWAIT);
    }

    ssize_t Send(int, const void* buffer, std::size_t size) override
    {
        if (Fails("send"))
            return -1;
        const std::lock_guard<std::mutex> lock(mMutex);
        can_frame frame = {};
        std::memcpy(&frame, buffer, std::min(size, sizeof frame));
        mSent.push_back(frame);
        return static_cast<ssize_t>(size);
    }

    int Poll(pollfd* fds, nfds_t count, int timeout) override
    {
        return Fails("poll") ? -1 : ::poll(fds, count, timeout);
    }

    unsigned int InterfaceIndex(const std::string& name) override
    {
        for (const std::string& known : mInterfaces) {
            if (known == name)
                return mIndex;
        }
        return 0;
    }

    int InterfaceFlags(int, const std::string&, unsigned int& flags) override
    {
        flags = mUp ? static_cast<unsigned int>(IFF_UP) : 0u;
        return Fails("flags") ? -1 : 0;
    }

    std::vector<std::string> CanInterfaces() override { return mInterfaces; }

    int SetRealTimePriority(int) override { return Fails("priority") ? errno : 0; }

    Clock::time_point Now() override { return Clock::time_point(std::chrono::milliseconds(mNow)); }

    /// Time passes by sleeping alone.
    void Sleep(std::chrono::microseconds) override { ++mNow; }

private:
    bool Fails(const std::string& call)
    {
        const std::lock_guard<std::mutex> lock(mMutex);
        auto& errors = mFailures[call];
        if (errors.empty())
            return false;
        errno = errors.front();
        errors.pop_front();
        mFailed.notify_all();
        return errno != 0;
    }

    void Poke(std::size_t socket)
    {
        const ssize_t sent = ::send(mFarEnds.at(socket), "x", 1, MSG_DONTWAIT);
        static_cast<void>(sent);
    }

    /// What is left must make the descriptor readable again.
    int Again(int result)
    {
        const int error = errno;
        if (!mIncoming.empty())
            Poke(0);
        errno = error;
        return result;
    }

    template <typename Value>
    static void Attach(msghdr& header, std::size_t& used, int type, const Value& value)
    {
        auto* const part =
            reinterpret_cast<cmsghdr*>(static_cast<char*>(header.msg_control) + used);
        part->cmsg_level = SOL_SOCKET;
        part->cmsg_type = type;
        part->cmsg_len = CMSG_LEN(sizeof value);
        std::memcpy(CMSG_DATA(part), &value, sizeof value);
        used += CMSG_SPACE(sizeof value);
    }

    static void Fill(mmsghdr& message, const Incoming& incoming)
    {
        std::memcpy(message.msg_hdr.msg_iov->iov_base, &incoming.frame, sizeof incoming.frame);
        message.msg_len = static_cast<unsigned int>(incoming.size);
        std::size_t used = 0;
        std::memset(message.msg_hdr.msg_control, 0, message.msg_hdr.msg_controllen);
        if (incoming.drops != 0)
            Attach(message.msg_hdr, used, SO_RXQ_OVFL, incoming.drops);
        if (incoming.stamp.tv_sec != 0) {
            scm_timestamping stamps = {};
            stamps.ts[0] = incoming.stamp;
            stamps.ts[2] = incoming.hardwareStamp;
            Attach(message.msg_hdr, used, SO_TIMESTAMPING, stamps);
        }
        message.msg_hdr.msg_controllen = used;
    }

    std::mutex mMutex;
    std::condition_variable mFailed;
    std::map<std::string, std::deque<int>> mFailures;
    std::deque<Incoming> mIncoming;
    std::vector<can_frame> mSent;
    std::vector<Option> mOptions;
    std::vector<int> mFarEnds; ///< of the CAN socket, then of the netlink socket
    std::atomic<unsigned int> mIndex{7};
    std::atomic<bool> mUp{true};
    std::atomic<int> mBindings{0};
    std::atomic<long long> mNow{1000};
};

} // namespace tarn::test

#endif
