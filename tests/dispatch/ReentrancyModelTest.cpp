#include "support/DispatchFakes.h"

#include <tarn/TarnAsyncDispatcher.h>
#include <tarn/TarnAsyncDispatcherMock.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <utility>
#include <vector>

// Handlers that subscribe, unsubscribe, dispatch, throw and leave at random, to any depth: the same
// random program is run on a dispatcher and on a model, and both must call the same handlers in the
// same order. The model never removes an entry: it marks it dead, so that it cannot go wrong in the
// way a list can.

namespace
{

using namespace tarn;
using namespace tarn::test;

enum class tFamily { SOURCE, TARGET, CHCP, ALL };

constexpr int HANDLERS = 8;
constexpr int DEEPEST = 4;
constexpr std::array<unsigned char, 3> ADDRESSES = {0, 5, 126};

struct List {
    tFamily family;
    unsigned char address; // 0 for CHCP and All
    bool operator<(const List& other) const
    {
        return std::pair(family, address) < std::pair(other.family, other.address);
    }
};

struct Frame {
    bool chcp;
    unsigned char source;
    unsigned char target;
};

/// What the random program acts upon.
class iSubject
{
public:
    virtual ~iSubject() = default;
    virtual void Subscribe(const List& list, int handler) = 0;
    virtual void Unsubscribe(const List& list, int handler) = 0;
    virtual void Dispatch(const Frame& frame) = 0;
};

struct HandlerError {
};

/// Decides at random what is done, from outside and inside handlers, and keeps a protocol of it.
/// The protocol depends on the calls that the subject makes, and so does the sequence of random
/// numbers.
class Program
{
public:
    Program(unsigned int seed, int operations) : mRandom(seed), mOperations(operations) {}

    std::string Run(iSubject& subject)
    {
        mSubject = &subject;
        for (int i = 0; i < mOperations; ++i) {
            mCallsLeft = 60;
            try {
                Act(nullptr, -1);
            } catch (const HandlerError&) {
                mProtocol += "!";
            }
        }
        Probe();
        return std::move(mProtocol);
    }

    /// A handler was called.
    bool OnCall(int handler)
    {
        mProtocol += std::to_string(handler);
        if (mProbing)
            return false;
        ++mDepth;
        const bool result = Behave(handler);
        --mDepth;
        mProtocol += result ? "x" : ".";
        return result;
    }

    unsigned long long Actions() const { return mActions; }

private:
    unsigned int Draw(unsigned int below) { return static_cast<unsigned int>(mRandom() % below); }

    bool Behave(int handler)
    {
        try {
            --mCallsLeft;
            for (unsigned int i = Draw(3); i > 0 && mCallsLeft > 0; --i)
                Act(&mCurrent, handler);
            if (Draw(20) == 0)
                throw HandlerError();
        } catch (const HandlerError&) {
            if (Draw(2) == 0) {
                --mDepth;
                throw;
            }
            mProtocol += "c";
        }
        return Draw(4) == 0;
    }

    List AnyList()
    {
        const auto family = static_cast<tFamily>(Draw(4));
        const bool hasAddress = family == tFamily::SOURCE || family == tFamily::TARGET;
        return {family,
                hasAddress ? ADDRESSES[Draw(ADDRESSES.size())] : static_cast<unsigned char>(0)};
    }

    void Act(const Frame* current, int self)
    {
        ++mActions;
        switch (Draw(current != nullptr ? 6 : 4)) {
        case 0:
        case 1:
            return Subscribe(AnyList());
        case 2:
            return mSubject->Unsubscribe(AnyList(), static_cast<int>(Draw(HANDLERS)));
        case 3:
            return Dispatch();
        default: // more often than by chance: the list that is delivering, and the handler itself
            return mSubject->Unsubscribe(DeliveringList(*current),
                                         Draw(2) == 0 ? self : static_cast<int>(Draw(HANDLERS)));
        }
    }

    List DeliveringList(const Frame& frame)
    {
        if (Draw(3) == 0)
            return {tFamily::ALL, 0};
        if (frame.chcp)
            return {tFamily::CHCP, 0};
        return Draw(2) == 0 ? List{tFamily::SOURCE, frame.source}
                            : List{tFamily::TARGET, frame.target};
    }

    void Subscribe(const List& list)
    {
        if (mCallsLeft > 0)
            mSubject->Subscribe(list, static_cast<int>(Draw(HANDLERS)));
    }

    void Dispatch()
    {
        if (mDepth >= DEEPEST)
            return;
        const Frame outer = mCurrent;
        mCurrent = {Draw(4) == 0, ADDRESSES[Draw(ADDRESSES.size())],
                    ADDRESSES[Draw(ADDRESSES.size())]};
        const Frame frame = mCurrent;
        mProtocol += "(";
        const int depth = mDepth;
        try {
            mSubject->Dispatch(frame);
        } catch (...) {
            mCurrent = outer;
            mDepth = depth;
            mProtocol += ")";
            throw;
        }
        mCurrent = outer;
        mProtocol += ")";
    }

    /// Shows what is in every list at the end.
    void Probe()
    {
        mProbing = true;
        for (const unsigned char address : ADDRESSES) {
            mProtocol += "\n";
            mSubject->Dispatch({false, address, address});
        }
        mProtocol += "\n";
        mSubject->Dispatch({true, 0, 0});
    }

