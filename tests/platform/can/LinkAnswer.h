#ifndef TARN_TESTS_PLATFORM_CAN_LINK_ANSWER_H
#define TARN_TESTS_PLATFORM_CAN_LINK_ANSWER_H

#include <algorithm>
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

/// The same, cut short or not, as the kernel of this machine says it.
inline std::string InOwnByteOrder(std::string answer)
{
#if __BYTE_ORDER__ == __ORDER_BIG_ENDIAN__
    struct Number {
        std::size_t at;
        std::size_t size;
    };
    constexpr Number NUMBERS[] = {{0, 4},  {4, 2},  {6, 2},  {18, 2}, {20, 4}, {24, 4}, {32, 2},
                                  {34, 2}, {44, 2}, {46, 2}, {48, 2}, {50, 2}, {56, 2}, {58, 2},
                                  {60, 2}, {62, 2}, {64, 4}, {68, 2}, {70, 2}, {72, 4}};
    for (const Number& number : NUMBERS) {
        if (number.at + number.size <= answer.size())
            std::reverse(&answer[number.at], &answer[number.at] + number.size);
    }
#endif
    return answer;
}

} // namespace tarn::test

#endif
