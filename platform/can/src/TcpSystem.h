#ifndef PLEXA_CAN_SRC_TCP_SYSTEM_H
#define PLEXA_CAN_SRC_TCP_SYSTEM_H

#include <chrono>
#include <cstddef>
#include <poll.h>
#include <string>
#include <sys/socket.h>
#include <sys/types.h>
#include <vector>

namespace tarn
{

struct TcpAddress {
    sockaddr_storage address = {};
    socklen_t size = 0;
};

/// The system calls that a connection over TCP takes, so that tests can let each of them fail.
/// Unless it says otherwise, an operation is the call of its name: -1 and errno tell of a failure.
class iTcpSystem
{
public:
    using Clock = std::chrono::steady_clock;

    virtual ~iTcpSystem() = default;

    /// getaddrinfo(); returns the reason of a failure, empty for success.
    virtual std::string Resolve(const std::string& host, const std::string& port,
                                std::vector<TcpAddress>& addresses) = 0;
    /// socket() for TCP, without blocking.
    virtual int Socket(int family) = 0;
    virtual int Close(int fd) = 0;
    virtual int SetOption(int fd, int level, int name, int value) = 0;
    /// SO_ERROR; an error number.
    virtual int PendingError(int fd) = 0;
    virtual int Connect(int fd, const TcpAddress& address) = 0;
    /// Breaks a connection at once; what waits to be sent is thrown away.
    virtual int Abort(int fd) = 0;
    virtual ssize_t Receive(int fd, void* buffer, std::size_t size) = 0;
    virtual ssize_t Send(int fd, const void* buffer, std::size_t size) = 0;
    /// poll() with a time in milliseconds; -1: without end.
    virtual int Poll(pollfd* descriptors, std::size_t count, int timeout) = 0;
    /// eventfd() without blocking: what Signal() makes readable.
    virtual int Event() = 0;
    virtual int Signal(int event) = 0;
    virtual int TakeSignal(int event) = 0;
    /// Of the calling thread; returns the error number, 0 for success.
    virtual int SetThreadName(const std::string& name) = 0;
    virtual Clock::time_point Now() = 0;
    virtual void Sleep(std::chrono::milliseconds time) = 0;
};

/// The system itself.
iTcpSystem& RealTcpSystem();

} // namespace tarn

#endif
