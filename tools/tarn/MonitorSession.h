#ifndef TARN_TOOLS_MONITOR_SESSION_H
#define TARN_TOOLS_MONITOR_SESSION_H

#include "LiveBus.h"
#include "MonitorKeys.h"
#include "MonitorModel.h"
#include "MonitorView.h"
#include "Terminal.h"

#include <chrono>
#include <optional>

namespace tarn::tool
{

/// Brings bus, model and terminal together until somebody or something ends it.
class MonitorSession
{
public:
    /// Between two drawings of what has come; a key is answered at once.
    static constexpr std::chrono::milliseconds PERIOD{100};

    /// All of them outlive this object.
    /// @param facts about the bus that do not change
    MonitorSession(LiveBus& bus, Terminal& terminal, MonitorModel& model, const MonitorBus& facts);

    /// Runs until the time, a key or a signal, or the end of a log.
    void Run(LiveBus::Clock::time_point until);

private:
    using Clock = LiveBus::Clock;

    /// What stands still during a pause.
    struct Snapshot {
        MonitorModel model;
        MonitorBus bus;
        Duration now;
    };

    void Pause();
    /// Returns true when there were any.
    bool TakeKeys();
    void Do(tMonitorAction action);
    bool TakeSize();
    void Draw();
    void UpdateFacts();
    Duration Now() const { return Clock::now() - mBegin; }
    MonitorPicture Picture() const;

    LiveBus& mBus;
    Terminal& mTerminal;
    MonitorModel& mModel;
    MonitorBus mFacts;
    MonitorView mView;
    std::optional<Snapshot> mSnapshot;
    Clock::time_point mBegin = Clock::now();
    Clock::time_point mNextDrawing = mBegin;
    bool mMustDraw = true;
};

} // namespace tarn::tool

#endif
