#ifndef TARN_TESTS_CONTRACT_CONTRACT_TEST_H
#define TARN_TESTS_CONTRACT_CONTRACT_TEST_H

#include "CanBusContract.h"

#include <plexa_can/CanMessage.h>
#include <plexa_can/iCanMessageHandler.h>

#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <ostream>
#include <string>
#include <thread>
#include <tuple>
#include <utility>
#include <vector>

// What the tests of the contract are made of.

namespace tarn::contract
{

/// How long a test waits for what must happen before it fails.
constexpr std::chrono::seconds PATIENCE(20);

/// How long a test looks whether something happens that must not.
constexpr std::chrono::milliseconds SHORT_LOOK(50);

constexpr unsigned int EXTENDED = 1; ///< flags of a frame with a 29-bit identifier
constexpr unsigned int REMOTE = 2;
constexpr unsigned int ERROR = 4;

/// A gate that threads wait at until somebody opens it.
class Gate
{
public:
    void Open()
    {
        const std::lock_guard<std::mutex> lock(mMutex);
        mOpen = true;
        mChanged.notify_all();
    }

    /// False when nobody opened it in time.
    bool Pass(std::chrono::milliseconds patience = PATIENCE)
    {
        std::unique_lock<std::mutex> lock(mMutex);
        return mChanged.wait_for(lock, patience, [this] { return mOpen; });
    }

private:
    std::mutex mMutex;
    std::condition_variable mChanged;
    bool mOpen = false;
};

/// The contents of a frame.
struct Frame {
    unsigned int header = 0;
    unsigned int flags = EXTENDED;
    std::vector<unsigned char> data;

    bool operator==(const Frame& other) const
    {
        return header == other.header && flags == other.flags && data == other.data;
    }

    bool operator<(const Frame& other) const
    {
        return std::tie(header, flags, data) < std::tie(other.header, other.flags, other.data);
    }
};

inline void PrintTo(const Frame& frame, std::ostream* out)
{
    *out << std::hex << frame.header << '/' << frame.flags << '#';
    for (const unsigned int byte : frame.data)
        *out << ' ' << byte;
    *out << std::dec;
}

inline CanMessage MessageOf(Frame frame)
{
    CanMessage message;
    message.SetHeader(frame.header);
    message.GetFlags() = frame.flags;
    message.SetData(frame.data);
    return message;
}

inline Frame FrameOf(CanMessage& message)
{
    return {message.GetHeader(), message.GetFlags(), message.GetData()};
}

/// Keeps the frames it gets, then does what it was told to.
class Recorder : public iCanMessageHandler
{
public:
    using Action = std::function<void(CanMessage&)>;

    explicit Recorder(Action action = {}) : mAction(std::move(action)) {}
    ~Recorder() noexcept override {}
    Recorder(const Recorder&) = delete;
    Recorder& operator=(const Recorder&) = delete;

    void DispatchResponse(CanMessage& message) override
    {
        {
            const std::lock_guard<std::mutex> lock(mMutex);
            mFrames.push_back(FrameOf(message));
            mChanged.notify_all();
        }
        if (mAction)
            mAction(message);
    }

    bool AwaitCount(std::size_t count)
    {
        std::unique_lock<std::mutex> lock(mMutex);
        return mChanged.wait_for(lock, PATIENCE, [&] { return mFrames.size() >= count; });
    }

    std::vector<Frame> Frames()
    {
        const std::lock_guard<std::mutex> lock(mMutex);
        return mFrames;
    }

    std::vector<unsigned int> Headers()
    {
        std::vector<unsigned int> headers;
        for (const Frame& frame : Frames())
            headers.push_back(frame.header);
        return headers;
    }

private:
    Action mAction;
    std::mutex mMutex;
    std::condition_variable mChanged;
    std::vector<Frame> mFrames;
};

/// Is started on a connection for as long as it lives.
class Ear : public Recorder
{
public:
    explicit Ear(CanBusUnderTest::Connection connection, Action action = {})
        : Recorder(std::move(action)),
          mConnection(std::move(connection))
    {
        mConnection->Start(this);
    }
    ~Ear() noexcept override { mConnection->Stop(this); }

private:
    const CanBusUnderTest::Connection mConnection;
};

/// Is joined when it goes.
class Thread
{
public:
    explicit Thread(std::function<void()> work) : mThread(std::move(work)) {}
    ~Thread() { Join(); }
    Thread(const Thread&) = delete;
    Thread& operator=(const Thread&) = delete;

    void Join()
    {
        if (mThread.joinable())
            mThread.join();
    }

private:
    std::thread mThread;
};

/// A test that is a function.
class ContractTest : public testing::Test
{
public:
    using Body = void (*)(const CanBusUnderTest& bus);

    ContractTest(CanBusUnderTest bus, Body body) : mBus(std::move(bus)), mBody(body) {}
    void TestBody() override { mBody(mBus); }

    /// Makes the test known to GoogleTest.
    static void Add(const std::string& suite, const char* name, const CanBusUnderTest& bus,
                    Body body)
    {
        testing::RegisterTest(
            (suite + '/' + bus.name).c_str(), name, nullptr, nullptr, __FILE__, __LINE__,
            [bus, body]() -> testing::Test* { return new ContractTest(bus, body); });
    }

private:
    const CanBusUnderTest mBus;
    const Body mBody;
};

} // namespace tarn::contract

#endif
