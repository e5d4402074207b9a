#include "support/DispatchFakes.h"

#include <tarn/TarnAsyncDispatcher.h>
#include <tarn/TarnAsyncDispatcherMock.h>

#include <gtest/gtest.h>

#include <stdexcept>
#include <thread>

namespace
{

using namespace tarn;
using namespace tarn::test;

template <typename Dispatcher>
std::tr1::shared_ptr<Dispatcher> Make();

template <>
std::tr1::shared_ptr<TarnAsyncDispatcher> Make<TarnAsyncDispatcher>()
{
    return TarnAsyncDispatcher::Create(std::tr1::shared_ptr<iCanAsyncDispatcher>());
}

template <>
std::tr1::shared_ptr<TarnAsyncDispatcherMock> Make<TarnAsyncDispatcherMock>()
{
    return TarnAsyncDispatcherMock::Create();
}

/// What holds for both dispatchers.
template <typename Dispatcher>
class Routing : public testing::Test
{
protected:
    void Dispatch(CanMessage frame) { mDispatcher->DispatchResponse(frame); }

    std::tr1::shared_ptr<Dispatcher> mDispatcher = Make<Dispatcher>();
    std::string mCalls;
    RecordingHandler mA{"A", mCalls};
    RecordingHandler mB{"B", mCalls};
    RecordingHandler mC{"C", mCalls};
    RecordingHandler mD{"D", mCalls};
};

using Dispatchers = testing::Types<TarnAsyncDispatcher, TarnAsyncDispatcherMock>;
TYPED_TEST_SUITE(Routing, Dispatchers);

TYPED_TEST(Routing, OffersADataMessageBySourceThenByTarget)
{
    this->mDispatcher->SubscribeTarget(9, &this->mB);
    this->mDispatcher->SubscribeSource(5, &this->mA);
    this->mDispatcher->SubscribeChcp(&this->mC);
    this->Dispatch(DataFrame(5, 9));
    this->Dispatch(DataFrame(9, 5));
    EXPECT_EQ(this->mCalls, "AB");
}

TYPED_TEST(Routing, OffersAChcpMessageToNoAddressHandler)
{
    this->mDispatcher->SubscribeSource(5, &this->mA);
    this->mDispatcher->SubscribeTarget(0, &this->mB);
    this->mDispatcher->SubscribeChcp(&this->mC);
    this->Dispatch(ChcpFrame(5));
    EXPECT_EQ(this->mCalls, "C");
}

TYPED_TEST(Routing, CallsAHandlerForEachOfItsSubscriptions)
{
    this->mDispatcher->SubscribeSource(5, &this->mA);
    this->mDispatcher->SubscribeSource(5, &this->mB);
    this->mDispatcher->SubscribeSource(5, &this->mA);
    this->mDispatcher->SubscribeTarget(9, &this->mA);
    this->Dispatch(DataFrame(5, 9));
    EXPECT_EQ(this->mCalls, "ABAA");
}

TYPED_TEST(Routing, UnsubscribingRemovesEveryEntryOfThatListOnly)
{
    this->mDispatcher->SubscribeSource(5, &this->mA);
    this->mDispatcher->SubscribeSource(5, &this->mA);
    this->mDispatcher->SubscribeSource(6, &this->mA);
    this->mDispatcher->SubscribeTarget(9, &this->mA);
    this->mDispatcher->UnsubscribeSource(5, &this->mA);
    this->mDispatcher->UnsubscribeAll(&this->mA);
    this->Dispatch(DataFrame(5, 0));
    EXPECT_EQ(this->mCalls, "");
    this->Dispatch(DataFrame(6, 9));
    EXPECT_EQ(this->mCalls, "AA");
}

TYPED_TEST(Routing, ReturningTrueEndsThatSubscriptionOnly)
{
    this->mA.SetAction([&, calls = 0](TarnMessage&) mutable { return ++calls == 1; });
    this->mDispatcher->SubscribeSource(5, &this->mA);
    this->mDispatcher->SubscribeSource(5, &this->mB);
    this->mDispatcher->SubscribeSource(5, &this->mA);
    this->Dispatch(DataFrame(5, 9));
    this->Dispatch(DataFrame(5, 9));
    EXPECT_EQ(this->mCalls, "ABA"
                            "BA");
}

TYPED_TEST(Routing, Address126IsTheLastAnd127FindsNobody)
{
    this->mDispatcher->SubscribeSource(126, &this->mA);
    this->mDispatcher->SubscribeTarget(126, &this->mA);
    this->mDispatcher->SubscribeSource(127, &this->mB);
    this->mDispatcher->SubscribeTarget(127, &this->mB);
    this->Dispatch(DataFrame(126, 126));
    this->Dispatch(DataFrame(127, 127));
    EXPECT_EQ(this->mCalls, "AA");
}

TYPED_TEST(Routing, AnExceptionOfAHandlerKeepsEverySubscription)
{
    this->mA.SetAction([](TarnMessage&) -> bool { throw std::runtime_error("handler"); });
    this->mDispatcher->SubscribeSource(5, &this->mA);
    this->mDispatcher->SubscribeSource(5, &this->mB);
    EXPECT_THROW(this->Dispatch(DataFrame(5, 9)), std::runtime_error);
    EXPECT_EQ(this->mCalls, "A");
    this->mA.SetAction({});
    this->Dispatch(DataFrame(5, 9));
    EXPECT_EQ(this->mCalls, "AAB");
}

TYPED_TEST(Routing, AHandlerMayUnsubscribeItselfAndReturnTrue)
{
    this->mB.SetAction([&](TarnMessage&) {
        this->mDispatcher->UnsubscribeSource(5, &this->mB);
        return true;
    });
    for (auto* handler : {&this->mA, &this->mB, &this->mC})
        this->mDispatcher->SubscribeSource(5, handler);
    this->Dispatch(DataFrame(5, 9));
    this->Dispatch(DataFrame(5, 9));
    EXPECT_EQ(this->mCalls, "ABCAC");
}

TYPED_TEST(Routing, AHandlerMayUnsubscribeItsNeighbours)
{
    this->mB.SetAction([&](TarnMessage&) {
        this->mDispatcher->UnsubscribeSource(5, &this->mA);
        this->mDispatcher->UnsubscribeSource(5, &this->mC);
        return false;
    });
    for (auto* handler : {&this->mA, &this->mB, &this->mC, &this->mD})
        this->mDispatcher->SubscribeSource(5, handler);
    this->Dispatch(DataFrame(5, 9));
    EXPECT_EQ(this->mCalls, "ABD");
}

TYPED_TEST(Routing, AnEntryAddedByTheLastHandlerIsReachedEvenWhenThatOneLeaves)
{
    this->mA.SetAction([&](TarnMessage&) {
        this->mDispatcher->UnsubscribeSource(5, &this->mA);
        this->mDispatcher->SubscribeSource(5, &this->mB);
        return true;
    });
    this->mDispatcher->SubscribeSource(5, &this->mA);
    this->Dispatch(DataFrame(5, 9));
    this->Dispatch(DataFrame(5, 9));
    EXPECT_EQ(this->mCalls, "ABB");
}

TYPED_TEST(Routing, ANestedFrameMayEmptyTheListOfTheOuterWalk)
{
    this->mB.SetAction([&, depth = 0](TarnMessage&) mutable {
        if (++depth == 1)
            this->Dispatch(DataFrame(5, 9));
        return true;
    });
    this->mA.SetAction([calls = 0](TarnMessage&) mutable { return ++calls == 2; });
    this->mC.SetAction([](TarnMessage&) { return true; });
    for (auto* handler : {&this->mA, &this->mB, &this->mC})
        this->mDispatcher->SubscribeSource(5, handler);
    this->Dispatch(DataFrame(5, 9));
    EXPECT_EQ(this->mCalls, "AB"
                            "ABC");
    this->Dispatch(DataFrame(5, 9));
    EXPECT_EQ(this->mCalls, "ABABC");
}

TYPED_TEST(Routing, AnEntryThatIsDoneIsGoneBeforeTheNextIsCalled)
{
    this->mA.SetAction([](TarnMessage&) { return true; });
    this->mB.SetAction([&, depth = 0](TarnMessage&) mutable {
        if (++depth == 1)
            this->Dispatch(DataFrame(5, 9));
        return false;
    });
    this->mDispatcher->SubscribeSource(5, &this->mA);
    this->mDispatcher->SubscribeSource(5, &this->mB);
    this->Dispatch(DataFrame(5, 9));
    EXPECT_EQ(this->mCalls, "ABB");
}

TYPED_TEST(Routing, UnsubscribingFromAllLeavesEveryOtherFamily)
{
    this->mDispatcher->SubscribeSource(5, &this->mA);
    this->mDispatcher->SubscribeTarget(9, &this->mA);
    this->mDispatcher->SubscribeChcp(&this->mA);
    this->mDispatcher->SubscribeAll(&this->mA);
    this->mDispatcher->UnsubscribeAll(&this->mA);
    this->Dispatch(DataFrame(5, 9));
    this->Dispatch(ChcpFrame(1));
    EXPECT_EQ(this->mCalls, "AAA");
}

TEST(AsyncDispatcher, OffersADataMessageBySourceByTargetAndToAllInThatOrder)
{
    std::string calls;
    RecordingHandler a("A", calls);
    RecordingHandler b("B", calls);
    RecordingHandler c("C", calls);
    RecordingHandler d("D", calls);
    const auto dispatcher = Make<TarnAsyncDispatcher>();
    dispatcher->SubscribeAll(&d);
    dispatcher->SubscribeChcp(&c);
    dispatcher->SubscribeTarget(9, &b);
    dispatcher->SubscribeSource(5, &a);
    CanMessage frame = DataFrame(5, 9);
    dispatcher->DispatchResponse(frame);
    EXPECT_EQ(calls, "ABD");
}

TEST(AsyncDispatcher, AThrowingAllHandlerReleasesItsFamilyForOtherThreads)
{
    std::string calls;
    RecordingHandler throwing("A", calls,
                              [](TarnMessage&) -> bool { throw std::runtime_error("handler"); });
    RecordingHandler behind("B", calls);
    const auto dispatcher = Make<TarnAsyncDispatcher>();
    dispatcher->SubscribeAll(&throwing);
    dispatcher->SubscribeAll(&behind);
    CanMessage frame = DataFrame(5, 9);
    EXPECT_THROW(dispatcher->DispatchResponse(frame), std::runtime_error);
    EXPECT_EQ(calls, "A");
    std::thread([&] { dispatcher->SubscribeAll(&behind); }).join();
}

TEST(AsyncDispatcher, OffersEveryMessageToTheAllHandlersLast)
{
    std::string calls;
    RecordingHandler a("A", calls);
    RecordingHandler d("D", calls);
    const auto dispatcher = Make<TarnAsyncDispatcher>();
    dispatcher->SubscribeAll(&d);
    dispatcher->SubscribeSource(5, &a);
    dispatcher->SubscribeChcp(&a);
    for (CanMessage frame : {DataFrame(5, 9), ChcpFrame(1), DataFrame(1, 1)})
        dispatcher->DispatchResponse(frame);
    EXPECT_EQ(calls, "ADADD");
}

TEST(AsyncDispatcher, DropsAFrameThatIsNoTarnMessage)
{
    std::string calls;
    RecordingHandler all("D", calls);
    RecordingHandler zero("Z", calls);
    const auto dispatcher = Make<TarnAsyncDispatcher>();
    dispatcher->SubscribeAll(&all);
    dispatcher->SubscribeSource(0, &zero);
    CanMessage error = DataFrame(0, 0);
    error.GetFlags() |= CanMessage::FLAG_ERROR;
    dispatcher->DispatchResponse(error);
    EXPECT_EQ(calls, "");
}

TEST(AsyncDispatcherMock, RoutesAFrameThatIsNoTarnMessageAsAllZero)
{
    std::string calls;
    RecordingHandler zero("Z", calls, [](TarnMessage& message) { return !message; });
    const auto dispatcher = Make<TarnAsyncDispatcherMock>();
    dispatcher->SubscribeSource(0, &zero);
    CanMessage error = DataFrame(7, 7);
    error.GetFlags() |= CanMessage::FLAG_ERROR;
    dispatcher->DispatchResponse(error);
    dispatcher->DispatchResponse(error);
    EXPECT_EQ(calls, "Z");
}

TEST(AsyncDispatcherMock, NeverCallsAllHandlersAndSendsNothing)
{
    std::string calls;
    RecordingHandler all("D", calls);
    const auto dispatcher = Make<TarnAsyncDispatcherMock>();
    dispatcher->SubscribeAll(&all);
    TarnMessage message;
    std::vector<unsigned char> seven(6);
    message.SetData(seven);
    message.SetType(TarnMessage::TYPE_DATA);
    dispatcher->Send(message);
    CanMessage data = DataFrame(1, 1);
    CanMessage chcp = ChcpFrame(1);
    dispatcher->DispatchResponse(data);
    dispatcher->DispatchResponse(chcp);
    EXPECT_EQ(calls, "");
}

} // namespace
