#include "support/CallFaults.h"

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <net/if.h>
#include <netdb.h>
#include <new>
#include <poll.h>
#include <pthread.h>
#include <stdexcept>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/types.h>
#include <time.h>

namespace
{

enum tKind : unsigned int {
    NEW,
    MUTEX_LOCK,
    COND_WAIT,
    THREAD_CREATE,
    SET_NAME,
    SOCKET,
    BIND,
    CONNECT,
    SETSOCKOPT,
    GETSOCKOPT,
    SEND,
    RECV,
    RECVMMSG,
    POLL,
    EVENTFD,
    EVENTFD_READ,
    EVENTFD_WRITE,
    EPOLL_CREATE,
    EPOLL_CTL,
    EPOLL_WAIT,
    IOCTL,
    OPEN,
    READ,
    FOPEN,
    FWRITE,
    FFLUSH,
    FCLOSE,
    GETADDRINFO,
    IF_NAMETOINDEX,
    KINDS
};

// In the order of the kinds.
const char* const NAMES[] = {"operator new",
                             "pthread_mutex_lock",
                             "pthread_cond_wait",
                             "pthread_create",
                             "pthread_setname_np",
                             "socket",
                             "bind",
                             "connect",
                             "setsockopt",
                             "getsockopt",
                             "send",
                             "recv",
                             "recvmmsg",
                             "poll",
                             "eventfd",
                             "eventfd_read",
                             "eventfd_write",
                             "epoll_create1",
                             "epoll_ctl",
                             "epoll_wait",
                             "ioctl",
                             "open",
                             "read",
                             "fopen",
                             "fwrite",
                             "fflush",
                             "fclose",
                             "getaddrinfo",
                             "if_nametoindex"};
static_assert(sizeof NAMES / sizeof *NAMES == KINDS);

std::atomic<unsigned int> gKind{KINDS};
std::atomic<unsigned int> gLeft{0};
std::atomic<unsigned int> gSeen{0}; ///< a bit a kind
static_assert(KINDS <= 32);
std::atomic<bool> gHit{false};
std::atomic<long> gLive{0};
thread_local bool tSpared = false;

bool Fails(tKind kind)
{
    const unsigned int failing = gKind.load(std::memory_order_relaxed);
    if (failing == KINDS || tSpared)
        return false;
    gSeen.fetch_or(1u << kind, std::memory_order_relaxed);
    if (failing != kind)
        return false;
    if (gLeft.fetch_sub(1) != 1)
        return false;
    gHit = true;
    return true;
}

/// As -1 and errno.
bool Fails(tKind kind, int error)
{
    if (!Fails(kind))
        return false;
    errno = error;
    return true;
}

void* RealByName(const char* name)
{
    return dlsym(RTLD_NEXT, name);
}

struct Started {
    void* (*function)(void*);
    void* argument;
};

void* RunSpared(void* started)
{
    const Started copy = *static_cast<Started*>(started);
    std::free(started);
    tSpared = true;
    return copy.function(copy.argument);
}

void* Allocate(std::size_t size)
{
    if (Fails(NEW))
        throw std::bad_alloc();
    void* const block = std::malloc(size != 0 ? size : 1);
    if (block == nullptr)
        throw std::bad_alloc();
    ++gLive;
    return block;
}

void Free(void* block)
{
    if (block != nullptr)
        --gLive;
    std::free(block);
}

} // namespace

void* operator new(std::size_t size)
{
    return Allocate(size);
}
void* operator new[](std::size_t size)
{
    return Allocate(size);
}
void operator delete(void* block) noexcept
{
    Free(block);
}
void operator delete[](void* block) noexcept
{
    Free(block);
}
void operator delete(void* block, std::size_t) noexcept
{
    Free(block);
}
void operator delete[](void* block, std::size_t) noexcept
{
    Free(block);
}

// REAL(name): the function that stands behind the one of this name here.
#define REAL(name) reinterpret_cast<decltype(&::name)>(real)

