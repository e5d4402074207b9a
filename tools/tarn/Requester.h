#ifndef TARN_TOOLS_REQUESTER_H
#define TARN_TOOLS_REQUESTER_H

#include "Duration.h"
#include "MessageFields.h"

#include <plexa_can/iCanAsyncDispatcher.h>
#include <tarn/TarnMessage.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <thread>
#include <tr1/memory>
#include <vector>

namespace tarn::tool
{

/// What became of a request.
struct RequestResult {
    TarnMessage request;
    /// Valid when there was an answer.
    TarnMessage response;
    bool answered = false;
    /// From the last time that the request was sent to its answer.
    Duration latency = Duration::zero();
    /// Nanoseconds since 1970.
    std::uint64_t time = 0;
};

/// Sends requests one after another on a thread of its own, so that the thread that shows the
/// results stays free for signals.
class Requester
{
public:
    struct Plan {
        std::vector<TarnMessage> requests;    ///< a round
        std::uint64_t rounds = 1;             ///< 0: until stopped
        Duration interval = Duration::zero(); ///< from the beginning of a round to the next
        unsigned int timeout = 0;             ///< milliseconds, for each attempt
        unsigned int retries = 0;             ///< attempts after the first
    };

    /// Begins at once.
    Requester(std::tr1::shared_ptr<iCanAsyncDispatcher> bus, Plan plan);

    /// As End().
    ~Requester();
    Requester(const Requester&) = delete;
    Requester& operator=(const Requester&) = delete;

    /// Ends the plan after the running request. One that takes longer than a moment is left to
    /// itself, and so is what it uses.
    void End();

    /// Whether a request was left to itself, which may use static objects at any time: the process
    /// must not destroy them then.
    static bool HasLeftAny();

    /// Waits for results and hands them over one by one. Returns false when there will be no more:
    /// the plan is done, or a stop signal came.
    /// @throws whatever the bus threw
    bool TakeResults(const std::function<void(const RequestResult&)>& take);

private:
    struct State;

    std::shared_ptr<State> mState;
    std::thread mThread;
};

} // namespace tarn::tool

#endif
