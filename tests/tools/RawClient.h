#ifndef TESTS_TOOLS_RAW_CLIENT_H
#define TESTS_TOOLS_RAW_CLIENT_H

#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <string>
#include <sys/socket.h>
#include <unistd.h>

namespace tarn::test
{

/// A client that says what it is told to, sense or nonsense.
class RawClient
{
public:
    explicit RawClient(const std::string& port, const char* from = "127.0.0.1",
                       int receiveBuffer = 0)
    {
        if (receiveBuffer != 0)
            ::setsockopt(mSocket, SOL_SOCKET, SO_RCVBUF, &receiveBuffer, sizeof receiveBuffer);
        const sockaddr_in here = AddressOf(from, 0);
        const sockaddr_in there = AddressOf("127.0.0.1", std::stoi(port));
        ::bind(mSocket, reinterpret_cast<const sockaddr*>(&here), sizeof here);
        ::connect(mSocket, reinterpret_cast<const sockaddr*>(&there), sizeof there);
    }
    ~RawClient() { ::close(mSocket); }
    RawClient(const RawClient&) = delete;
    RawClient& operator=(const RawClient&) = delete;

    /// False when the server takes no more.
    bool Say(const std::string& text) const
    {
        std::size_t done = 0;
        while (done < text.size()) {
            const ssize_t size =
                ::send(mSocket, text.data() + done, text.size() - done, MSG_NOSIGNAL);
            if (size <= 0)
                return false;
            done += static_cast<std::size_t>(size);
        }
        return true;
    }

    /// The next element; short when the server hangs up or says nothing for long.
    std::string Hear()
    {
        std::size_t end = mHeard.find('>');
        while (end == std::string::npos && Receive())
            end = mHeard.find('>');
        const std::string element = mHeard.substr(0, end == std::string::npos ? end : end + 1);
        mHeard.erase(0, element.size());
        return element;
    }

    /// All that comes until the server hangs up.
    std::string HearOut()
    {
        while (Receive()) {
        }
        return mHeard;
    }

    /// Opens the bus; what the server has said to it, in one line.
    std::string OpenBus(const std::string& bus = "bench")
    {
        std::string heard = Hear();
        Say("< open " + bus + " >");
        heard += Hear();
        Say("< rawmode >");
        heard += Hear();
        return heard;
    }

private:
    static sockaddr_in AddressOf(const char* host, int port)
    {
        sockaddr_in address = {};
        address.sin_family = AF_INET;
        address.sin_port = htons(static_cast<std::uint16_t>(port));
        ::inet_pton(AF_INET, host, &address.sin_addr);
        return address;
    }

    /// False when the server has hung up, or says nothing for long, which is a failure.
    bool Receive()
    {
        constexpr int PATIENCE = 20000;
        char block[4096];
        pollfd input = {mSocket, POLLIN, 0};
        if (::poll(&input, 1, PATIENCE) != 1) {
            ADD_FAILURE() << "the server neither says anything nor hangs up";
            return false;
        }
        const ssize_t size = ::recv(mSocket, block, sizeof block, 0);
        mHeard.append(block, static_cast<std::size_t>(size > 0 ? size : 0));
        return size > 0;
    }

    std::string mHeard;
    const int mSocket = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
};

} // namespace tarn::test

#endif
