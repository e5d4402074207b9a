#ifndef TARN_TOOLS_SERVER_CLIENT_H
#define TARN_TOOLS_SERVER_CLIENT_H

#include <plexa_can/SocketCandText.h>

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>

namespace tarn::tool
{

/// The connection to one client of a server: what it was sent and was not read yet, what it says.
/// Holds a bounded amount of memory, whatever the client does.
class ServerClient
{
public:
    using Clock = std::chrono::steady_clock;

    enum tState : int {
        STATE_GREETED, ///< connected; has opened no bus yet
        STATE_OPEN,    ///< may send
        STATE_RAW,     ///< gets all frames too
        STATE_LEAVING  ///< gets what it is still to be told, then goes
    };

    /// @param descriptor is closed at the end
    /// @param queueBytes most bytes that wait for the client
    ServerClient(int descriptor, std::string name, std::size_t queueBytes);
    ~ServerClient();
    ServerClient(const ServerClient&) = delete;
    ServerClient& operator=(const ServerClient&) = delete;

    int GetDescriptor() const { return mDescriptor; }
    const std::string& GetName() const { return mName; }
    tState GetState() const { return mState; }
    void SetState(tState state) { mState = state; }

    /// Has the client told something. False when that is too much for the queue: it is left out.
    bool Tell(const std::string& text);

    /// Throws away what waits, but for an element that is half written, to tell this and go.
    void Dismiss(const std::string& complaint);

    /// Sends what waits, as far as it can be done at once. False when the connection is broken.
    bool WriteOut();
    bool HasOutput() const { return mSent < mOut.size(); }
    /// Frames that wait, but for one that is half written.
    std::uint64_t CountWaitingFrames() const;

    /// Takes in what came. False when the client is gone.
    bool ReadIn();
    /// The next element of what was taken in.
    bool NextElement(SocketCandElement& element) { return mReader.Next(mAt, mEnd, element); }
    bool HasInput() const { return mAt != mEnd; }

    /// Tells the client that nothing more comes.
    void EndOutput();
    bool HasEndedOutput() const { return mEnded; }

    unsigned int framesUnderWay = 0; ///< on their way to the bus
    unsigned int interest = 0;       ///< what is waited for: EPOLLIN, EPOLLOUT
    Clock::time_point deadline = {}; ///< for opening the bus, or for leaving

private:
    static constexpr std::size_t INPUT_SIZE = 4096;

    const int mDescriptor;
    const std::string mName;
    const std::size_t mQueueBytes;
    tState mState = STATE_GREETED;
    std::string mOut;
    std::size_t mSent = 0; ///< bytes of mOut
    bool mEnded = false;
    SocketCandReader mReader;
    std::array<char, INPUT_SIZE> mInput = {};
    const char* mAt = nullptr;
    const char* mEnd = nullptr;
};

} // namespace tarn::tool

#endif