    std::mt19937 mRandom;
    const int mOperations;
    iSubject* mSubject = nullptr;
    std::string mProtocol;
    Frame mCurrent = {};
    int mDepth = 0;
    int mCallsLeft = 0;
    bool mProbing = false;
    unsigned long long mActions = 0;
};

/// The model: lists whose entries are never removed, only marked.
class Model : public iSubject
{
public:
    Model(Program& program, bool callsAll) : mProgram(program), mCallsAll(callsAll) {}

    void Subscribe(const List& list, int handler) override
    {
        mLists[list].push_back({handler, true});
    }

    void Unsubscribe(const List& list, int handler) override
    {
        for (auto& entry : mLists[list]) {
            if (entry.handler == handler)
                entry.alive = false;
        }
    }

    void Dispatch(const Frame& frame) override
    {
        if (frame.chcp) {
            Walk({tFamily::CHCP, 0});
        } else {
            Walk({tFamily::SOURCE, frame.source});
            Walk({tFamily::TARGET, frame.target});
        }
        if (mCallsAll)
            Walk({tFamily::ALL, 0});
    }

private:
    struct Entry {
        int handler;
        bool alive;
    };

    void Walk(const List& list)
    {
        auto& entries = mLists[list];
        for (std::size_t i = 0; i < entries.size(); ++i) {
            if (entries[i].alive && mProgram.OnCall(entries[i].handler))
                entries[i].alive = false;
        }
    }

    Program& mProgram;
    const bool mCallsAll;
    std::map<List, std::vector<Entry>> mLists;
};

template <typename Dispatcher>
class RealSubject : public iSubject
{
public:
    RealSubject(Program& program, std::tr1::shared_ptr<Dispatcher> dispatcher)
        : mDispatcher(std::move(dispatcher))
    {
        for (int i = 0; i < HANDLERS; ++i)
            mHandlers.emplace_back(new RecordingHandler(
                "", mUnused, [&program, i](TarnMessage&) { return program.OnCall(i); }));
    }

    void Subscribe(const List& list, int handler) override
    {
        iTarnMessageHandler* const pointer = mHandlers.at(static_cast<std::size_t>(handler)).get();
        switch (list.family) {
        case tFamily::SOURCE:
            return mDispatcher->SubscribeSource(list.address, pointer);
        case tFamily::TARGET:
            return mDispatcher->SubscribeTarget(list.address, pointer);
        case tFamily::CHCP:
            return mDispatcher->SubscribeChcp(pointer);
        case tFamily::ALL:
            return mDispatcher->SubscribeAll(pointer);
        }
    }

    void Unsubscribe(const List& list, int handler) override
    {
        iTarnMessageHandler* const pointer = mHandlers.at(static_cast<std::size_t>(handler)).get();
        switch (list.family) {
        case tFamily::SOURCE:
            return mDispatcher->UnsubscribeSource(list.address, pointer);
        case tFamily::TARGET:
            return mDispatcher->UnsubscribeTarget(list.address, pointer);
        case tFamily::CHCP:
            return mDispatcher->UnsubscribeChcp(pointer);
        case tFamily::ALL:
            return mDispatcher->UnsubscribeAll(pointer);
        }
    }

    void Dispatch(const Frame& frame) override
    {
        CanMessage raw = frame.chcp ? ChcpFrame(1) : DataFrame(frame.source, frame.target);
        mDispatcher->DispatchResponse(raw);
    }

private:
    std::tr1::shared_ptr<Dispatcher> mDispatcher;
    std::vector<std::unique_ptr<RecordingHandler>> mHandlers;
    std::string mUnused;
};

constexpr unsigned int SEEDS = 1200;
constexpr int OPERATIONS = 150;

template <typename Dispatcher>
void CompareWithModel(std::tr1::shared_ptr<Dispatcher> (*make)(), bool callsAll)
{
    unsigned long long actions = 0;
    unsigned long long calls = 0;
    for (unsigned int seed = 1; seed <= SEEDS; ++seed) {
        Program program(seed, OPERATIONS);
        RealSubject<Dispatcher> subject(program, make());
        const std::string observed = program.Run(subject);
        Program twin(seed, OPERATIONS);
        Model model(twin, callsAll);
        ASSERT_EQ(observed, twin.Run(model)) << "seed " << seed;
        actions += program.Actions();
        calls += static_cast<unsigned long long>(std::count_if(
            observed.begin(), observed.end(), [](char c) { return std::isdigit(c); }));
    }
    EXPECT_GT(actions, 100000u) << "the program has become too tame to prove anything";
    EXPECT_GT(calls, 100000u);
}

TEST(ReentrancyModel, TheDispatcherCallsWhatTheModelCalls)
{
    CompareWithModel<TarnAsyncDispatcher>(
        [] { return TarnAsyncDispatcher::Create(std::tr1::shared_ptr<iCanAsyncDispatcher>()); },
        true);
}

TEST(ReentrancyModel, TheMockCallsWhatTheModelCalls)
{
    CompareWithModel<TarnAsyncDispatcherMock>(&TarnAsyncDispatcherMock::Create, false);
}

} // namespace
