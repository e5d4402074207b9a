#ifndef TARN_TESTS_PLATFORM_CAN_LINK_ANSWER_H
#define TARN_TESTS_PLATFORM_CAN_LINK_ANSWER_H

#include <string>

namespace tarn::test
{

/// What a little-endian kernel says of the interface can0, with the index 7, and of its controller:
/// rtnetlink(7), RTM_NEWLINK.
inline std::string LinkAnswer(char controllerState)
{
    static const char BYTES[] =
        "\x4C\0\0\0\x10\0\0\0\0\0\0\0\0\0\0\0"     //  0: 76 bytes, RTM_NEWLINK
        "\0\0\x18\x01\x07\0\0\0\xC1\0\0\0\0\0\0\0" // 16: ARPHRD_CAN, index 7, IFF_UP ...
        "\x09\0\x03\0can0\0\0\0\0"                 // 32: IFLA_IFNAME, and 3 bytes to fill
        "\x20\0\x12\0"                             // 44: IFLA_LINKINFO, 32 bytes
        "\x08\0\x01\0can\0"                        // 48: IFLA_INFO_KIND
        "\x14\0\x02\0"                             // 56: IFLA_INFO_DATA, 20 bytes
        "\x08\0\x03\0\0\x12\x7A\0"                 // 60: IFLA_CAN_CLOCK, 8 MHz
        "\x08\0\x04\0";                            // 68: IFLA_CAN_STATE
    return std::string(BYTES, sizeof BYTES - 1) + controllerState + std::string(3, '\0');
}

} // namespace tarn::test

#endif
