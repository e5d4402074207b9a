#include "HostAddress.h"

#include "Failure.h"
#include "Numbers.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cstring>
#include <netinet/in.h>

namespace tarn::tool
{

namespace
{

constexpr std::size_t IPV4_SIZE = 4;
constexpr std::size_t IPV6_SIZE = 16;

/// The bytes of an address: 4, 16, or none. IPv4 in the guise of IPv6 is IPv4.
std::size_t BytesOf(const SocketAddress& address, std::array<unsigned char, IPV6_SIZE>& bytes)
{
    if (address.storage.ss_family == AF_INET) {
        sockaddr_in in = {};
        std::memcpy(&in, &address.storage, sizeof in);
        std::memcpy(bytes.data(), &in.sin_addr, IPV4_SIZE);
        return IPV4_SIZE;
    }
    if (address.storage.ss_family != AF_INET6)
        return 0;
    sockaddr_in6 in = {};
    std::memcpy(&in, &address.storage, sizeof in);
    std::memcpy(bytes.data(), &in.sin6_addr, IPV6_SIZE);
    if (!IN6_IS_ADDR_V4MAPPED(&in.sin6_addr))
        return IPV6_SIZE;
    std::copy_n(bytes.begin() + IPV6_SIZE - IPV4_SIZE, IPV4_SIZE, bytes.begin());
    return IPV4_SIZE;
}

std::uint16_t PortOf(const SocketAddress& address)
{
    sockaddr_in in = {}; // the port stands at the same place in both families
    std::memcpy(&in, &address.storage, sizeof in);
    return ntohs(in.sin_port);
}

bool ReadIpv4(const std::string& host, std::uint16_t port, SocketAddress& address)
{
    sockaddr_in in = {};
    in.sin_family = AF_INET;
    in.sin_port = htons(port);
    if (::inet_pton(AF_INET, host.c_str(), &in.sin_addr) != 1)
        return false;
    std::memcpy(&address.storage, &in, sizeof in);
    address.size = sizeof in;
    return true;
}

bool ReadIpv6(const std::string& host, std::uint16_t port, SocketAddress& address)
{
    sockaddr_in6 in = {};
    in.sin6_family = AF_INET6;
    in.sin6_port = htons(port);
    if (::inet_pton(AF_INET6, host.c_str(), &in.sin6_addr) != 1)
        return false;
    std::memcpy(&address.storage, &in, sizeof in);
    address.size = sizeof in;
    return true;
}

} // namespace

std::string SocketAddress::Text() const
{
    std::array<unsigned char, IPV6_SIZE> bytes = {};
    std::array<char, INET6_ADDRSTRLEN> text = {};
    const bool isShort = BytesOf(*this, bytes) == IPV4_SIZE;
    ::inet_ntop(isShort ? AF_INET : AF_INET6, bytes.data(), text.data(), text.size());
    const std::string host = isShort ? text.data() : '[' + std::string(text.data()) + ']';
    return host + ':' + std::to_string(PortOf(*this));
}

bool SocketAddress::IsLoopback() const
{
    std::array<unsigned char, IPV6_SIZE> bytes = {};
    if (BytesOf(*this, bytes) == IPV4_SIZE)
        return bytes[0] == 127;
    return bytes.back() == 1 &&
           std::all_of(bytes.begin(), bytes.end() - 1, [](unsigned char b) { return b == 0; });
}

SocketAddress ParseSocketAddress(const std::string& option, const std::string& text)
{
    constexpr std::uint64_t HIGHEST_PORT = 65535;
    const std::size_t colon = text.rfind(':');
    const bool brackets = text.size() > 1 && text[0] == '[';
    SocketAddress address;
    if (colon != std::string::npos && colon > 0) {
        const auto port = ParseWhole(text.substr(colon + 1), HIGHEST_PORT);
        const std::string host = text.substr(0, colon);
        const auto number = static_cast<std::uint16_t>(port.value_or(0));
        if (port && !brackets && ReadIpv4(host, number, address))
            return address;
        if (port && brackets && host.back() == ']' &&
            ReadIpv6(host.substr(1, host.size() - 2), number, address))
            return address;
    }
    throw UsageFailure(option + ' ' + text +
                       ": no address; write it like 127.0.0.1:29536 or [::1]:29536, with 0 for any "
                       "free port");
}

HostRange::HostRange(const std::string& option, const std::string& text)
{
    const std::size_t slash = std::min(text.find('/'), text.size());
    const std::string host = text.substr(0, slash);
    SocketAddress address;
    if (ReadIpv4(host, 0, address) || ReadIpv6(host, 0, address))
        mSize = BytesOf(address, mBytes);
    const auto bits = slash == text.size() ? std::optional<std::uint64_t>(8 * mSize)
                                           : ParseWhole(text.substr(slash + 1), 8 * mSize);
    if (mSize == 0 || !bits)
        throw UsageFailure(option + ' ' + text +
                           ": no range of addresses; write it like 192.168.1.20, "
                           "192.168.1.0/24 or fd00::/8");
    mBits = static_cast<std::size_t>(*bits);
}

bool HostRange::Has(const SocketAddress& peer) const
{
    std::array<unsigned char, 16> bytes = {};
    if (BytesOf(peer, bytes) != mSize)
        return false;
    for (std::size_t bit = 0; bit < mBits; ++bit) {
        const unsigned int mask = 0x80u >> (bit % 8);
        if (((bytes[bit / 8] ^ mBytes[bit / 8]) & mask) != 0)
            return false;
    }
    return true;
}

} // namespace tarn::tool
