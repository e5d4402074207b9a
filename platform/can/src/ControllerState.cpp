#include "ControllerState.h"

#include <cstring>
#include <linux/can/error.h>
#include <linux/can/netlink.h>
#include <linux/if_link.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <string>

namespace tarn
{

namespace
{

/// CAN_ERR_CRTL_ACTIVE, which headers before Linux 4.4 lack.
constexpr unsigned char CONTROLLER_ACTIVE = 0x40;

/// The rest of a message, or the value of an attribute.
struct Bytes {
    const unsigned char* at = nullptr;
    std::size_t size = 0;

    template <typename Header>
    bool Read(Header& header) const
    {
        if (size < sizeof header)
            return false;
        std::memcpy(&header, at, sizeof header);
        return true;
    }

    Bytes From(std::size_t offset) const
    {
        return offset < size ? Bytes{at + offset, size - offset} : Bytes{};
    }
};

/// Empty where there is no such attribute.
Bytes Attribute(Bytes all, unsigned int type)
{
    rtattr header = {};
    while (all.Read(header) && header.rta_len >= sizeof header && header.rta_len <= all.size) {
        if ((header.rta_type & static_cast<unsigned int>(NLA_TYPE_MASK)) == type)
            return Bytes{all.at, header.rta_len}.From(sizeof header);
        all = all.From(RTA_ALIGN(std::size_t{header.rta_len}));
    }
    return {};
}

/// The attributes of the link; empty for another message.
Bytes AttributesOf(Bytes message, unsigned int interfaceIndex)
{
    nlmsghdr header = {};
    ifinfomsg link = {};
    if (!message.Read(header) || header.nlmsg_type != RTM_NEWLINK ||
        header.nlmsg_len > message.size)
        return {};
    const Bytes body = Bytes{message.at, header.nlmsg_len}.From(NLMSG_HDRLEN);
    if (!body.Read(link) || static_cast<unsigned int>(link.ifi_index) != interfaceIndex)
        return {};
    return body.From(NLMSG_ALIGN(sizeof link));
}

bool IsCan(Bytes kind)
{
    const std::string name(reinterpret_cast<const char*>(kind.at), kind.size);
    return name.compare(0, name.find('\0'), "can") == 0;
}

} // namespace

std::optional<tCanBusState> ParseControllerState(const void* answer, std::size_t size,
                                                 unsigned int interfaceIndex)
{
    const Bytes message = {static_cast<const unsigned char*>(answer), size};
    const Bytes info = Attribute(AttributesOf(message, interfaceIndex), IFLA_LINKINFO);
    const Bytes data = Attribute(info, IFLA_INFO_DATA);
    unsigned int state = 0;
    if (!IsCan(Attribute(info, IFLA_INFO_KIND)) || !Attribute(data, IFLA_CAN_STATE).Read(state))
        return std::nullopt;
    switch (state) {
    case CAN_STATE_ERROR_ACTIVE:
        return CAN_BUS_ERROR_ACTIVE;
    case CAN_STATE_ERROR_WARNING:
        return CAN_BUS_ERROR_WARNING;
    case CAN_STATE_ERROR_PASSIVE:
        return CAN_BUS_ERROR_PASSIVE;
    case CAN_STATE_BUS_OFF:
        return CAN_BUS_OFF;
    default:
        return std::nullopt;
    }
}

std::optional<tCanBusState> ControllerStateOf(const CanMessage& errorFrame)
{
    const unsigned int errorClass = errorFrame.GetHeader();
    const unsigned int controller = errorFrame.GetDataSize() > 1 ? errorFrame.GetBytes()[1] : 0;
    if ((errorClass & CAN_ERR_BUSOFF) != 0)
        return CAN_BUS_OFF;
    if ((errorClass & CAN_ERR_RESTARTED) != 0)
        return CAN_BUS_ERROR_ACTIVE;
    if ((errorClass & CAN_ERR_CRTL) == 0)
        return std::nullopt;
    if ((controller & (CAN_ERR_CRTL_RX_PASSIVE | CAN_ERR_CRTL_TX_PASSIVE)) != 0)
        return CAN_BUS_ERROR_PASSIVE;
    if ((controller & (CAN_ERR_CRTL_RX_WARNING | CAN_ERR_CRTL_TX_WARNING)) != 0)
        return CAN_BUS_ERROR_WARNING;
    if ((controller & CONTROLLER_ACTIVE) != 0)
        return CAN_BUS_ERROR_ACTIVE;
    return std::nullopt;
}

} // namespace tarn
