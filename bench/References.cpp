#include "Clocks.h"
#include "Path.h"

#include <Poco/Mutex.h>

#include <array>
#include <cstdlib>
#include <new>
#include <sys/socket.h>
#include <unistd.h>

// What other things cost here: the measure for our own paths.

namespace
{

struct LockAndUnlock {
    Poco::Mutex mutex;

    void operator()()
    {
        mutex.lock();
        mutex.unlock();
    }
};

struct AllocateAndFree {
    void operator()() const
    {
        void* memory = ::operator new(8);
        benchmark::DoNotOptimize(memory);
        ::operator delete(memory);
    }
};

struct MakeMutex {
    void operator()() const
    {
        Poco::Mutex mutex;
        benchmark::DoNotOptimize(mutex);
    }
};

constexpr std::size_t FRAME_BYTES = 16; // a struct can_frame
constexpr unsigned int BATCH = 128;     // frames that wait in the socket before they are read

class SocketPair
{
public:
    SocketPair()
    {
        if (socketpair(AF_UNIX, SOCK_DGRAM, 0, mEnds.data()) != 0)
            std::abort();
    }

    ~SocketPair()
    {
        close(mEnds[0]);
        close(mEnds[1]);
    }

    SocketPair(const SocketPair&) = delete;
    SocketPair& operator=(const SocketPair&) = delete;

    void Fill() const
    {
        const std::array<unsigned char, FRAME_BYTES> frame = {};
        for (unsigned int i = 0; i < BATCH; ++i) {
            if (send(mEnds[0], frame.data(), frame.size(), 0) != FRAME_BYTES)
                std::abort();
        }
    }

    int ReadingEnd() const { return mEnds[1]; }

private:
    std::array<int, 2> mEnds = {};
};

void Recv(benchmark::State& state)
{
    const SocketPair sockets;
    std::array<unsigned char, FRAME_BYTES> frame = {};
    while (state.KeepRunningBatch(BATCH)) {
        sockets.Fill();
        const bench::ThreadTime start;
        for (unsigned int i = 0; i < BATCH; ++i) {
            if (recv(sockets.ReadingEnd(), frame.data(), frame.size(), 0) != FRAME_BYTES)
                std::abort();
        }
        state.SetIterationTime(start.Seconds());
    }
}

constexpr unsigned int MESSAGES = 32; // of one recvmmsg()

/// One pass is one frame of the 32 that a call reads.
void Recvmmsg(benchmark::State& state)
{
    const SocketPair sockets;
    std::array<std::array<unsigned char, FRAME_BYTES>, MESSAGES> frames = {};
    std::array<iovec, MESSAGES> places = {};
    std::array<mmsghdr, MESSAGES> headers = {};
    for (unsigned int i = 0; i < MESSAGES; ++i) {
        places[i] = {frames[i].data(), FRAME_BYTES};
        headers[i].msg_hdr.msg_iov = &places[i];
        headers[i].msg_hdr.msg_iovlen = 1;
    }
    while (state.KeepRunningBatch(BATCH)) {
        sockets.Fill();
        const bench::ThreadTime start;
        for (unsigned int i = 0; i < BATCH / MESSAGES; ++i) {
            if (recvmmsg(sockets.ReadingEnd(), headers.data(), MESSAGES, 0, nullptr) != MESSAGES)
                std::abort();
        }
        state.SetIterationTime(start.Seconds());
    }
}

const bool added = bench::AddPath<LockAndUnlock>("reference/lock_unlock") &&
                   bench::AddPath<AllocateAndFree>("reference/allocate_8") &&
                   bench::AddPath<MakeMutex>("reference/make_mutex") &&
                   bench::AddTimed("reference/recv", Recv, true) &&
                   bench::AddTimed("reference/recvmmsg_32", Recvmmsg, true);

} // namespace
