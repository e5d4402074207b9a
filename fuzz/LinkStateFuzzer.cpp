#include "ControllerState.h"
#include "Require.h"

#include <cstdint>
#include <cstring>
#include <linux/can/netlink.h>
#include <linux/if_link.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <vector>

// What netlink answers of an interface, held against the walk that the kernel's own macros make.
//
// Input: 1 byte, the index asked for; then the answer.

namespace
{

/// Attributes that follow one another, as the macros want them.
struct Attributes {
    rtattr* first;
    int size;
};

Attributes Inside(rtattr* attribute)
{
    if (attribute == nullptr)
        return {nullptr, 0};
    return {static_cast<rtattr*>(RTA_DATA(attribute)), static_cast<int>(RTA_PAYLOAD(attribute))};
}

rtattr* Find(Attributes attributes, unsigned int type)
{
    int size = attributes.size;
    for (rtattr* at = attributes.first; RTA_OK(at, size); at = RTA_NEXT(at, size)) {
        if ((at->rta_type & NLA_TYPE_MASK) == static_cast<int>(type))
            return at;
    }
    return nullptr;
}

Attributes OfLink(nlmsghdr* message, std::size_t size, unsigned int index)
{
    const bool isWhole = NLMSG_OK(message, size) && message->nlmsg_type == RTM_NEWLINK &&
                         message->nlmsg_len >= NLMSG_LENGTH(sizeof(ifinfomsg));
    if (!isWhole)
        return {nullptr, 0};
    auto* const link = static_cast<ifinfomsg*>(NLMSG_DATA(message));
    if (static_cast<unsigned int>(link->ifi_index) != index)
        return {nullptr, 0};
    return {IFLA_RTA(link), static_cast<int>(IFLA_PAYLOAD(message))};
}

/// The state as the kernel numbers it, or -1.
long long StateOf(nlmsghdr* message, std::size_t size, unsigned int index)
{
    const Attributes info = Inside(Find(OfLink(message, size, index), IFLA_LINKINFO));
    rtattr* const kind = Find(info, IFLA_INFO_KIND);
    rtattr* const state = Find(Inside(Find(info, IFLA_INFO_DATA)), IFLA_CAN_STATE);
    if (kind == nullptr || state == nullptr || RTA_PAYLOAD(state) < sizeof(std::uint32_t))
        return -1;
    const auto* const word = static_cast<const char*>(RTA_DATA(kind));
    const std::size_t length = ::strnlen(word, RTA_PAYLOAD(kind));
    if (length != 3 || std::memcmp(word, "can", length) != 0)
        return -1;
    std::uint32_t number = 0;
    std::memcpy(&number, RTA_DATA(state), sizeof number);
    return number;
}

tarn::tCanBusState Named(long long state)
{
    switch (state) {
    case 0:
        return tarn::CAN_BUS_ERROR_ACTIVE;
    case 1:
        return tarn::CAN_BUS_ERROR_WARNING;
    case 2:
        return tarn::CAN_BUS_ERROR_PASSIVE;
    default:
        return tarn::CAN_BUS_OFF;
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size == 0)
        return -1;
    const unsigned int index = data[0];
    const std::vector<unsigned char> answer(data + 1, data + size); // whose end is watched
    std::vector<std::uint64_t> aligned(answer.size() / 8 + 8);
    if (!answer.empty())
        std::memcpy(aligned.data(), answer.data(), answer.size());
    const long long expected =
        StateOf(reinterpret_cast<nlmsghdr*>(aligned.data()), answer.size(), index);
    const auto state = tarn::ParseControllerState(answer.data(), answer.size(), index);
    Require(state.has_value() == (expected >= 0 && expected <= 3), "a state that is told");
    Require(!state || *state == Named(expected), "the state");
    return 0;
}
