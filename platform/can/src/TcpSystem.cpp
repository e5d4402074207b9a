#include "TcpSystem.h"

#include <cerrno>
#include <cstring>
#include <memory>
#include <netdb.h>
#include <pthread.h>
#include <sys/eventfd.h>
#include <sys/syscall.h>
#include <thread>
#include <unistd.h>

namespace tarn
{

namespace
{

class System : public iTcpSystem
{
public:
    std::string Resolve(const std::string& host, const std::string& port,
                        std::vector<TcpAddress>& addresses) override
    {
        addrinfo wanted = {};
        wanted.ai_socktype = SOCK_STREAM;
        wanted.ai_flags = AI_NUMERICSERV;
        addrinfo* found = nullptr;
        const int error = ::getaddrinfo(host.c_str(), port.c_str(), &wanted, &found);
        if (error != 0)
            return ::gai_strerror(error);
        const std::unique_ptr<addrinfo, decltype(&::freeaddrinfo)> owner(found, &::freeaddrinfo);
        for (const addrinfo* entry = found; entry != nullptr; entry = entry->ai_next) {
            TcpAddress address;
            std::memcpy(&address.address, entry->ai_addr, entry->ai_addrlen);
            address.size = entry->ai_addrlen;
            addresses.push_back(address);
        }
        return "";
    }

    int Socket(int family) override
    {
        return ::socket(family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    }

    int Close(int fd) override { return ::close(fd); }

    int SetOption(int fd, int level, int name, int value) override
    {
        return ::setsockopt(fd, level, name, &value, sizeof value);
    }

    int PendingError(int fd) override
    {
        int error = 0;
        socklen_t size = sizeof error;
        return ::getsockopt(fd, SOL_SOCKET, SO_ERROR, &error, &size) == 0 ? error : errno;
    }

    int Connect(int fd, const TcpAddress& address) override
    {
        return ::connect(fd, reinterpret_cast<const sockaddr*>(&address.address), address.size);
    }

    /// The kernel lets any thread end a connection that another one reads. ThreadSanitizer, which
    /// watches connect() of the C library, would take it for the making of a descriptor.
    int Abort(int fd) override
    {
        sockaddr nowhere = {};
        nowhere.sa_family = AF_UNSPEC;
        return static_cast<int>(::syscall(SYS_connect, fd, &nowhere, sizeof nowhere));
    }

    ssize_t Receive(int fd, void* buffer, std::size_t size) override
    {
        return ::recv(fd, buffer, size, MSG_DONTWAIT);
    }

    ssize_t Send(int fd, const void* buffer, std::size_t size) override
    {
        return ::send(fd, buffer, size, MSG_DONTWAIT | MSG_NOSIGNAL);
    }

    int Poll(pollfd* descriptors, std::size_t count, int timeout) override
    {
        return ::poll(descriptors, count, timeout);
    }

    int Event() override { return ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK); }

    int Signal(int event) override { return ::eventfd_write(event, 1); }

    int TakeSignal(int event) override
    {
        eventfd_t count = 0;
        return ::eventfd_read(event, &count);
    }

    int SetThreadName(const std::string& name) override
    {
        return ::pthread_setname_np(::pthread_self(), name.c_str());
    }

    Clock::time_point Now() override { return Clock::now(); }

    void Sleep(std::chrono::milliseconds time) override { std::this_thread::sleep_for(time); }
};

} // namespace

iTcpSystem& RealTcpSystem()
{
    static auto* const system = new System; // receive threads may outlive static objects
    return *system;
}

} // namespace tarn
