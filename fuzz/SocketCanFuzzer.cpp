#include "CanSocket.h"
#include "ControllerState.h"
#include "ErrorFrameWords.h"
#include "Require.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fuzzer/FuzzedDataProvider.h>
#include <linux/errqueue.h>
#include <net/if.h>
#include <optional>
#include <string>
#include <utility>
#include <vector>

// Frames as the kernel may hand them to a CAN socket, in batches and one by one, with control
// messages of every sort. What comes out is what <linux/can.h> says of the bits. Every frame is
// sent again, and an error frame put into words.

namespace
{

using tarn::CanMessage;

/// A packet of a CAN socket.
struct Packet {
    std::vector<unsigned char> bytes; ///< as many as a frame can have
    std::size_t size = 0;             ///< what the kernel says of it
    std::vector<char> control;
    unsigned long long stamp = 0; ///< nanoseconds of the last time stamp in control; 0 for none
    std::optional<unsigned int> drops; ///< the last count of dropped frames in control
};

/// A kernel that has one interface and hands out what it is given.
class Kernel : public tarn::iCanSystem
{
public:
    std::vector<Packet> packets; ///< the next of them first
    std::vector<can_frame> sent;
    unsigned int drops = 0; ///< the last that was told to a batch

    int Socket(int, int, int) override { return 3; }
    int Close(int) override { return 0; }
    int Bind(int, const sockaddr*, socklen_t) override { return 0; }
    int SetOption(int, int, int, const void*, socklen_t) override { return 0; }
    int GetOption(int, int, int, void*, socklen_t*) override { return Fail(ENOPROTOOPT); }

    int ReceiveBatch(int, mmsghdr* messages, unsigned int count) override
    {
        if (packets.empty())
            return Fail(EAGAIN);
        const std::size_t taken = std::min<std::size_t>(count, packets.size());
        for (std::size_t i = 0; i < taken; ++i)
            Fill(messages[i], packets[i]);
        return static_cast<int>(taken);
    }

    ssize_t Receive(int, void* buffer, std::size_t size) override
    {
        if (packets.empty())
            return Fail(EAGAIN);
        const Packet packet = packets.front();
        packets.erase(packets.begin());
        std::memcpy(buffer, packet.bytes.data(), std::min(size, packet.bytes.size()));
        return static_cast<ssize_t>(packet.size);
    }

    ssize_t Send(int, const void* buffer, std::size_t size) override
    {
        Require(size == sizeof(can_frame), "size of a frame that is sent");
        std::memcpy(&sent.emplace_back(), buffer, size);
        return static_cast<ssize_t>(size);
    }

    int Event() override { return Fail(ENOSYS); }
    int Signal(int) override { return Fail(ENOSYS); }
    int TakeSignal(int) override { return Fail(ENOSYS); }
    int WaitSet() override { return Fail(ENOSYS); }
    int Watch(int, int) override { return Fail(ENOSYS); }
    int Wait(int, epoll_event*, int) override { return Fail(ENOSYS); }
    unsigned int InterfaceIndex(const std::string&) override { return 1; }
    int InterfaceFlags(int, const std::string&, unsigned int& flags) override
    {
        flags = IFF_UP;
        return 0;
    }
    std::vector<std::string> CanInterfaces() override { return {"can0"}; }
    int SetThreadName(const std::string&) override { return 0; }
    int SetRealTimePriority(int) override { return 0; }
    Clock::time_point Now() override { return {}; }
    void Sleep(std::chrono::microseconds) override {}

private:
    static int Fail(int error)
    {
        errno = error;
        return -1;
    }

