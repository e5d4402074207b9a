#include "ServerClient.h"

#include <algorithm>
#include <cerrno>
#include <sys/socket.h>
#include <unistd.h>
#include <utility>

namespace tarn::tool
{

ServerClient::ServerClient(int descriptor, std::string name, std::size_t queueBytes)
    : mDescriptor(descriptor),
      mName(std::move(name)),
      mQueueBytes(queueBytes)
{
}

ServerClient::~ServerClient()
{
    ::close(mDescriptor);
}

bool ServerClient::Tell(const std::string& text)
{
    if (mOut.size() - mSent + text.size() > mQueueBytes)
        return false;
    if (mSent > mQueueBytes / 2) {
        mOut.erase(0, mSent);
        mSent = 0;
    }
    mOut += text;
    return true;
}

void ServerClient::Dismiss(const std::string& complaint)
{
    // Elements end in '>' and have none inside.
    const bool isBegun = mSent > 0 && mSent < mOut.size() && mOut[mSent - 1] != '>';
    mOut.resize(isBegun ? std::min(mOut.find('>', mSent), mOut.size() - 1) + 1 : mSent);
    AppendSocketCandError(complaint, mOut);
    mState = STATE_LEAVING;
}

bool ServerClient::WriteOut()
{
    while (HasOutput()) {
        const ssize_t size = ::send(mDescriptor, mOut.data() + mSent, mOut.size() - mSent,
                                    MSG_DONTWAIT | MSG_NOSIGNAL);
        if (size < 0 && errno != EINTR)
            return errno == EAGAIN;
        mSent += static_cast<std::size_t>(std::max<ssize_t>(size, 0));
    }
    mOut.clear();
    mSent = 0;
    return true;
}

std::uint64_t ServerClient::CountWaiting() const
{
    const auto begin = mOut.begin() + static_cast<std::ptrdiff_t>(mSent);
    return static_cast<std::uint64_t>(std::count(begin, mOut.end(), '>'));
}

bool ServerClient::ReadIn()
{
    const ssize_t size = ::recv(mDescriptor, mInput.data(), mInput.size(), MSG_DONTWAIT);
    if (size < 0)
        return errno == EAGAIN || errno == EINTR;
    mAt = mInput.data();
    mEnd = mAt + size;
    return size > 0;
}

void ServerClient::EndOutput()
{
    ::shutdown(mDescriptor, SHUT_WR);
    mEnded = true;
}

} // namespace tarn::tool
