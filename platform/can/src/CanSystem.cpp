#include "CanSystem.h"

#include <algorithm>
#include <dirent.h>
#include <fstream>
#include <memory>
#include <net/if.h>
#include <net/if_arp.h>
#include <pthread.h>
#include <sys/eventfd.h>
#include <sys/ioctl.h>
#include <system_error>
#include <thread>
#include <unistd.h>

#ifndef ARPHRD_CAN
#define ARPHRD_CAN 280
#endif

namespace tarn
{

namespace
{

bool IsCanInterface(const std::string& name)
{
    std::ifstream file("/sys/class/net/" + name + "/type");
    int type = 0;
    return (file >> type) && type == ARPHRD_CAN;
}

class System : public iCanSystem
{
public:
    int Socket(int family, int type, int protocol) override
    {
        return ::socket(family, type, protocol);
    }

    int Close(int fd) override { return ::close(fd); }

    int Bind(int fd, const sockaddr* address, socklen_t size) override
    {
        return ::bind(fd, address, size);
    }

    int SetOption(int fd, int level, int name, const void* value, socklen_t size) override
    {
        return ::setsockopt(fd, level, name, value, size);
    }

    int GetOption(int fd, int level, int name, void* value, socklen_t* size) override
    {
        return ::getsockopt(fd, level, name, value, size);
    }

    int ReceiveBatch(int fd, mmsghdr* messages, unsigned int count) override
    {
        return ::recvmmsg(fd, messages, count, MSG_DONTWAIT, nullptr);
    }

    ssize_t Receive(int fd, void* buffer, std::size_t size) override
    {
        return ::recv(fd, buffer, size, MSG_DONTWAIT);
    }

    ssize_t Send(int fd, const void* buffer, std::size_t size) override
    {
        return ::send(fd, buffer, size, MSG_DONTWAIT | MSG_NOSIGNAL);
    }

    int Event() override { return ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK); }

    int Signal(int event) override { return ::eventfd_write(event, 1); }

    int TakeSignal(int event) override
    {
        eventfd_t count = 0;
        return ::eventfd_read(event, &count);
    }

    int WaitSet() override { return ::epoll_create1(EPOLL_CLOEXEC); }

    int Watch(int waitSet, int fd) override
    {
        epoll_event event = {};
        event.events = EPOLLIN;
        event.data.fd = fd;
        return ::epoll_ctl(waitSet, EPOLL_CTL_ADD, fd, &event);
    }

    int Wait(int waitSet, epoll_event* events, int count) override
    {
        return ::epoll_wait(waitSet, events, count, -1);
    }

    unsigned int InterfaceIndex(const std::string& name) override
    {
        return ::if_nametoindex(name.c_str());
    }

    int InterfaceFlags(int fd, const std::string& name, unsigned int& flags) override
    {
        ifreq request = {};
        name.copy(request.ifr_name, IFNAMSIZ - 1);
        const int result = ::ioctl(fd, SIOCGIFFLAGS, &request);
        flags = static_cast<unsigned short>(request.ifr_flags);
        return result;
    }

    std::vector<std::string> CanInterfaces() override
    {
        std::vector<std::string> names;
        const std::unique_ptr<DIR, int (*)(DIR*)> folder(::opendir("/sys/class/net"), &::closedir);
        if (!folder)
            return names;
        // NOLINTNEXTLINE(concurrency-mt-unsafe): the stream is this function's own
        while (const dirent* const entry = ::readdir(folder.get())) {
            if (IsCanInterface(entry->d_name))
                names.emplace_back(entry->d_name);
        }
        std::sort(names.begin(), names.end());
        return names;
    }

    int SetThreadName(const std::string& name) override
    {
        return ::pthread_setname_np(::pthread_self(), name.c_str());
    }

    int SetRealTimePriority(int priority) override
    {
        sched_param parameter = {};
        parameter.sched_priority = priority;
        return ::pthread_setschedparam(::pthread_self(), SCHED_FIFO, &parameter);
    }

    Clock::time_point Now() override { return Clock::now(); }

    void Sleep(std::chrono::microseconds time) override { std::this_thread::sleep_for(time); }
};

} // namespace

std::string ErrorText(int error)
{
    return std::system_category().message(error);
}

iCanSystem& RealCanSystem()
{
    static auto* const system = new System; // receive threads may outlive static objects
    return *system;
}

} // namespace tarn
