#ifndef TARN_TOOLS_SCANNER_H
#define TARN_TOOLS_SCANNER_H

#include "Requester.h"

#include <plexa_can/iCanAsyncDispatcher.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <tuple>
#include <vector>

namespace tarn::tool
{

/// Asks many devices at once and listens meanwhile. Belongs to one thread, which sends and hands
/// over what it received.
class Scanner
{
public:
    using Clock = std::chrono::steady_clock;

    /// Requests that wait for their answer at the same time: enough to be quick, few enough to
    /// leave the bus to others.
    static constexpr std::size_t WINDOW = 16;

    /// The first of several messages.
    struct Heard {
        TarnMessage message;
        CanMessage frame;
        std::uint64_t count = 0;
    };

    /// @param requests READ requests from one source to devices, each to another device or module
    Scanner(const std::vector<TarnMessage>& requests, Duration timeout);

    /// Sends as many requests as may wait.
    /// @throws CanException
    void Send(iCanAsyncDispatcher& bus);

    /// Takes an answer, also one that comes too late; remembers everything else.
    void Take(CanMessage& frame);

    /// True when every request was answered or waited for long enough.
    bool IsDone() const { return mNext == mResults.size() && mOpen == 0; }

    /// When the first request will have waited long enough; long ago when none waits.
    Clock::time_point NextDeadline() const;

    std::size_t CountAsked() const { return mNext; }

    /// In the order of the requests.
    const std::vector<RequestResult>& GetResults() const { return mResults; }

    /// Of DATA messages that were no answers, by source address.
    const std::map<unsigned int, Heard>& GetSources() const { return mSources; }

    /// By MAC identifier.
    const std::map<unsigned int, Heard>& GetChcp() const { return mChcp; }

private:
    /// Address, addressing mode, module.
    using Key = std::tuple<unsigned char, int, unsigned char>;

    struct Wait {
        bool open = false;
        Clock::time_point deadline;
        std::uint64_t sent = 0; ///< nanoseconds since 1970
    };

    void SendNext(iCanAsyncDispatcher& bus);
    void CloseExpired();
    void Close(std::size_t at);
    bool IsAnswer(const TarnMessage& message) const;
    bool TakeAnswer(const TarnMessage& message, std::uint64_t time);

    const Duration mTimeout;
    std::vector<RequestResult> mResults;
    std::vector<Wait> mWaits;
    std::map<Key, std::size_t> mPlaces;
    std::map<unsigned int, Heard> mSources;
    std::map<unsigned int, Heard> mChcp;
    std::size_t mNext = 0;
    std::size_t mOpen = 0;
};

} // namespace tarn::tool

#endif