// A call that gives -1 and errno.
#define FAILING(kind, error, name, ...)                                                            \
    static void* const real = RealByName(#name);                                                   \
    return Fails(kind, error) ? -1 : REAL(name)(__VA_ARGS__)

extern "C" {

int pthread_mutex_lock(pthread_mutex_t* mutex) noexcept
{
    static void* const real = RealByName("pthread_mutex_lock");
    return Fails(MUTEX_LOCK) ? EAGAIN : REAL(pthread_mutex_lock)(mutex);
}

int pthread_cond_wait(pthread_cond_t* condition, pthread_mutex_t* mutex)
{
    static void* const real = RealByName("pthread_cond_wait");
    return Fails(COND_WAIT) ? EINVAL : REAL(pthread_cond_wait)(condition, mutex);
}

int pthread_cond_timedwait(pthread_cond_t* condition, pthread_mutex_t* mutex, const timespec* until)
{
    static void* const real = RealByName("pthread_cond_timedwait");
    return Fails(COND_WAIT) ? EINVAL : REAL(pthread_cond_timedwait)(condition, mutex, until);
}

int pthread_cond_clockwait(pthread_cond_t* condition, pthread_mutex_t* mutex, clockid_t clock,
                           const timespec* until)
{
    static void* const real = RealByName("pthread_cond_clockwait");
    return Fails(COND_WAIT) ? EINVAL : REAL(pthread_cond_clockwait)(condition, mutex, clock, until);
}

int pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*function)(void*),
                   void* argument) noexcept
{
    static void* const real = RealByName("pthread_create");
    if (Fails(THREAD_CREATE))
        return EAGAIN;
    if (!tSpared)
        return REAL(pthread_create)(thread, attributes, function, argument);
    auto* const started = static_cast<Started*>(std::malloc(sizeof(Started)));
    *started = {function, argument};
    return REAL(pthread_create)(thread, attributes, RunSpared, started);
}

int pthread_setname_np(pthread_t thread, const char* name) noexcept
{
    static void* const real = RealByName("pthread_setname_np");
    return Fails(SET_NAME) ? ERANGE : REAL(pthread_setname_np)(thread, name);
}

int socket(int family, int type, int protocol) noexcept
{
    FAILING(SOCKET, EMFILE, socket, family, type, protocol);
}

int bind(int fd, const sockaddr* address, socklen_t size) noexcept
{
    FAILING(BIND, ENODEV, bind, fd, address, size);
}

int connect(int fd, const sockaddr* address, socklen_t size)
{
    FAILING(CONNECT, ECONNREFUSED, connect, fd, address, size);
}

int setsockopt(int fd, int level, int name, const void* value, socklen_t size) noexcept
{
    FAILING(SETSOCKOPT, EPERM, setsockopt, fd, level, name, value, size);
}

int getsockopt(int fd, int level, int name, void* value, socklen_t* size) noexcept
{
    FAILING(GETSOCKOPT, ENOBUFS, getsockopt, fd, level, name, value, size);
}

ssize_t send(int fd, const void* buffer, size_t size, int flags)
{
    FAILING(SEND, EIO, send, fd, buffer, size, flags);
}

ssize_t recv(int fd, void* buffer, size_t size, int flags)
{
    FAILING(RECV, EIO, recv, fd, buffer, size, flags);
}

int recvmmsg(int fd, mmsghdr* messages, unsigned int count, int flags, timespec* timeout)
{
    FAILING(RECVMMSG, EIO, recvmmsg, fd, messages, count, flags, timeout);
}

int poll(pollfd* descriptors, nfds_t count, int timeout)
{
    FAILING(POLL, ENOMEM, poll, descriptors, count, timeout);
}

int eventfd(unsigned int count, int flags) noexcept
{
    FAILING(EVENTFD, EMFILE, eventfd, count, flags);
}

int eventfd_read(int fd, eventfd_t* value)
{
    FAILING(EVENTFD_READ, EIO, eventfd_read, fd, value);
}

