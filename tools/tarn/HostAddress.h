#ifndef TARN_TOOLS_HOST_ADDRESS_H
#define TARN_TOOLS_HOST_ADDRESS_H

#include <array>
#include <cstddef>
#include <string>
#include <sys/socket.h>

namespace tarn::tool
{

/// Where a socket is bound or sends to.
struct SocketAddress {
    sockaddr_storage storage = {};
    socklen_t size = 0;

    const sockaddr* Get() const { return reinterpret_cast<const sockaddr*>(&storage); }
    /// "127.0.0.1:29536", "[::1]:29536"
    std::string Text() const;
    bool IsLoopback() const;
};

/// Reads ADDRESS:PORT; an address of IPv6 stands in brackets. Names are not looked up.
/// @param option begins the message of a refusal
/// @throws Failure
SocketAddress ParseSocketAddress(const std::string& option, const std::string& text);

/// Addresses with the same first bits: "192.168.1.0/24", "::1".
class HostRange
{
public:
    /// @throws Failure as above
    HostRange(const std::string& option, const std::string& text);

    bool Has(const SocketAddress& peer) const;

private:
    std::array<unsigned char, 16> mBytes = {};
    std::size_t mSize = 0;
    std::size_t mBits = 0;
};

} // namespace tarn::tool

#endif
