#ifndef PLEXA_CAN_SRC_CAN_SYSTEM_H
#define PLEXA_CAN_SRC_CAN_SYSTEM_H

#include <chrono>
#include <string>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <vector>

namespace tarn
{

/// The system calls that SocketCAN takes, so that tests can let each of them fail. Unless it says
/// otherwise, an operation is the call of its name: -1 and errno tell of a failure.
class iCanSystem
{
public:
    using Clock = std::chrono::steady_clock;

    virtual ~iCanSystem() = default;

    virtual int Socket(int family, int type, int protocol) = 0;
    virtual int Close(int fd) = 0;
    virtual int Bind(int fd, const sockaddr* address, socklen_t size) = 0;
    virtual int SetOption(int fd, int level, int name, const void* value, socklen_t size) = 0;
    virtual int GetOption(int fd, int level, int name, void* value, socklen_t* size) = 0;

    /// recvmmsg() without blocking.
    virtual int ReceiveBatch(int fd, mmsghdr* messages, unsigned int count) = 0;
    /// recv() and send() without blocking.
    virtual ssize_t Receive(int fd, void* buffer, std::size_t size) = 0;
    virtual ssize_t Send(int fd, const void* buffer, std::size_t size) = 0;
    /// eventfd() without blocking: what Signal() makes readable, until TakeSignal().
    virtual int Event() = 0;
    virtual int Signal(int event) = 0;
    virtual int TakeSignal(int event) = 0;
    /// epoll_create1(): a set of descriptors to wait for.
    virtual int WaitSet() = 0;
    /// EPOLL_CTL_ADD: waits for a descriptor to be readable; the event carries it in data.fd.
    virtual int Watch(int waitSet, int fd) = 0;
    /// epoll_wait() without a time limit.
    virtual int Wait(int waitSet, epoll_event* events, int count) = 0;

    /// 0: there is no interface of this name.
    virtual unsigned int InterfaceIndex(const std::string& name) = 0;
    /// The IFF_ flags.
    virtual int InterfaceFlags(int fd, const std::string& name, unsigned int& flags) = 0;
    /// The names of all CAN interfaces.
    virtual std::vector<std::string> CanInterfaces() = 0;

    /// Of the calling thread; returns the error number, 0 for success.
    virtual int SetThreadName(const std::string& name) = 0;
    /// SCHED_FIFO for the calling thread; returns the error number, 0 for success.
    virtual int SetRealTimePriority(int priority) = 0;

    virtual Clock::time_point Now() = 0;
    virtual void Sleep(std::chrono::microseconds time) = 0;
};

/// What the system says of an error number.
std::string ErrorText(int error);

/// The system itself.
iCanSystem& RealCanSystem();

} // namespace tarn

#endif
