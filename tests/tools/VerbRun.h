#ifndef TESTS_TOOLS_VERB_RUN_H
#define TESTS_TOOLS_VERB_RUN_H

#include "Command.h"
#include "support/Await.h"
#include "support/CanFakes.h"

#include <plexa_can/VirtualCanBus.h>

#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

namespace tarn::test
{

/// The tarn command inside this process, where it shares virtual buses with the test. One at a
/// time.
class VerbRun
{
public:
    explicit VerbRun(std::vector<std::string> arguments) : mArguments(std::move(arguments))
    {
        testing::internal::CaptureStdout();
        testing::internal::CaptureStderr();
        mThread = std::thread([this] { Run(); });
    }
    ~VerbRun()
    {
        if (mThread.joinable())
            Wait();
    }
    VerbRun(const VerbRun&) = delete;
    VerbRun& operator=(const VerbRun&) = delete;

    /// Waits for the end. Returns the exit status.
    int Wait()
    {
        mThread.join();
        std::fflush(stderr);
        out = testing::internal::GetCapturedStdout();
        err = testing::internal::GetCapturedStderr();
        return mStatus;
    }

    std::string out;
    std::string err;

private:
    void Run()
    {
        std::vector<const char*> pointers = {"tarn"};
        for (const std::string& argument : mArguments)
            pointers.push_back(argument.c_str());
        mStatus = tool::RunTarn(static_cast<int>(pointers.size()), pointers.data());
    }

    std::vector<std::string> mArguments;
    int mStatus = -1;
    std::thread mThread;
};

/// What the other end of a virtual bus does in a test.
class Partner
{
public:
    explicit Partner(const std::string& bus)
        : mBus(VirtualCanBus::Open(bus)),
          mNode(mBus->Connect())
    {
        mNode->Start(&mHeard);
    }
    ~Partner() { mNode->Stop(&mHeard); }
    Partner(const Partner&) = delete;
    Partner& operator=(const Partner&) = delete;

    /// Waits until somebody else listens. The frames sent to find out are remote requests.
    void AwaitListener()
    {
        CanMessage probe;
        probe.GetFlags() = CanMessage::FLAG_REMOTE;
        for (;;) {
            const unsigned long long before = mBus->GetCounters().delivered;
            mNode->Send(probe);
            mBus->WaitUntilIdle(1000);
            if (mBus->GetCounters().delivered > before)
                return;
            std::this_thread::yield();
        }
    }

    void Send(unsigned int header, const std::vector<unsigned char>& data)
    {
        CanMessage frame = ExtendedFrame(header, data);
        mNode->Send(frame);
    }

    VirtualCanBus& GetBus() { return *mBus; }
    std::tr1::shared_ptr<VirtualCanNode> GetNode() { return mNode; }

    /// Waits until it was sent so many frames.
    bool AwaitHeard(std::size_t count) { return mHeard.AwaitCount(count); }

    /// What was sent to it, each frame as text behind a blank.
    std::string Heard()
    {
        std::string text;
        for (const CanMessage& frame : mHeard.Frames())
            text += ' ' + frame.ToString();
        return text;
    }

private:
    std::tr1::shared_ptr<VirtualCanBus> mBus;
    std::tr1::shared_ptr<VirtualCanNode> mNode;
    FrameRecorder mHeard;
};

} // namespace tarn::test

#endif
