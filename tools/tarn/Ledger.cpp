#include "Ledger.h"

#include <cstdio>

namespace tarn::tool
{

namespace
{

class Words
{
public:
    void Add(unsigned long long count, const char* what)
    {
        if (count > 0)
            AddAlways(count, what);
    }

    void AddAlways(unsigned long long count, const char* what)
    {
        mText += (mText.empty() ? "" : ", ") + std::to_string(count) + ' ' + what;
    }

    const std::string& Text() const { return mText; }

private:
    std::string mText;
};

} // namespace

std::string DescribeLedger(const CanBusCounters& counters)
{
    Words words;
    words.AddAlways(counters.received, "received");
    words.Add(counters.errorFrames, "of them error frames");
    words.Add(counters.unheard, "not listened to");
    words.Add(counters.filtered, "filtered by the bus");
    words.Add(counters.lost, "lost by a fault");
    words.AddAlways(counters.droppedByKernel, "dropped by the kernel");
    words.Add(counters.handlerExceptions, "exceptions");
    words.Add(counters.sent, "sent");
    words.Add(counters.unconfirmed, "of them in doubt");
    words.Add(counters.sendRetries, "waits for a full queue");
    words.Add(counters.sendFailures, "could not be sent");
    words.Add(counters.disconnections, "times disconnected");
    return words.Text();
}

void DropWatch::Look(const CanBusCounters& counters)
{
    if (counters.disconnections > mDisconnections)
        std::fprintf(stderr,
                     "%s: %s: the connection broke: what came over the bus meanwhile was not "
                     "heard; with ?reconnect=1 it is made again\n",
                     mVerb.c_str(), mBus.c_str());
    mDisconnections = counters.disconnections;
    if (counters.droppedByKernel <= mTold)
        return;
    std::fprintf(stderr,
                 "%s: %s: the kernel dropped %llu frames (%llu in all): this process was too slow "
                 "for the bus; name the bus with ?buffer=4000000&priority=50\n",
                 mVerb.c_str(), mBus.c_str(), counters.droppedByKernel - mTold,
                 counters.droppedByKernel);
    mTold = counters.droppedByKernel;
}

} // namespace tarn::tool
