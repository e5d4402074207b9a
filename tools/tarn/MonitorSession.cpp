#include "MonitorSession.h"

#include "BusState.h"
#include "MonitorScreen.h"

#include <unistd.h>

namespace tarn::tool
{

MonitorSession::MonitorSession(LiveBus& bus, Terminal& terminal, MonitorModel& model,
                               const MonitorBus& facts)
    : mBus(bus),
      mTerminal(terminal),
      mModel(model),
      mFacts(facts)
{
    mView.unicode = terminal.IsUnicode();
    mBus.KeepSilent();
    mBus.AlsoWaitFor(STDIN_FILENO);
}

void MonitorSession::Run(Clock::time_point until)
{
    mBus.Listen(
        until,
        [this](CandumpLine& line) {
            mModel.Take(line, Now());
            return true;
        },
        [this] { Pause(); });
}

void MonitorSession::Pause()
{
    mTerminal.SuspendIfAsked();
    const bool hasKeys = TakeKeys();
    const bool hasSize = TakeSize();
    mMustDraw = mMustDraw || hasKeys || hasSize;
    const Clock::time_point now = Clock::now();
    if ((!mMustDraw && now < mNextDrawing) || !mTerminal.IsReady())
        return;
    mMustDraw = false;
    mNextDrawing = now + PERIOD;
    Draw();
}

bool MonitorSession::TakeKeys()
{
    bool any = false;
    while (const auto key = mTerminal.ReadKey()) {
        any = true;
        Do(PressKey(*key, Picture(), mView));
    }
    return any;
}

void MonitorSession::Do(tMonitorAction action)
{
    switch (action) {
    case ACTION_QUIT:
        return mBus.EndListening();
    case ACTION_CLEAR:
        mModel.Clear();
        if (mSnapshot)
            mSnapshot->model.Clear();
        return;
    case ACTION_PAUSE:
        UpdateFacts();
        mSnapshot.reset();
        if (mView.isPaused)
            mSnapshot.emplace(Snapshot{mModel, mFacts, Now()});
        return;
    case ACTION_REDRAW:
        return mTerminal.DrawAnew();
    default:
        return;
    }
}

bool MonitorSession::TakeSize()
{
    const Terminal::Size size = mTerminal.GetSize();
    const bool isNew = size.width != mView.width || size.height != mView.height;
    mView.width = size.width;
    mView.height = size.height;
    return isNew;
}

void MonitorSession::Draw()
{
    UpdateFacts();
    mTerminal.Show(RenderMonitor(Picture(), mView));
}

void MonitorSession::UpdateFacts()
{
    mFacts.counters = mBus.GetCounters();
    mFacts.overflows = mBus.GetOverflows();
    mFacts.state = DescribeState(mBus.GetBus());
}

MonitorPicture MonitorSession::Picture() const
{
    if (mSnapshot)
        return {mSnapshot->model, mSnapshot->bus, mSnapshot->now};
    return {mModel, mFacts, Now()};
}

} // namespace tarn::tool
