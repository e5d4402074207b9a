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

std::uint64_t ServerClient::CountWaitingFrames() const
{
    std::uint64_t count = 0;
    for (std::size_t at = mOut.find('<', mSent); at != std::string::npos;
         at = mOut.find('<', at + 1)) {
        const bool isFrame =
            mOut.compare(at, 8, "< frame ") == 0 || mOut.compare(at, 6, "< rtr ") == 0;
        // Complaints begin with a small letter.
        const bool isError = mOut.compare(at, 8, "< error ") == 0 && mOut[at + 8] <= 'F';
        count += isFrame || isError ? 1u : 0u;
    }
    return count;
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