int eventfd_write(int fd, eventfd_t value)
{
    FAILING(EVENTFD_WRITE, EIO, eventfd_write, fd, value);
}

int epoll_create1(int flags) noexcept
{
    FAILING(EPOLL_CREATE, EMFILE, epoll_create1, flags);
}

int epoll_ctl(int set, int operation, int fd, epoll_event* event) noexcept
{
    FAILING(EPOLL_CTL, ENOMEM, epoll_ctl, set, operation, fd, event);
}

int epoll_wait(int set, epoll_event* events, int count, int timeout)
{
    FAILING(EPOLL_WAIT, ENOMEM, epoll_wait, set, events, count, timeout);
}

int ioctl(int fd, unsigned long request, ...) noexcept
{
    static void* const real = RealByName("ioctl");
    va_list arguments;
    va_start(arguments, request);
    void* const argument = va_arg(arguments, void*);
    va_end(arguments);
    return Fails(IOCTL, ENODEV) ? -1 : REAL(ioctl)(fd, request, argument);
}

int open64(const char* path, int flags, ...)
{
    static void* const real = RealByName("open64");
    va_list arguments;
    va_start(arguments, flags);
    const int mode = va_arg(arguments, int);
    va_end(arguments);
    return Fails(OPEN, EMFILE) ? -1 : REAL(open64)(path, flags, mode);
}

ssize_t read(int fd, void* buffer, size_t size)
{
    FAILING(READ, EIO, read, fd, buffer, size);
}

FILE* fopen64(const char* path, const char* mode)
{
    static void* const real = RealByName("fopen64");
    return Fails(FOPEN, EMFILE) ? nullptr : REAL(fopen64)(path, mode);
}

size_t fwrite(const void* data, size_t size, size_t count, FILE* file)
{
    static void* const real = RealByName("fwrite");
    if (!Fails(FWRITE, ENOSPC))
        return REAL(fwrite)(data, size, count, file);
    file->_flags |= 0x20; // as glibc remembers an error for ferror()
    return 0;
}

int fflush(FILE* file)
{
    static void* const real = RealByName("fflush");
    return Fails(FFLUSH, ENOSPC) ? EOF : REAL(fflush)(file);
}

int fclose(FILE* file)
{
    static void* const real = RealByName("fclose");
    const int result = REAL(fclose)(file); // closed all the same
    return Fails(FCLOSE, ENOSPC) ? EOF : result;
}

int getaddrinfo(const char* host, const char* port, const addrinfo* hints, addrinfo** result)
{
    static void* const real = RealByName("getaddrinfo");
    return Fails(GETADDRINFO) ? EAI_AGAIN : REAL(getaddrinfo)(host, port, hints, result);
}

unsigned int if_nametoindex(const char* name) noexcept
{
    static void* const real = RealByName("if_nametoindex");
    return Fails(IF_NAMETOINDEX, ENODEV) ? 0 : REAL(if_nametoindex)(name);
}

} // extern "C"

namespace support
{

CallFault::CallFault(const char* function, unsigned int nth)
{
    unsigned int kind = 0;
    while (kind < KINDS && std::strcmp(NAMES[kind], function) != 0)
        ++kind;
    if (kind == KINDS)
        throw std::invalid_argument(function);
    gHit = false;
    gSeen = 0;
    gLeft = nth;
    gKind = kind;
}

CallFault::~CallFault()
{
    gKind = KINDS;
}

bool CallFault::WasHit()
{
    return gHit;
}

std::vector<std::string> CallFault::KindsSeen()
{
    std::vector<std::string> seen;
    for (unsigned int kind = 0; kind < KINDS; ++kind) {
        if ((gSeen >> kind & 1) != 0)
            seen.emplace_back(NAMES[kind]);
    }
    return seen;
}

SparedThreads::SparedThreads()
{
    tSpared = true;
}

SparedThreads::~SparedThreads()
{
    tSpared = false;
}

long LiveBlocks()
{
    return gLive;
}

} // namespace support
