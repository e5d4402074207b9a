#include "support/Frames.h"

#include <tarn/TarnMessage.h>

#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <functional>
#include <string>
#include <thread>
#include <vector>

// All 2^29 identifiers. What stands in them is worked out here by division and remainder.
//
// Each of the 2^28 DATA identifiers is made by the setters, sent, received, given back whole and
// read by every getter. Identifiers are gone through in order, so of 128 neighbours only the source
// address differs: the other fields are set for every 128th, and must stay when it changes. Each of
// the 2^28 CHCP identifiers is made by SetChcpMacID, sent, received, given back whole and read.

namespace
{

using tarn::CanMessage;
using tarn::TarnMessage;

constexpr std::uint32_t IDENTIFIERS = 1u << 28; ///< of one kind
constexpr std::uint32_t SOURCES = 128;
constexpr unsigned int THREADS = 2;

/// Where the first mistake of a part of the sweep lies; IDENTIFIERS when there is none.
using Sweep = std::function<std::uint32_t(std::uint32_t begin, std::uint32_t end)>;

/// Divides the identifiers among the threads and expects no mistake from any.
void ExpectNoMistake(const Sweep& sweep)
{
    std::array<std::uint32_t, THREADS> mistakes = {};
    std::vector<std::thread> threads;
    for (unsigned int i = 0; i < THREADS; ++i)
        threads.emplace_back([&mistakes, &sweep, i] {
            const std::uint32_t share = IDENTIFIERS / THREADS;
            mistakes[i] = sweep(i * share, (i + 1) * share);
        });
    for (std::thread& thread : threads)
        thread.join();
    for (const std::uint32_t mistake : mistakes)
        EXPECT_EQ(mistake, IDENTIFIERS) << std::hex << mistake << " went wrong";
}

template <typename Enumeration>
Enumeration Bit(std::uint32_t identifier, std::uint32_t weight)
{
    return static_cast<Enumeration>(identifier / weight % 2);
}

/// Sets all fields but the source address.
bool SetOtherFields(TarnMessage& message, std::uint32_t identifier)
{
    using M = TarnMessage;
    return message.SetTargetAddr(static_cast<unsigned char>(identifier / 128 % 128)) &&
           message.SetRegister(static_cast<unsigned char>(identifier / 16384 % 256)) &&
           message.SetAddressingMode(Bit<M::tTarnAddressingMode>(identifier, 4194304)) &&
           message.SetDirection(Bit<M::tTarnDirection>(identifier, 8388608)) &&
           message.SetAccessType(Bit<M::tTarnAccessType>(identifier, 16777216)) &&
           message.SetAddressing(Bit<M::tTarnAddressing>(identifier, 33554432)) &&
           message.SetPriority(static_cast<M::tTarnMsgPriority>(identifier / 67108864 % 4));
}

bool HasDataFields(const TarnMessage& message, std::uint32_t identifier)
{
    using M = TarnMessage;
    return message.GetType() == M::TYPE_DATA && message.GetTargetAddr() == identifier / 128 % 128 &&
           message.GetRegister() == identifier / 16384 % 256 &&
           message.GetAddressingMode() == Bit<M::tTarnAddressingMode>(identifier, 4194304) &&
           message.GetDirection() == Bit<M::tTarnDirection>(identifier, 8388608) &&
           message.GetAccessType() == Bit<M::tTarnAccessType>(identifier, 16777216) &&
           message.GetAddressing() == Bit<M::tTarnAddressing>(identifier, 33554432) &&
           message.GetPriority() == static_cast<M::tTarnMsgPriority>(identifier / 67108864 % 4);
}

/// Sends the message, receives the frame, and asks both for the identifier.
bool ComesBack(TarnMessage& message, std::uint32_t identifier,
               bool (*has)(const TarnMessage&, std::uint32_t))
{
    CanMessage& frame = message.RawMessageRef();
    const TarnMessage received(frame);
    return frame.GetHeader() == identifier && received.GetFullHeader() == identifier &&
           !!received && has(received, identifier);
}

bool HasMacID(const TarnMessage& message, std::uint32_t identifier)
{
    return message.GetChcpMacID() == identifier - 268435456u;
}

std::uint32_t SweepData(std::uint32_t begin, std::uint32_t end)
{
    TarnMessage message;
    for (std::uint32_t block = begin; block < end; block += SOURCES) {
        if (!SetOtherFields(message, block))
            return block;
        for (std::uint32_t source = 0; source < SOURCES; ++source) {
            if (!message.SetSourceAddr(static_cast<unsigned char>(source)) ||
                !ComesBack(message, block + source, HasDataFields))
                return block + source;
        }
    }
    return IDENTIFIERS;
}

std::uint32_t SweepChcp(std::uint32_t begin, std::uint32_t end)
{
    TarnMessage message;
    message.SetType(TarnMessage::TYPE_CHCP);
    for (std::uint32_t mac = begin; mac < end; ++mac) {
        if (!message.SetChcpMacID(mac) || !ComesBack(message, mac + 268435456u, HasMacID))
            return mac;
    }
    return IDENTIFIERS;
}

TEST(EveryIdentifier, OfADataMessageIsMadeSentAndReceived)
{
    ExpectNoMistake(SweepData);
}

TEST(EveryIdentifier, OfAChcpMessageIsMadeSentAndReceived)
{
    ExpectNoMistake(SweepChcp);
}

} // namespace
