#include "support/AllocationCounter.h"
#include "support/CaseName.h"
#include "support/Frames.h"
#include "support/MutexFaults.h"

#include <tarn/TarnMessage.h>

#include <Poco/Exception.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <functional>
#include <future>
#include <iostream>
#include <new>
#include <ostream>
#include <string>

// What every operation does when the mutex of the message fails, by making each of its lock and
// unlock calls fail in turn.

namespace
{

using support::Bytes;
using support::CountCalls;
using support::LOCK;
using support::MutexFault;
using support::Received;
using support::UNLOCK;
using support::WithPayload;
using tarn::CanMessage;
using tarn::tarn_u24_t;
using tarn::TarnMessage;

using Operation = std::function<void(TarnMessage&)>;

/// Everything that comparison sees, as text. Reads a copy, as copying takes no lock.
std::string Fields(const TarnMessage& message)
{
    return TarnMessage(message).ToStringShort();
}

/// The failure that the operation lets out when the nth such call fails, as "text code"; "" when it
/// lets none out.
std::string FailureOf(const Operation& operation, TarnMessage& message, support::tMutexCall call,
                      unsigned int nth)
{
    try {
        const MutexFault fault(call, nth);
        operation(message);
    } catch (const Poco::SystemException& exception) {
        return exception.message() + " " + std::to_string(exception.code());
    }
    return "";
}

/// True when another thread gets the lock. A lock that stays taken would block every thread, so
/// the program ends then.
bool LockIsFree(TarnMessage& message)
{
    auto other = std::async(std::launch::async, [&message] { message.GetFullHeader(); });
    if (other.wait_for(std::chrono::seconds(30)) == std::future_status::ready)
        return true;
    std::cerr << "the message's lock is still taken\n";
    std::_Exit(EXIT_FAILURE);
}

struct OperationCase {
    const char* name;
    unsigned int locks; ///< how often it locks
    Operation run;
    Bytes payload = {1, 2, 3}; ///< of the U8 message it runs on
    unsigned int dataType = 8;
};

void PrintTo(const OperationCase& row, std::ostream* out)
{
    *out << row.name;
}

TarnMessage MessageFor(const OperationCase& row)
{
    return WithPayload(row.dataType, row.payload);
}

class LockFailure : public testing::TestWithParam<OperationCase>
{
};

TEST_P(LockFailure, LeavesAtEveryLockWithNothingChanged)
{
    const OperationCase& row = GetParam();
    TarnMessage counted = MessageFor(row);
    ASSERT_EQ(CountCalls(LOCK, [&] { row.run(counted); }), row.locks);
    for (unsigned int nth = 1; nth <= row.locks; ++nth) {
        TarnMessage message = MessageFor(row);
        EXPECT_EQ(FailureOf(row.run, message, LOCK, nth), "cannot lock mutex 0") << nth;
        EXPECT_TRUE(LockIsFree(message));
        EXPECT_EQ(Fields(message), Fields(MessageFor(row))) << nth;
    }
}

TEST_P(LockFailure, LeavesAtEveryUnlockWithTheChangeMade)
{
    const OperationCase& row = GetParam();
    TarnMessage changed = MessageFor(row);
    ASSERT_EQ(CountCalls(UNLOCK, [&] { row.run(changed); }), row.locks);
    for (unsigned int nth = 1; nth <= row.locks; ++nth) {
        TarnMessage message = MessageFor(row);
        EXPECT_EQ(FailureOf(row.run, message, UNLOCK, nth), "cannot unlock mutex 0") << nth;
        EXPECT_TRUE(LockIsFree(message));
        EXPECT_EQ(Fields(message), Fields(changed)) << nth;
    }
}

/// 'A' when the operation ran out of memory at its nth allocation; '.' when it got through.
char OutcomeWithout(unsigned long nth, const Operation& operation, TarnMessage& message)
{
    try {
        const support::AllocationFault fault(nth);
        operation(message);
    } catch (const std::bad_alloc&) {
        return 'A';
    }
    return '.';
}

TEST_P(LockFailure, RunsOutOfMemoryWithNothingChanged)
{
    const OperationCase& row = GetParam();
    TarnMessage warm = MessageFor(row);
    row.run(warm); // what the thread keeps from then on
    char outcome = 'A';
    for (unsigned long nth = 1; outcome == 'A'; ++nth) {
        TarnMessage message = MessageFor(row);
        const std::string before = Fields(message);
        outcome = OutcomeWithout(nth, row.run, message);
        EXPECT_TRUE(LockIsFree(message));
        if (outcome == 'A') {
            EXPECT_EQ(Fields(message), before) << nth;
        }
    }
}

/// A vector that an operation hands to a payload accessor.
template <typename Value>
std::vector<Value>& Values(std::size_t count = 0)
{
    static thread_local std::vector<Value> values;
    values.reserve(6);
    values.resize(count);
    return values;
}

TarnMessage::tTarnDeviceCode DeviceCode()
{
    return static_cast<TarnMessage::tTarnDeviceCode>(0x01020304);
}

INSTANTIATE_TEST_SUITE_P(
    OfHeaderFields, LockFailure,
    testing::Values(
        OperationCase{"GetType", 1, [](auto& m) { m.GetType(); }},
        OperationCase{"SetType", 1, [](auto& m) { m.SetType(TarnMessage::TYPE_CHCP); }},
        OperationCase{"SetTypeRefused", 1,
                      [](auto& m) { m.SetType(static_cast<TarnMessage::tTarnMSgType>(2)); }},
        OperationCase{"GetPriority", 1, [](auto& m) { m.GetPriority(); }},
        OperationCase{"SetPriority", 1, [](auto& m) { m.SetPriority(TarnMessage::PRIORITY_DATA); }},
        OperationCase{
            "SetPriorityRefused", 1,
            [](auto& m) { m.SetPriority(static_cast<TarnMessage::tTarnMsgPriority>(4)); }},
        OperationCase{"GetAddressing", 1, [](auto& m) { m.GetAddressing(); }},
        OperationCase{"SetAddressing", 1,
                      [](auto& m) { m.SetAddressing(TarnMessage::ADDRESSING_DEVICE); }},
        OperationCase{"GetAccessType", 1, [](auto& m) { m.GetAccessType(); }},
        OperationCase{"SetAccessType", 1,
                      [](auto& m) { m.SetAccessType(TarnMessage::ACCESS_READ); }},
        OperationCase{"GetDirection", 1, [](auto& m) { m.GetDirection(); }},
        OperationCase{"SetDirection", 1,
                      [](auto& m) { m.SetDirection(TarnMessage::DIRECTION_REQUEST); }},
        OperationCase{"GetAddressingMode", 1, [](auto& m) { m.GetAddressingMode(); }},
        OperationCase{"SetAddressingMode", 1,
                      [](auto& m) { m.SetAddressingMode(TarnMessage::ADDRESSING_MODE_EXTENDED); }},
        OperationCase{"GetRegister", 1, [](auto& m) { m.GetRegister(); }},
        OperationCase{"SetRegister", 1, [](auto& m) { m.SetRegister(5); }},
        OperationCase{"GetTargetAddr", 1, [](auto& m) { m.GetTargetAddr(); }},
        OperationCase{"SetTargetAddr", 1, [](auto& m) { m.SetTargetAddr(5); }},
        OperationCase{"SetTargetAddrRefused", 1, [](auto& m) { m.SetTargetAddr(200); }},
        OperationCase{"GetSourceAddr", 1, [](auto& m) { m.GetSourceAddr(); }},
        OperationCase{"SetSourceAddr", 1, [](auto& m) { m.SetSourceAddr(5); }},
        OperationCase{"SetSourceAddrRefused", 1, [](auto& m) { m.SetSourceAddr(200); }},
        OperationCase{"GetModule", 1, [](auto& m) { m.GetModule(); }},
        OperationCase{"GetRStatus", 1, [](auto& m) { m.GetRStatus(); }},
        OperationCase{"SetRStatus", 1, [](auto& m) { m.SetRStatus(TarnMessage::STATUS_OFFLINE); }},
        OperationCase{"SetRStatusRefused", 1,
                      [](auto& m) { m.SetRStatus(static_cast<TarnMessage::tTarnRStatus>(17)); }},
        OperationCase{"GetWStatus", 1, [](auto& m) { m.GetWStatus(); }},
        OperationCase{"SetWStatus", 1,
                      [](auto& m) { m.SetWStatus(static_cast<TarnMessage::tTarnWStatus>(7)); }},
        OperationCase{"GetFullHeader", 1, [](auto& m) { m.GetFullHeader(); }},
        OperationCase{"SetFullHeader", 1, [](auto& m) { m.SetFullHeader(0x0FFFFFFF); }},
        OperationCase{"GetChcpMacID", 1, [](auto& m) { m.GetChcpMacID(); }},
        OperationCase{"SetChcpMacID", 1, [](auto& m) { m.SetChcpMacID(77); }}),
    support::CaseName());

INSTANTIATE_TEST_SUITE_P(
    OfChcpFields, LockFailure,
    testing::Values(
        OperationCase{"GetChcpIDOfData", 1, [](auto& m) { m.GetChcpID(); }},
        OperationCase{"GetChcpCommandOfData", 1, [](auto& m) { m.GetChcpCommand(); }},
        OperationCase{"GetChcpDeviceCodeOfData", 1, [](auto& m) { m.GetChcpDeviceCode(); }},
        OperationCase{"SetChcpIDRefused", 0, [](auto& m) { m.SetChcpID(128); }},
        OperationCase{"SetChcpCommandRefused", 0,
                      [](auto& m) { m.SetChcpCommand(TarnMessage::CHCP_COMMAND_NONE); }}),
    support::CaseName());

INSTANTIATE_TEST_SUITE_P(
    OfPayload, LockFailure,
    testing::Values(
        OperationCase{"GetDataType", 1, [](auto& m) { m.GetDataType(); }},
        OperationCase{"SetDataType", 1, [](auto& m) { m.SetDataType(TarnMessage::DATATYPE_U24); }},
        OperationCase{"GetDataSize", 1, [](auto& m) { m.GetDataSize(); }},
        OperationCase{"SetU8", 1, [](auto& m) { m.SetData(Values<unsigned char>(2)); }},
        OperationCase{"SetU8Refused", 1, [](auto& m) { m.SetData(Values<unsigned char>(7)); }},
        OperationCase{"GetU8", 1, [](auto& m) { m.GetData(Values<unsigned char>()); }},
        OperationCase{"SetU16", 1, [](auto& m) { m.SetData(Values<unsigned short>(2)); }},
        OperationCase{"GetU16Refused", 1, [](auto& m) { m.GetData(Values<unsigned short>()); }},
        OperationCase{"GetU16", 1, [](auto& m) { m.GetData(Values<unsigned short>()); }, {1, 2}, 9},
        OperationCase{"SetU24", 1, [](auto& m) { m.SetData(Values<tarn_u24_t>(2)); }},
        OperationCase{"GetU24", 1, [](auto& m) { m.GetData(Values<tarn_u24_t>()); }, {1, 2, 3}, 10},
        OperationCase{"SetU32", 1, [](auto& m) { m.SetData(Values<unsigned int>(1)); }},
        OperationCase{
            "GetU32", 1, [](auto& m) { m.GetData(Values<unsigned int>()); }, {1, 2, 3, 4}, 11},
        OperationCase{"SetU48", 1, [](auto& m) { m.SetData(Values<unsigned long long>(1)); }},
        OperationCase{"GetU48",
                      1,
                      [](auto& m) { m.GetData(Values<unsigned long long>()); },
                      {1, 2, 3, 4, 5, 6},
                      12},
        OperationCase{"SetFloat", 1, [](auto& m) { m.SetData(Values<double>(1)); }},
        OperationCase{
            "GetFloat", 1, [](auto& m) { m.GetData(Values<double>()); }, {1, 2, 3, 4}, 13},
        OperationCase{"SetFixedPoint", 1,
                      [](auto& m) { m.SetData(Values<float>(1), TarnMessage::DATATYPE_S16F3); }},
        OperationCase{"SetFixedPointRefused", 1,
                      [](auto& m) { m.SetData(Values<float>(1), TarnMessage::DATATYPE_U8); }},
        OperationCase{"SetFixedPointAutomatic", 1, [](auto& m) { m.SetData(Values<float>(1)); }},
        OperationCase{"SetFixedPointAutomaticEmpty", 1,
                      [](auto& m) { m.SetData(Values<float>(0)); }},
        OperationCase{"GetFixedPoint", 1, [](auto& m) { m.GetData(Values<float>()); }, {1, 2}, 0},
        OperationCase{
            "GetFloatAsSingle", 2, [](auto& m) { m.GetData(Values<float>()); }, {1, 2, 3, 4}, 13}),
    support::CaseName());

INSTANTIATE_TEST_SUITE_P(
    OfTheObject, LockFailure,
    testing::Values(OperationCase{"Assign", 1,
                                  [](auto& m) {
                                      m = TarnMessage(WithPayload(9, {7, 7}));
                                  }},
                    OperationCase{"Equal", 1,
                                  [](auto& m) {
                                      (void)(m == WithPayload(9, {7, 7}));
                                  }},
                    OperationCase{"Unequal", 1,
                                  [](auto& m) {
                                      TarnMessage other = WithPayload(9, {7, 7});
                                      (void)(m != other);
                                  }},
                    OperationCase{"Not", 0, [](auto& m) { (void)!m; }},
                    OperationCase{"Copy", 0, [](auto& m) { TarnMessage copy(m); }},
                    OperationCase{"Receive", 0,
                                  [](auto&) {
                                      Received(0x1000, {1, 2, 3});
                                  }},
                    OperationCase{"RawMessage", 1, [](auto& m) { m.RawMessage(); }},
                    OperationCase{"RawMessageRef", 2, [](auto& m) { m.RawMessageRef(); }},
                    OperationCase{"ToString", 1, [](auto& m) { m.ToString(); }},
                    OperationCase{"ToStringShort", 1, [](auto& m) { m.ToStringShort(); }}),
    support::CaseName());

TarnMessage Chcp()
{
    return Received(0x10000000, {1, 2, 3, 4, 5, 2, 0});
}

struct NestedCase {
    const char* name;
    Operation run;
};

void PrintTo(const NestedCase& row, std::ostream* out)
{
    *out << row.name;
}

/// The getters of CHCP fields lock twice on a CHCP message, one lock after the other.
class ChcpGetterLockFailure : public testing::TestWithParam<NestedCase>
{
};

TEST_P(ChcpGetterLockFailure, LeavesAtEitherLockAndUnlock)
{
    const Operation& run = GetParam().run;
    TarnMessage message = Chcp();
    ASSERT_EQ(CountCalls(LOCK, [&] { run(message); }), 2u);
    for (const unsigned int nth : {1u, 2u}) {
        EXPECT_EQ(FailureOf(run, message, LOCK, nth), "cannot lock mutex 0");
        EXPECT_TRUE(LockIsFree(message));
        EXPECT_EQ(FailureOf(run, message, UNLOCK, nth), "cannot unlock mutex 0");
        EXPECT_TRUE(LockIsFree(message));
    }
    EXPECT_TRUE(message == Chcp());
}

INSTANTIATE_TEST_SUITE_P(Of, ChcpGetterLockFailure,
                         testing::Values(NestedCase{"ID", [](auto& m) { m.GetChcpID(); }},
                                         NestedCase{"Command", [](auto& m) { m.GetChcpCommand(); }},
                                         NestedCase{"DeviceCode",
                                                    [](auto& m) { m.GetChcpDeviceCode(); }}),
                         support::CaseName());

/// The setters of CHCP fields take the lock again while they make the message a CHCP message.
class ChcpSetterLockFailure : public testing::TestWithParam<NestedCase>
{
};

TEST_P(ChcpSetterLockFailure, ChangesNothingWhenALockFails)
{
    const Operation& run = GetParam().run;
    for (const unsigned int nth : {1u, 2u}) {
        TarnMessage message = WithPayload(8, {1, 2, 3});
        EXPECT_EQ(FailureOf(run, message, LOCK, nth), "cannot lock mutex 0");
        EXPECT_TRUE(LockIsFree(message));
        EXPECT_TRUE(message == WithPayload(8, {1, 2, 3}));
    }
}

TEST_P(ChcpSetterLockFailure, LeavesAWholeChcpMessageWhenTheInnerUnlockFails)
{
    TarnMessage message = WithPayload(8, {1, 2, 3});
    EXPECT_EQ(FailureOf(GetParam().run, message, UNLOCK, 1), "cannot unlock mutex 0");
    EXPECT_TRUE(LockIsFree(message));
    EXPECT_EQ(message.RawMessage().ToString(), "10000000#00000000000008");
}

TEST_P(ChcpSetterLockFailure, HasStoredTheFieldWhenTheOuterUnlockFails)
{
    TarnMessage changed = WithPayload(8, {1, 2, 3});
    ASSERT_EQ(CountCalls(UNLOCK, [&] { GetParam().run(changed); }), 2u);
    TarnMessage message = WithPayload(8, {1, 2, 3});
    EXPECT_EQ(FailureOf(GetParam().run, message, UNLOCK, 2), "cannot unlock mutex 0");
    EXPECT_TRUE(LockIsFree(message));
    EXPECT_EQ(Fields(message), Fields(changed));
    EXPECT_FALSE(message.GetChcpID() == 0 && message.GetChcpCommand() == 0 &&
                 message.GetChcpDeviceCode() == 0);
}

INSTANTIATE_TEST_SUITE_P(
    Of, ChcpSetterLockFailure,
    testing::Values(NestedCase{"ID", [](auto& m) { m.SetChcpID(5); }},
                    NestedCase{"Command",
                               [](auto& m) { m.SetChcpCommand(TarnMessage::CHCP_COMMAND_3); }},
                    NestedCase{"DeviceCode", [](auto& m) { m.SetChcpDeviceCode(DeviceCode()); }}),
    support::CaseName());

void SetModule5(TarnMessage& message)
{
    message.SetModule(5);
}

TEST(ModuleLockFailure, ChangesNothingAtTheFirstLock)
{
    TarnMessage message;
    EXPECT_EQ(FailureOf(SetModule5, message, LOCK, 1), "cannot lock mutex 0");
    EXPECT_TRUE(LockIsFree(message));
    EXPECT_TRUE(message == TarnMessage());
}

TEST(ModuleLockFailure, HasStoredTheModuleButNotTheModeAtTheSecondLock)
{
    TarnMessage message;
    EXPECT_EQ(FailureOf(SetModule5, message, LOCK, 2), "cannot lock mutex 0");
    EXPECT_TRUE(LockIsFree(message));
    EXPECT_EQ(message.GetModule(), 5);
    EXPECT_EQ(message.GetFullHeader(), 0x0F800001u);
}

TEST(ModuleLockFailure, HasStoredBothAtEitherUnlock)
{
    for (const unsigned int nth : {1u, 2u}) {
        TarnMessage message;
        EXPECT_EQ(FailureOf(SetModule5, message, UNLOCK, nth), "cannot unlock mutex 0");
        EXPECT_TRUE(LockIsFree(message));
        EXPECT_EQ(message.GetModule(), 5);
        EXPECT_EQ(message.GetFullHeader(), 0x0FC00001u);
    }
}

TEST(FrameOfTheMessage, IsBuiltButNotKeptWhenTheInnerUnlockFails)
{
    TarnMessage message;
    CanMessage& frame = message.RawMessageRef();
    message.SetSourceAddr(2);
    const auto frameAgain = [](TarnMessage& m) { m.RawMessageRef(); };
    EXPECT_EQ(FailureOf(frameAgain, message, UNLOCK, 1), "cannot unlock mutex 0");
    EXPECT_EQ(frame.ToString(), "0F800001#20");
    EXPECT_EQ(FailureOf(frameAgain, message, UNLOCK, 2), "cannot unlock mutex 0");
    EXPECT_EQ(frame.ToString(), "0F800002#20");
}

TEST(NewMessage, LetsEveryLockFailureOut)
{
    // One lock for each of the ten fields that are set.
    TarnMessage unused;
    const auto make = [](TarnMessage&) { TarnMessage message; };
    ASSERT_EQ(CountCalls(LOCK, [&] { make(unused); }), 10u);
    for (unsigned int nth = 1; nth <= 10; ++nth) {
        EXPECT_EQ(FailureOf(make, unused, LOCK, nth), "cannot lock mutex 0");
        EXPECT_EQ(FailureOf(make, unused, UNLOCK, nth), "cannot unlock mutex 0");
    }
}

TEST(FramingRefusal, GoesOnAloneWhenTheUnlockFailsToo)
{
    TarnMessage message = Received(0, {1, 2, 3, 4, 5, 6, 7, 8});
    EXPECT_THROW(
        {
            const MutexFault fault(UNLOCK, 1);
            message.RawMessage();
        },
        std::string);
    EXPECT_TRUE(LockIsFree(message));
}

TEST(AutomaticFormat, RefusesWithoutLocking)
{
    TarnMessage message;
    std::vector<float> values{65536.0F};
    EXPECT_EQ(CountCalls(LOCK, [&] { EXPECT_FALSE(message.SetData(values)); }), 0u);
}

TEST(Destructor, LocksNothing)
{
    auto message = std::make_unique<TarnMessage>();
    EXPECT_EQ(CountCalls(LOCK, [&] { message.reset(); }), 0u);
}

} // namespace
