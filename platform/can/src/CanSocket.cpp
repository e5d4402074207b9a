#include "CanSocket.h"

#include "SteadyLock.h"

#include <plexa_can/CanException.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <linux/can/error.h>
#include <linux/can/raw.h>
#include <linux/errqueue.h>
#include <linux/net_tstamp.h>
#include <linux/sock_diag.h>
#include <net/if.h>
#include <utility>

namespace tarn
{

namespace
{

/// A kernel of 32 bits gives the seconds after the year 2038 as negative numbers.
unsigned long long Nanoseconds(const timespec& time)
{
    return static_cast<unsigned long long>(static_cast<unsigned long>(time.tv_sec)) *
               1000000000ull +
           static_cast<unsigned long long>(time.tv_nsec);
}

CanMessage FromKernel(const canfd_frame& kernel)
{
    const bool wide = (kernel.can_id & (CAN_EFF_FLAG | CAN_ERR_FLAG)) != 0;
    CanMessage frame;
    frame.SetHeader(kernel.can_id & (wide ? CAN_EFF_MASK : CAN_SFF_MASK));
    unsigned int& flags = frame.GetFlags();
    if ((kernel.can_id & CAN_EFF_FLAG) != 0)
        flags |= CanMessage::FLAG_EXTENDED;
    if ((kernel.can_id & CAN_RTR_FLAG) != 0)
        flags |= CanMessage::FLAG_REMOTE;
    if ((kernel.can_id & CAN_ERR_FLAG) != 0)
        flags |= CanMessage::FLAG_ERROR;
    const bool remote = (kernel.can_id & CAN_RTR_FLAG) != 0;
    frame.SetBytes(kernel.data, remote ? 0 : std::min<std::size_t>(kernel.len, CAN_MAX_DLEN));
    return frame;
}

/// The bits of the identifier word above the identifier are the kernel's marks, so only the flags
/// may set them.
can_frame ToKernel(const CanMessage& frame)
{
    const unsigned int flags = frame.GetFlags();
    can_frame kernel = {};
    const bool wide = (flags & (CanMessage::FLAG_EXTENDED | CanMessage::FLAG_ERROR)) != 0;
    kernel.can_id = frame.GetHeader() & (wide ? CAN_EFF_MASK : CAN_SFF_MASK);
    if ((flags & CanMessage::FLAG_EXTENDED) != 0)
        kernel.can_id |= CAN_EFF_FLAG;
    if ((flags & CanMessage::FLAG_REMOTE) != 0)
        kernel.can_id |= CAN_RTR_FLAG;
    if ((flags & CanMessage::FLAG_ERROR) != 0)
        kernel.can_id |= CAN_ERR_FLAG;
    kernel.can_dlc = static_cast<unsigned char>(frame.GetDataSize());
    std::copy_n(frame.GetBytes(), frame.GetDataSize(), kernel.data);
    return kernel;
}

} // namespace

CanSocket::CanSocket(iCanSystem& system, std::string interface,
                     const SocketCanDispatcher::Options& options)
    : mSystem(system),
      mInterface(std::move(interface)),
      mOptions(options)
{
    Open();
    try {
        if (!SetFilters())
            RefuseFilters(errno);
        Bind();
        SetOptions();
    } catch (...) {
        mSystem.Close(mDescriptor);
        throw;
    }
    PrepareBatch();
}

CanSocket::~CanSocket()
{
    mSystem.Close(mDescriptor);
}

void CanSocket::Refuse(const std::string& what, int error, const std::string& remedy)
{
    std::string text = "cannot open the CAN interface \"" + mInterface + "\": " + what;
    if (error != 0)
        text += std::string(": ") + ErrorText(error);
    throw CanException(text + "; " + remedy, error);
}

std::string CanSocket::OtherInterfaces()
{
    std::string names;
    for (const std::string& name : mSystem.CanInterfaces())
        names += (names.empty() ? "" : ", ") + name;
    if (names.empty())
        return "this machine has no CAN interface; \"ip link add dev vcan0 type vcan\" makes a "
               "virtual one";
    return "this machine has: " + names;
}

void CanSocket::Open()
{
    mDescriptor = mSystem.Socket(PF_CAN, SOCK_RAW | SOCK_CLOEXEC, CAN_RAW);
    if (mDescriptor >= 0)
        return;
    const int error = errno;
    if (error == EAFNOSUPPORT || error == EPROTONOSUPPORT)
        Refuse("this kernel has no CAN support (AF_CAN)", error,
               "load it with \"modprobe can_raw\", or run a kernel that has it");
    if (error == EPERM || error == EACCES)
        Refuse("a CAN socket is not permitted", error,
               "run as a user, and in a container, that may open raw CAN sockets");
    Refuse("socket", error, "free the resource that the system names");
}

void CanSocket::Bind()
{
    if (mInterface.empty() || mInterface.size() >= IFNAMSIZ)
        Refuse("an interface name has 1 to 15 characters", 0, OtherInterfaces());
    const unsigned int index = mSystem.InterfaceIndex(mInterface);
    if (index == 0)
        Refuse("no such interface", 0, OtherInterfaces());
    if (!BindTo(index)) {
        const int error = errno;
        Refuse(error == ENODEV ? "it is no CAN interface: bind" : "bind", error, OtherInterfaces());
    }
    unsigned int flags = 0;
    if (mSystem.InterfaceFlags(mDescriptor, mInterface, flags) != 0)
        Refuse("reading its flags", errno, "see whether it was removed meanwhile");
    if ((flags & IFF_UP) == 0)
        Refuse("it is down", ENETDOWN,
               "\"ip link set " + mInterface +
                   " up type can bitrate 250000\" with the bit rate of "
                   "the bus sets it up (a vcan interface without \"type can bitrate\")");
}

bool CanSocket::BindTo(unsigned int interfaceIndex)
{
    sockaddr_can address = {};
    address.can_family = AF_CAN;
    address.can_ifindex = static_cast<int>(interfaceIndex);
    if (mSystem.Bind(mDescriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
        return false;
    mInterfaceIndex = interfaceIndex;
    return true;
}

void CanSocket::SetOptions()
{
    const int on = 1;
    if (!SetOption(SOL_SOCKET, SO_RXQ_OVFL, on))
        Refuse("asking for the count of dropped frames (SO_RXQ_OVFL)", errno,
               "run a kernel from 2.6.33 on");
    const int stamps = SOF_TIMESTAMPING_RX_HARDWARE | SOF_TIMESTAMPING_RAW_HARDWARE |
                       SOF_TIMESTAMPING_RX_SOFTWARE | SOF_TIMESTAMPING_SOFTWARE;
    if (!SetOption(SOL_SOCKET, SO_TIMESTAMPING, stamps))
        SetOption(SOL_SOCKET, SO_TIMESTAMPNS, on); // frames go without a time stamp otherwise
    if (mOptions.receiveBuffer == 0)
        return;
    const int size = static_cast<int>(std::min<std::size_t>(mOptions.receiveBuffer, 1u << 30));
    if (!SetOption(SOL_SOCKET, SO_RCVBUFFORCE, size) && !SetOption(SOL_SOCKET, SO_RCVBUF, size))
        Refuse("setting the receive buffer", errno, "ask for less");
}

bool CanSocket::Rebind(unsigned int interfaceIndex)
{
    const SteadyLock lock(mFilterMutex);
    if (!BindTo(interfaceIndex))
        return false;
    if (SetFilters())
        return true;
    mInterfaceIndex = 0; // so that the next look tries again
    return false;
}

void CanSocket::Listen(bool on)
{
    const SteadyLock lock(mFilterMutex);
    mListening = on;
    if (!SetFilters() && on && errno != ENODEV)
        RefuseFilters(errno);
}

void CanSocket::RefuseFilters(int error)
{
    Refuse("setting the filters (CAN_RAW_FILTER)", error, "give at most 512 filters");
}

bool CanSocket::SetFilters()
{
    std::vector<can_filter> filters;
    for (const auto& filter : mOptions.filters)
        filters.push_back({filter.identifier, filter.mask});
    if (filters.empty())
        filters.push_back({CAN_EFF_FLAG, CAN_EFF_FLAG});
    const std::size_t size = mListening ? filters.size() * sizeof(can_filter) : 0;
    const can_err_mask_t errors = mListening && mOptions.errorFrames ? CAN_ERR_MASK : 0;
    return mSystem.SetOption(mDescriptor, SOL_CAN_RAW, CAN_RAW_FILTER, filters.data(),
                             static_cast<socklen_t>(size)) == 0 &&
           SetOption(SOL_CAN_RAW, CAN_RAW_ERR_FILTER, errors);
}

// Receiving.

void CanSocket::PrepareBatch()
{
    for (std::size_t i = 0; i < BATCH_SIZE; ++i) {
        Slot& slot = mSlots[i];
        slot.part = {&slot.frame, sizeof slot.frame};
        mMessages[i] = {};
        mMessages[i].msg_hdr.msg_iov = &slot.part;
        mMessages[i].msg_hdr.msg_iovlen = 1;
    }
}

/// While frames come one at a time, asking for more than one would cost a look at an empty queue
/// each.
std::size_t CanSocket::ChooseBatchSize()
{
    if (mBatch == 1 && mAsked != 1)
        mSingles = SINGLES;
    else if (mSingles != 0)
        --mSingles;
    return mSingles != 0 ? 1 : BATCH_SIZE;
}

int CanSocket::ReadBatch()
{
    mAsked = ChooseBatchSize();
    mBatch = 0;
    for (std::size_t i = 0; i < mAsked; ++i) {
        mMessages[i].msg_hdr.msg_control = mSlots[i].control.data();
        mMessages[i].msg_hdr.msg_controllen = CONTROL_SIZE;
    }
    const int count =
        mSystem.ReceiveBatch(mDescriptor, mMessages.data(), static_cast<unsigned int>(mAsked));
    if (count < 0)
        return errno;
    mBatch = static_cast<std::size_t>(count);
    return 0;
}

void CanSocket::TakeBatch(const Receiver& receive, unsigned long long& oddities)
{
    for (std::size_t i = 0; i < mBatch; ++i) {
        const bool whole = mMessages[i].msg_len == CAN_MTU;
        CanMessage frame = whole ? FromKernel(mSlots[i].frame) : CanMessage();
        ReadControl(mMessages[i].msg_hdr, frame);
        if (whole)
            receive(frame);
        else
            ++oddities;
    }
}

void CanSocket::Discard(const Receiver& discard, unsigned long long& oddities) const
{
    for (;;) {
        canfd_frame frame = {};
        const ssize_t size = mSystem.Receive(mDescriptor, &frame, sizeof frame);
        if (size == static_cast<ssize_t>(CAN_MTU))
            discard(FromKernel(frame));
        else if (size >= 0)
            ++oddities;
        else if (errno != EINTR)
            return;
    }
}

void CanSocket::ReadControl(msghdr& message, CanMessage& frame)
{
    for (cmsghdr* part = CMSG_FIRSTHDR(&message); part != nullptr;
         part = CMSG_NXTHDR(&message, part)) {
        if (part->cmsg_level != SOL_SOCKET)
            continue;
        if (part->cmsg_type == SO_RXQ_OVFL) {
            std::memcpy(&mDrops, CMSG_DATA(part), sizeof mDrops);
        } else if (part->cmsg_type == SO_TIMESTAMPING) {
            scm_timestamping stamps = {}; // software, (unused), hardware
            std::memcpy(&stamps, CMSG_DATA(part), sizeof stamps);
            const unsigned long long hardware = Nanoseconds(stamps.ts[2]);
            frame.SetTimeStamp(hardware != 0 ? hardware : Nanoseconds(stamps.ts[0]));
        } else if (part->cmsg_type == SO_TIMESTAMPNS) {
            timespec stamp = {};
            std::memcpy(&stamp, CMSG_DATA(part), sizeof stamp);
            frame.SetTimeStamp(Nanoseconds(stamp));
        }
    }
}

bool CanSocket::AskForDrops(unsigned int& drops) const
{
    std::array<unsigned int, SK_MEMINFO_VARS> figures = {};
    socklen_t size = sizeof figures;
    if (mSystem.GetOption(mDescriptor, SOL_SOCKET, SO_MEMINFO, figures.data(), &size) != 0 ||
        size <= SK_MEMINFO_DROPS * sizeof(unsigned int))
        return false;
    drops = figures[SK_MEMINFO_DROPS];
    return true;
}

int CanSocket::Send(const CanMessage& frame)
{
    const can_frame kernel = ToKernel(frame);
    while (mSystem.Send(mDescriptor, &kernel, sizeof kernel) < 0) {
        if (errno != EINTR)
            return errno;
    }
    return 0;
}

} // namespace tarn
