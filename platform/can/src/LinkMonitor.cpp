#include "LinkMonitor.h"

#include "ControllerState.h"

#include <plexa_can/CanException.h>

#include <array>
#include <cerrno>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <net/if.h>

namespace tarn
{

LinkMonitor::LinkMonitor(iCanSystem& system) : mSystem(system)
{
    sockaddr_nl address = {};
    address.nl_family = AF_NETLINK;
    address.nl_groups = RTMGRP_LINK;
    mDescriptor = mSystem.Socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_ROUTE);
    if (mDescriptor >= 0 &&
        mSystem.Bind(mDescriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0)
        return;
    const int error = errno;
    if (mDescriptor >= 0)
        mSystem.Close(mDescriptor);
    throw CanException(std::string("cannot watch network interfaces (netlink): ") +
                           ErrorText(error) +
                           "; allow AF_NETLINK sockets where this program is confined",
                       error);
}

LinkMonitor::~LinkMonitor()
{
    mSystem.Close(mDescriptor);
}

void LinkMonitor::Drain()
{
    std::array<char, 8192> buffer = {};
    // ENOBUFS says that messages were lost: no matter, and there may be more behind it.
    while (mSystem.Receive(mDescriptor, buffer.data(), buffer.size()) > 0 || errno == ENOBUFS ||
           errno == EINTR)
        errno = 0;
}

LinkMonitor::Link LinkMonitor::Look(const std::string& interface) const
{
    Link link;
    unsigned int flags = 0;
    link.index = mSystem.InterfaceIndex(interface);
    if (link.index != 0 && mSystem.InterfaceFlags(mDescriptor, interface, flags) == 0)
        link.up = (flags & IFF_UP) != 0;
    if (link.up)
        link.controller = AskForController(link.index);
    return link;
}

/// On a socket of its own, where nothing but the answer comes.
std::optional<tCanBusState> LinkMonitor::AskForController(unsigned int interfaceIndex) const
{
    struct {
        nlmsghdr header;
        ifinfomsg link;
    } request = {};
    request.header.nlmsg_len = sizeof request;
    request.header.nlmsg_type = RTM_GETLINK;
    request.header.nlmsg_flags = NLM_F_REQUEST;
    request.link.ifi_index = static_cast<int>(interfaceIndex);
    const int socket = mSystem.Socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_ROUTE);
    if (socket < 0)
        return std::nullopt;
    std::array<unsigned char, 16384> answer = {};
    ssize_t size = mSystem.Send(socket, &request, sizeof request);
    if (size >= 0) // the kernel answers before the call returns
        size = mSystem.Receive(socket, answer.data(), answer.size());
    mSystem.Close(socket);
    return size < 0 ? std::nullopt
                    : ParseControllerState(answer.data(), static_cast<std::size_t>(size),
                                           interfaceIndex);
}

} // namespace tarn