    static void Fill(mmsghdr& message, const Packet& packet)
    {
        std::memcpy(message.msg_hdr.msg_iov->iov_base, packet.bytes.data(), packet.bytes.size());
        message.msg_len = static_cast<unsigned int>(packet.size);
        Require(packet.control.size() <= message.msg_hdr.msg_controllen, "room for control");
        std::copy(packet.control.begin(), packet.control.end(),
                  static_cast<char*>(message.msg_hdr.msg_control));
        message.msg_hdr.msg_controllen = packet.control.size();
    }
};

/// Appends a control message; those of the kernel have the size of their type.
void AddControl(Packet& packet, int level, int type, const void* value, std::size_t size)
{
    const std::size_t at = packet.control.size();
    packet.control.resize(at + CMSG_SPACE(size));
    cmsghdr header = {};
    header.cmsg_level = level;
    header.cmsg_type = type;
    header.cmsg_len = CMSG_LEN(size);
    std::memcpy(&packet.control[at], &header, sizeof header);
    std::copy_n(static_cast<const char*>(value), size, &packet.control[at + CMSG_LEN(0)]);
}

timespec SomeTime(FuzzedDataProvider& input)
{
    timespec time = {};
    time.tv_sec = input.ConsumeIntegral<time_t>();
    time.tv_nsec = input.ConsumeIntegral<long>();
    return time;
}

unsigned long long Nanoseconds(const timespec& time)
{
    const auto all =
        static_cast<unsigned __int128>(static_cast<unsigned long long>(time.tv_sec)) * 1000000000u +
        static_cast<unsigned long long>(time.tv_nsec);
    return static_cast<unsigned long long>(all);
}

void AddStamps(Packet& packet, FuzzedDataProvider& input)
{
    scm_timestamping stamps = {};
    stamps.ts[0] = SomeTime(input);
    if (input.ConsumeBool())
        stamps.ts[2] = SomeTime(input);
    AddControl(packet, SOL_SOCKET, SO_TIMESTAMPING, &stamps, sizeof stamps);
    packet.stamp =
        Nanoseconds(stamps.ts[2]) != 0 ? Nanoseconds(stamps.ts[2]) : Nanoseconds(stamps.ts[0]);
}

void AddSomeControl(Packet& packet, FuzzedDataProvider& input)
{
    switch (input.ConsumeIntegralInRange<int>(0, 3)) {
    case 0:
        packet.drops = input.ConsumeIntegral<unsigned int>();
        return AddControl(packet, SOL_SOCKET, SO_RXQ_OVFL, &*packet.drops, sizeof *packet.drops);
    case 1:
        return AddStamps(packet, input);
    case 2: {
        const timespec time = SomeTime(input);
        packet.stamp = Nanoseconds(time);
        return AddControl(packet, SOL_SOCKET, SO_TIMESTAMPNS, &time, sizeof time);
    }
    default: {
        const std::vector<char> other = input.ConsumeBytes<char>(16);
        return AddControl(packet, SOL_SOCKET + 1, SO_RXQ_OVFL, other.data(), other.size());
    }
    }
}

Packet SomePacket(FuzzedDataProvider& input)
{
    Packet packet;
    packet.size =
        input.ConsumeBool() ? CAN_MTU : input.ConsumeIntegralInRange<std::size_t>(0, CANFD_MTU);
    packet.bytes =
        input.ConsumeBytes<unsigned char>(input.ConsumeIntegralInRange<std::size_t>(0, CANFD_MTU));
    packet.bytes.resize(CANFD_MTU);
    for (int parts = input.ConsumeIntegralInRange<int>(0, 2); parts > 0; --parts)
        AddSomeControl(packet, input);
    return packet;
}

/// The frame of a packet by the bits that <linux/can.h> tells: identifier in the byte order of this
/// machine, its marks in the three highest bits, then the length, the data from byte 8 on.
void RequireFrameOf(const Packet& packet, const CanMessage& frame)
{
    std::uint32_t word = 0;
    std::memcpy(&word, packet.bytes.data(), sizeof word);
    const bool extended = word >= 0x80000000u;
    const bool remote = (word / 0x40000000u) % 2 == 1;
    const bool error = (word / 0x20000000u) % 2 == 1;
    const std::uint32_t identifiers = extended || error ? 0x20000000u : 0x800u;
    Require(frame.GetHeader() == word % identifiers, "identifier");
    Require(frame.GetFlags() == (extended ? 1u : 0u) + (remote ? 2u : 0u) + (error ? 4u : 0u),
            "flags");
    const std::size_t length = remote ? 0 : std::min<std::size_t>(packet.bytes[4], 8);
    Require(frame.GetDataSize() == length, "number of data bytes");
    Require(std::equal(packet.bytes.begin() + 8,
                       packet.bytes.begin() + 8 + static_cast<std::ptrdiff_t>(length),
                       frame.GetBytes()),
            "data bytes");
}

/// The first count of the packets gave these frames.
void RequireFramesOf(const std::vector<Packet>& packets, std::size_t count,
                     const std::vector<CanMessage>& frames, unsigned long long oddities)
{
    std::size_t taken = 0;
    for (std::size_t i = 0; i < count; ++i) {
        if (packets[i].size != CAN_MTU)
            continue;
        Require(taken < frames.size(), "a frame for every packet that is one");
        RequireFrameOf(packets[i], frames[taken++]);
    }
    Require(taken == frames.size(), "no frame of another packet");
    Require(oddities == count - taken, "odd packets counted");
}

/// By the numbers of <linux/can/error.h>: class 0x40 bus-off, 0x100 restarted, 4 controller, whose
/// second byte has 0x30 passive, 0x0C warning, 0x40 active again.
std::optional<tarn::tCanBusState> StateTold(const CanMessage& frame)
{
    const unsigned int kind = frame.GetHeader();
    const unsigned int detail = frame.GetDataSize() < 2 ? 0u : frame.GetBytes()[1];
    if (kind / 0x40 % 2 == 1)
        return tarn::CAN_BUS_OFF;
    if (kind / 0x100 % 2 == 1)
        return tarn::CAN_BUS_ERROR_ACTIVE;
    if (kind / 4 % 2 == 0)
        return std::nullopt;
    if (detail / 0x10 % 4 != 0)
        return tarn::CAN_BUS_ERROR_PASSIVE;
    if (detail / 4 % 4 != 0)
        return tarn::CAN_BUS_ERROR_WARNING;
    return detail / 0x40 % 2 == 1 ? std::optional(tarn::CAN_BUS_ERROR_ACTIVE) : std::nullopt;
}

void RequireWords(const CanMessage& frame)
{
    if (!frame.HasError())
        return;
    Require(tarn::ControllerStateOf(frame) == StateTold(frame), "state of the controller");
    const std::string words = tarn::tool::DescribeErrorFrame(frame);
    Require(!words.empty() && words.size() < 1000, "an error frame in words");
    for (const char character : words)
        Require(character >= ' ' && character <= '~', "printable words");
}

/// What is sent is a frame that reads as the one before.
void RequireSentAgain(tarn::CanSocket& socket, Kernel& kernel, const CanMessage& frame)
{
    Require(socket.Send(frame) == 0, "a frame that is sent");
    Packet packet;
    packet.size = CAN_MTU;
    packet.bytes.resize(CANFD_MTU);
    std::memcpy(packet.bytes.data(), &kernel.sent.back(), sizeof(can_frame));
    RequireFrameOf(packet, frame);
}

void TakeAsBatch(tarn::CanSocket& socket, Kernel& kernel)
{
    Require(socket.ReadBatch() == 0, "a batch");
    std::vector<CanMessage> frames;
    unsigned long long oddities = 0;
    socket.TakeBatch([&](const CanMessage& frame) { frames.push_back(frame); }, oddities);
    const std::size_t count = frames.size() + oddities;
    Require(count == 1 || count == kernel.packets.size(), "one packet, or all of them");
    RequireFramesOf(kernel.packets, count, frames, oddities);
    std::size_t place = 0;
    for (std::size_t i = 0; i < count; ++i) {
        const Packet& packet = kernel.packets[i];
        kernel.drops = packet.drops.value_or(kernel.drops);
        if (packet.size == CAN_MTU)
            Require(frames[place++].GetTimeStamp() == packet.stamp, "time stamp");
    }
    Require(socket.DropsAtLastBatch() == kernel.drops, "count of dropped frames");
    for (const CanMessage& frame : frames) {
        RequireSentAgain(socket, kernel, frame);
        RequireWords(frame);
    }
}

void DiscardAll(const tarn::CanSocket& socket, Kernel& kernel)
{
    const std::vector<Packet> packets = kernel.packets;
    std::vector<CanMessage> frames;
    unsigned long long oddities = 0;
    socket.Discard([&](const CanMessage& frame) { frames.push_back(frame); }, oddities);
    RequireFramesOf(packets, packets.size(), frames, oddities);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    FuzzedDataProvider input(data, size);
    Kernel kernel;
    tarn::CanSocket socket(kernel, "can0", {});
    while (input.remaining_bytes() > 0) {
        kernel.packets.clear();
        for (int packets = input.ConsumeIntegralInRange<int>(1, 8); packets > 0; --packets)
            kernel.packets.push_back(SomePacket(input));
        TakeAsBatch(socket, kernel);
        DiscardAll(socket, kernel);
    }
    return 0;
}
