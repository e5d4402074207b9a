#ifndef TARN_TESTS_PLATFORM_SCRIPTED_SERVER_H
#define TARN_TESTS_PLATFORM_SCRIPTED_SERVER_H

#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <stdexcept>
#include <string>
#include <sys/socket.h>
#include <unistd.h>

namespace tarn::test
{

/// The far side of a TCP connection on the loopback interface, word by word. For one thread.
class ScriptedServer
{
public:
    ScriptedServer()
    {
        sockaddr_in address = {};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof address;
        auto* const where = reinterpret_cast<sockaddr*>(&address);
        if (::bind(mListener, where, size) != 0 || ::listen(mListener, 8) != 0 ||
            ::getsockname(mListener, where, &size) != 0)
            throw std::runtime_error("no server on the loopback interface");
        mPort = std::to_string(ntohs(address.sin_port));
    }
    ~ScriptedServer()
    {
        HangUp();
        StopListening();
    }
    ScriptedServer(const ScriptedServer&) = delete;
    ScriptedServer& operator=(const ScriptedServer&) = delete;

    const std::string& Port() const { return mPort; }

    /// Takes the next connection.
    void Accept(int receiveBuffer = 0)
    {
        if (receiveBuffer != 0)
            ::setsockopt(mListener, SOL_SOCKET, SO_RCVBUF, &receiveBuffer, sizeof receiveBuffer);
        HangUp();
        if (IsReadable(mListener))
            mConnection = ::accept(mListener, nullptr, nullptr);
    }

    void Say(const std::string& text) const
    {
        EXPECT_EQ(::send(mConnection, text.data(), text.size(), MSG_NOSIGNAL),
                  static_cast<ssize_t>(text.size()));
    }

    /// False when the other side is gone.
    bool TrySay(const std::string& text) const
    {
        return ::send(mConnection, text.data(), text.size(), MSG_NOSIGNAL) > 0;
    }

    /// Waits until the other side has said something that ends so; returns all since the last call.
    std::string HearUntil(const std::string& end)
    {
        std::string heard;
        char character = 0;
        while (heard.size() < end.size() ||
               heard.compare(heard.size() - end.size(), end.size(), end) != 0) {
            if (!IsReadable(mConnection) || ::recv(mConnection, &character, 1, 0) != 1)
                return heard + " (and then nothing)";
            heard += character;
        }
        return heard;
    }

    /// All that comes until the other side hangs up.
    std::string HearOut()
    {
        std::string heard;
        char block[4096];
        while (IsReadable(mConnection)) {
            const ssize_t size = ::recv(mConnection, block, sizeof block, 0);
            if (size <= 0)
                return heard;
            heard.append(block, static_cast<std::size_t>(size));
        }
        return heard + " (and never hangs up)";
    }

    /// Greets, and opens whatever bus is wanted.
    void OpenBus()
    {
        Say("< hi >");
        HearUntil(" >");
        Say("< ok >");
        HearUntil("< rawmode >");
        Say("< ok >");
    }

    void HangUp()
    {
        if (mConnection >= 0)
            ::close(mConnection);
        mConnection = -1;
    }

    void StopListening()
    {
        if (mListener >= 0)
            ::close(mListener);
        mListener = -1;
    }

private:
    static bool IsReadable(int descriptor)
    {
        constexpr int PATIENCE = 20000;
        pollfd input = {descriptor, POLLIN, 0};
        return ::poll(&input, 1, PATIENCE) == 1;
    }

    int mListener = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    int mConnection = -1;
    std::string mPort;
};

} // namespace tarn::test

#endif
