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
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>
#include <vector>

namespace tarn::test
{

/// A kernel with CAN, as far as a dispatcher sees it. Its sockets are pairs of local sockets, so
/// that epoll works; the test holds the far ends. Any call can be made to fail.
class FakeCanSystem : public iCanSystem
{
public:
    /// One thing to be received: a frame, or an error.
    struct Incoming {
        can_frame frame = {};
        std::size_t size = CAN_MTU;
        timespec stamp = {};         ///< no time stamp when 0
        timespec hardwareStamp = {}; ///< none when 0
        timespec plainStamp = {};    ///< by SO_TIMESTAMPNS; none when 0
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

    /// The call fails from now on.
    void FailAlways(const std::string& call, int error)
    {
        const std::lock_guard<std::mutex> lock(mMutex);
        mBroken[call] = error;
    }

    /// How often the call has failed.
    long long Failures(const std::string& call)
    {
        const std::lock_guard<std::mutex> lock(mMutex);
        return mFailureCounts[call];
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
        const std::lock_guard<std::mutex> lock(mMutex);
        mIncoming.push_back(incoming);
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

    /// What the kernel answers when it is asked for the link; empty for no answer.
    void SetLinkAnswer(const std::string& answer)
    {
        const std::lock_guard<std::mutex> lock(mMutex);
        mLinkAnswer = answer;
    }

    /// Descriptors that the dispatcher has open.
    int OpenDescriptors() const { return mOpen; }

    /// Milliseconds that the dispatcher has slept; each sleep counts as one.
    long long Sleeps() const { return mNow - 1000; }

    std::string ThreadName()
    {
        const std::lock_guard<std::mutex> lock(mMutex);
        return mThreadName;
    }

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
        ++mOpen;
        const std::lock_guard<std::mutex> lock(mMutex);
        if (mFarEnds.empty())
            mCanSocket = ends[0];
        if (mFarEnds.size() < 2)
            mFarEnds.push_back(ends[1]);
        else
            mQueries[ends[0]] = ends[1];
        return ends[0];
    }

    /// Closes even when it says that it failed, as Linux does.
    int Close(int fd) override
    {
        --mOpen;
        {
            const std::lock_guard<std::mutex> lock(mMutex);
            const auto query = mQueries.find(fd);
            if (query != mQueries.end()) {
                ::close(query->second);
                mQueries.erase(query);
            }
        }
        ::close(fd);
        return Fails("close") ? -1 : 0;
    }

    int Event() override
    {
        if (Fails("event"))
            return -1;
        ++mOpen;
        return ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    }

    int Signal(int event) override { return Fails("signal") ? -1 : ::eventfd_write(event, 1); }

    int TakeSignal(int event) override
    {
        eventfd_t count = 0;
        return ::eventfd_read(event, &count);
    }

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
        const std::lock_guard<std::mutex> lock(mMutex);
        char poke = 0;
        while (::recv(fd, &poke, 1, MSG_DONTWAIT) > 0) {
        }
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
        if (fd == mCanSocket)
            return ReceiveFrame(buffer, size);
        return Fails("recv") ? -1 : ::recv(fd, buffer, size, MSG_DONTWAIT);
    }

    ssize_t Send(int fd, const void* buffer, std::size_t size) override
    {
        if (Answers(fd))
            return static_cast<ssize_t>(size);
        if (Fails("send"))
            return -1;
        const std::lock_guard<std::mutex> lock(mMutex);
        can_frame frame = {};
        std::memcpy(&frame, buffer, std::min(size, sizeof frame));
        mSent.push_back(frame);
        return static_cast<ssize_t>(size);
    }

    int WaitSet() override
    {
        if (Fails("wait set"))
            return -1;
        ++mOpen;
        return ::epoll_create1(EPOLL_CLOEXEC);
    }

    int Watch(int waitSet, int fd) override
    {
        epoll_event event = {};
        event.events = EPOLLIN;
        event.data.fd = fd;
        return Fails("watch") ? -1 : ::epoll_ctl(waitSet, EPOLL_CTL_ADD, fd, &event);
    }

    int Wait(int waitSet, epoll_event* events, int count) override
    {
        return Fails("wait") ? -1 : ::epoll_wait(waitSet, events, count, -1);
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

    int SetThreadName(const std::string& name) override
    {
        if (Fails("name"))
            return errno;
        const std::lock_guard<std::mutex> lock(mMutex);
        mThreadName = name;
        return 0;
    }

    int SetRealTimePriority(int) override { return Fails("priority") ? errno : 0; }

    Clock::time_point Now() override { return Clock::time_point(std::chrono::milliseconds(mNow)); }

    /// Time passes by sleeping alone.
    void Sleep(std::chrono::microseconds) override { ++mNow; }

private:
    bool Fails(const std::string& call)
    {
        const std::lock_guard<std::mutex> lock(mMutex);
        auto& errors = mFailures[call];
        errno = mBroken[call];
        if (!errors.empty()) {
            errno = errors.front();
            errors.pop_front();
            mFailed.notify_all();
        }
        mFailureCounts[call] += errno != 0 ? 1 : 0;
        return errno != 0;
    }

    /// True for a socket that asks for the link.
    bool Answers(int fd)
    {
        const std::lock_guard<std::mutex> lock(mMutex);
        const auto query = mQueries.find(fd);
        if (query == mQueries.end())
            return false;
        if (!mLinkAnswer.empty())
            static_cast<void>(
                ::send(query->second, mLinkAnswer.data(), mLinkAnswer.size(), MSG_DONTWAIT));
        return true;
    }

    ssize_t ReceiveFrame(void* buffer, std::size_t size)
    {
        const std::lock_guard<std::mutex> lock(mMutex);
        if (mIncoming.empty()) {
            errno = EAGAIN;
            return -1;
        }
        const Incoming incoming = mIncoming.front();
        mIncoming.pop_front();
        std::memcpy(buffer, &incoming.frame, std::min(size, sizeof incoming.frame));
        return static_cast<ssize_t>(incoming.size);
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
        if (incoming.plainStamp.tv_sec != 0)
            Attach(message.msg_hdr, used, SO_TIMESTAMPNS, incoming.plainStamp);
        message.msg_hdr.msg_controllen = used;
    }

    std::mutex mMutex;
    std::condition_variable mFailed;
    std::map<std::string, std::deque<int>> mFailures;
    std::map<std::string, int> mBroken;
    std::map<std::string, long long> mFailureCounts;
    std::deque<Incoming> mIncoming;
    std::vector<can_frame> mSent;
    std::vector<Option> mOptions;
    int mCanSocket = -1;
    std::vector<int> mFarEnds;   ///< of the CAN socket, then of the netlink socket
    std::map<int, int> mQueries; ///< sockets that ask for the link, and their far ends
    std::string mLinkAnswer;
    std::string mThreadName;
    std::atomic<int> mOpen{0};
    std::atomic<unsigned int> mIndex{7};
    std::atomic<bool> mUp{true};
    std::atomic<int> mBindings{0};
    std::atomic<long long> mNow{1000};
};

} // namespace tarn::test

#endif
