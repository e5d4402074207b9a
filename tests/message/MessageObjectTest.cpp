#include "support/CaseName.h"
#include "support/Frames.h"

#include <tarn/TarnMessage.h>

#include <gtest/gtest.h>

#include <functional>
#include <ostream>
#include <thread>
#include <type_traits>

namespace
{

using support::Bytes;
using support::Frame;
using support::PayloadOf;
using support::Received;
using tarn::CanMessage;
using tarn::TarnMessage;

template <typename Enumeration>
using Underlying = std::underlying_type_t<Enumeration>;

static_assert(sizeof(tarn::tarn_u24_t) == 4);
static_assert(std::is_same_v<Underlying<TarnMessage::tTarnMSgType>, int>);
static_assert(std::is_same_v<Underlying<TarnMessage::tTarnMsgPriority>, int>);
static_assert(std::is_same_v<Underlying<TarnMessage::tTarnAddressing>, int>);
static_assert(std::is_same_v<Underlying<TarnMessage::tTarnAccessType>, int>);
static_assert(std::is_same_v<Underlying<TarnMessage::tTarnDirection>, int>);
static_assert(std::is_same_v<Underlying<TarnMessage::tTarnAddressingMode>, int>);
static_assert(std::is_same_v<Underlying<TarnMessage::tTarnRStatus>, int>);
static_assert(std::is_same_v<Underlying<TarnMessage::tTarnWStatus>, int>);
static_assert(std::is_same_v<Underlying<TarnMessage::tTarnDataType>, int>);
static_assert(std::is_same_v<Underlying<TarnMessage::tTarnChcpCommand>, int>);
static_assert(std::is_same_v<Underlying<TarnMessage::tTarnDeviceCode>, unsigned long long>);
static_assert(!std::is_same_v<TarnMessage::tTarnRStatus, TarnMessage::tTarnWStatus>);
static_assert(std::has_virtual_destructor_v<TarnMessage>);
static_assert(std::is_convertible_v<CanMessage&, TarnMessage>);
static_assert(
    std::is_void_v<decltype(std::declval<TarnMessage&>() = std::declval<const TarnMessage&>())>);
static_assert(std::is_same_v<decltype(std::declval<TarnMessage&>().RawMessage()), CanMessage>);
static_assert(std::is_same_v<decltype(std::declval<TarnMessage&>().RawMessageRef()), CanMessage&>);
static_assert(sizeof(TarnMessage) <= 160, "messages are made and thrown away for every frame");

TEST(Enumerations, HaveTheValuesOfTheWire)
{
    EXPECT_EQ(TarnMessage::TYPE_DATA, 0);
    EXPECT_EQ(TarnMessage::TYPE_CHCP, 1);
    EXPECT_EQ(TarnMessage::PRIORITY_SYNC, 0);
    EXPECT_EQ(TarnMessage::PRIORITY_EMERGENCY, 1);
    EXPECT_EQ(TarnMessage::PRIORITY_CONTROL, 2);
    EXPECT_EQ(TarnMessage::PRIORITY_DATA, 3);
    EXPECT_EQ(TarnMessage::ADDRESSING_GROUP, 0);
    EXPECT_EQ(TarnMessage::ADDRESSING_DEVICE, 1);
    EXPECT_EQ(TarnMessage::ACCESS_WRITE, 0);
    EXPECT_EQ(TarnMessage::ACCESS_READ, 1);
    EXPECT_EQ(TarnMessage::DIRECTION_RESPONSE, 0);
    EXPECT_EQ(TarnMessage::DIRECTION_REQUEST, 1);
    EXPECT_EQ(TarnMessage::ADDRESSING_MODE_STANDARD, 0);
    EXPECT_EQ(TarnMessage::ADDRESSING_MODE_EXTENDED, 1);
}

TEST(Enumerations, NumberTheStatesAsDevicesReportThem)
{
    EXPECT_EQ(TarnMessage::STATUS_UNKNOWN, 0);
    EXPECT_EQ(TarnMessage::STATUS_OFFLINE, 1);
    EXPECT_EQ(TarnMessage::STATUS_POWERUP, 2);
    EXPECT_EQ(TarnMessage::STATUS_STANDBY, 3);
    EXPECT_EQ(TarnMessage::STATUS_STARTUP, 4);
    EXPECT_EQ(TarnMessage::STATUS_OPERATING, 5);
    EXPECT_EQ(TarnMessage::STATUS_OPERATING_WITH_WARNING, 6);
    EXPECT_EQ(TarnMessage::STATUS_OPERATING_WITH_FAILURE, 7);
    EXPECT_EQ(TarnMessage::STATUS_STOPPED_BY_HW_FAILURE, 8);
    EXPECT_EQ(TarnMessage::STATUS_STOPPED_BY_EXTERNAL, 9);
    EXPECT_EQ(TarnMessage::STATUS_STOPPED_BY_INTERNAL, 10);
    EXPECT_EQ(TarnMessage::STATUS_RESOURCE_NOT_EXISTING, 11);
    EXPECT_EQ(TarnMessage::STATUS_RESOURCE_EXCLUSIVE_RESERVED, 12);
    EXPECT_EQ(TarnMessage::STATUS_RESOURCE_OVERLOADED, 13);
    EXPECT_EQ(TarnMessage::STATUS_FRAME_FAILURE, 14);
    EXPECT_EQ(TarnMessage::STATUS_ACCESS_NOT_GRANTED, 15);
}

TEST(Enumerations, NumberTheDataTypesAndCommands)
{
    EXPECT_EQ(TarnMessage::DATATYPE_S16F0, 0);
    EXPECT_EQ(TarnMessage::DATATYPE_S16F1, 1);
    EXPECT_EQ(TarnMessage::DATATYPE_S16F2, 2);
    EXPECT_EQ(TarnMessage::DATATYPE_S16F3, 3);
    EXPECT_EQ(TarnMessage::DATATYPE_S16F4, 4);
    EXPECT_EQ(TarnMessage::DATATYPE_S16F5, 5);
    EXPECT_EQ(TarnMessage::DATATYPE_S16F6, 6);
    EXPECT_EQ(TarnMessage::DATATYPE_S16F7, 7);
    EXPECT_EQ(TarnMessage::DATATYPE_U8, 8);
    EXPECT_EQ(TarnMessage::DATATYPE_U16, 9);
    EXPECT_EQ(TarnMessage::DATATYPE_U24, 10);
    EXPECT_EQ(TarnMessage::DATATYPE_U32, 11);
    EXPECT_EQ(TarnMessage::DATATYPE_U48, 12);
    EXPECT_EQ(TarnMessage::DATATYPE_FLOAT, 13);
    EXPECT_EQ(TarnMessage::DATATYPE_NOT_A_TYPE, 15);
    EXPECT_EQ(TarnMessage::CHCP_COMMAND_0, 0);
    EXPECT_EQ(TarnMessage::CHCP_COMMAND_1, 1);
    EXPECT_EQ(TarnMessage::CHCP_COMMAND_2, 2);
    EXPECT_EQ(TarnMessage::CHCP_COMMAND_3, 3);
    EXPECT_EQ(TarnMessage::CHCP_COMMAND_4, 4);
    EXPECT_EQ(TarnMessage::CHCP_COMMAND_5, 5);
    EXPECT_EQ(TarnMessage::CHCP_COMMAND_NONE, 6);
}

TEST(U24, KeepsTheLow24Bits)
{
    tarn::tarn_u24_t element = {};
    element.value = 0xFFFFFF;
    EXPECT_EQ(element.value, 0xFFFFFFu);
    ++element.value;
    EXPECT_EQ(element.value, 0u);
}

TEST(NewMessage, IsAnEmptyReadRequest)
{
    const TarnMessage message;
    EXPECT_FALSE(!message);
    EXPECT_EQ(message.GetFullHeader(), 0x0F800001u);
    EXPECT_EQ(message.GetType(), TarnMessage::TYPE_DATA);
    EXPECT_EQ(message.GetPriority(), TarnMessage::PRIORITY_DATA);
    EXPECT_EQ(message.GetAddressing(), TarnMessage::ADDRESSING_DEVICE);
    EXPECT_EQ(message.GetAccessType(), TarnMessage::ACCESS_READ);
    EXPECT_EQ(message.GetDirection(), TarnMessage::DIRECTION_REQUEST);
    EXPECT_EQ(message.GetAddressingMode(), TarnMessage::ADDRESSING_MODE_STANDARD);
    EXPECT_EQ(message.GetRegister(), 0);
    EXPECT_EQ(message.GetTargetAddr(), 0);
    EXPECT_EQ(message.GetSourceAddr(), 1);
    EXPECT_EQ(message.GetWStatus(), 2);
    EXPECT_EQ(message.GetDataType(), TarnMessage::DATATYPE_S16F0);
    EXPECT_EQ(message.GetModule(), 0);
    EXPECT_EQ(message.GetDataSize(), 0u);
}

TarnMessage Filled()
{
    // Header A9ABCDEF: a DATA message with bits 29 and 31 set; mode EXTENDED is bit 22.
    return Received(0xA9EBCDEF, {0x11, 0x22, 0x33, 0x58, 0x77});
}

void ExpectFilled(const TarnMessage& message)
{
    EXPECT_EQ(message.GetFullHeader(), 0xA9EBCDEFu);
    EXPECT_EQ(message.GetWStatus(), 5);
    EXPECT_EQ(message.GetDataType(), TarnMessage::DATATYPE_U8);
    EXPECT_EQ(message.GetModule(), 0x77);
    EXPECT_EQ(PayloadOf(message), (Bytes{0x11, 0x22, 0x33}));
}

TarnMessage Invalid()
{
    return Received(0x0F800001, {0x20}, 0);
}

TEST(Copy, HasAllFieldsAndTheValidity)
{
    const TarnMessage original = Filled();
    const TarnMessage copy(original);
    ExpectFilled(copy);
    EXPECT_FALSE(!copy);
    const TarnMessage invalid = Invalid();
    const TarnMessage copyOfInvalid(invalid);
    EXPECT_TRUE(!copyOfInvalid);
}

TEST(Copy, SharesNothing)
{
    TarnMessage original = Filled();
    const TarnMessage copy(original);
    Bytes other{9};
    original.SetData(other);
    original.SetFullHeader(0);
    original.SetModule(1);
    original.SetWStatus(static_cast<TarnMessage::tTarnWStatus>(1));
    ExpectFilled(copy);
}

TEST(Copy, HasAnEmptyFrameOfItsOwn)
{
    TarnMessage original = Filled();
    CanMessage& frame = original.RawMessageRef();
    TarnMessage copy(original);
    EXPECT_NE(&copy.RawMessageRef(), &frame);
    EXPECT_EQ(frame.ToString(), copy.RawMessageRef().ToString());
}

TEST(Assignment, CopiesTheFields)
{
    TarnMessage target;
    target = Filled();
    ExpectFilled(target);
    EXPECT_FALSE(!target);
}

TEST(Assignment, ToItselfKeepsEverything)
{
    TarnMessage message = Filled();
    const TarnMessage& same = message;
    message = same;
    ExpectFilled(message);
}

TEST(Assignment, LeavesTheTargetsValidity)
{
    TarnMessage invalid = Invalid();
    invalid = Filled();
    EXPECT_TRUE(!invalid);
    EXPECT_TRUE(invalid == Filled());
    TarnMessage valid;
    valid = Invalid();
    EXPECT_FALSE(!valid);
    EXPECT_TRUE(valid == Invalid());
}

TEST(Assignment, LeavesTheTargetsFrame)
{
    TarnMessage target;
    CanMessage& frame = target.RawMessageRef();
    target = Filled();
    EXPECT_EQ(frame.ToString(), "0F800001#20");
}

TEST(Validity, IsTouchedByNoSetter)
{
    TarnMessage message = Invalid();
    message.SetFullHeader(0x0F800001);
    message.SetModule(1);
    message.SetChcpID(1);
    Bytes payload{1};
    message.SetData(payload);
    EXPECT_TRUE(!message);
    TarnMessage valid;
    valid.SetFullHeader(0);
    EXPECT_FALSE(!valid);
}

struct Difference {
    const char* name;
    std::function<void(TarnMessage&)> make;
};

void PrintTo(const Difference& difference, std::ostream* out)
{
    *out << difference.name;
}

class Comparison : public testing::TestWithParam<Difference>
{
};

TEST_P(Comparison, SeesTheDifference)
{
    TarnMessage left = Filled();
    TarnMessage right = Filled();
    EXPECT_TRUE(left == right);
    EXPECT_FALSE(left != right);
    GetParam().make(right);
    EXPECT_FALSE(left == right);
    EXPECT_FALSE(right == left);
    EXPECT_TRUE(left != right);
}

void SetPayload(TarnMessage& message, Bytes payload)
{
    message.SetData(payload);
}

INSTANTIATE_TEST_SUITE_P(
    Of, Comparison,
    testing::Values(
        Difference{"LowestHeaderBit", [](TarnMessage& m) { m.SetFullHeader(0xA9EBCDEE); }},
        Difference{"HighestHeaderBit", [](TarnMessage& m) { m.SetFullHeader(0x29EBCDEF); }},
        Difference{"Status", [](TarnMessage& m) { m.SetRStatus(TarnMessage::STATUS_STARTUP); }},
        Difference{"DataType", [](TarnMessage& m) { m.SetDataType(TarnMessage::DATATYPE_U16); }},
        Difference{"Module",
                   [](TarnMessage& m) { m.SetModule(0x78); }}, // the mode bit stays as it was
        Difference{"Length",
                   [](TarnMessage& m) {
                       SetPayload(m, {0x11, 0x22});
                   }},
        Difference{"FirstByte",
                   [](TarnMessage& m) {
                       SetPayload(m, {0x10, 0x22, 0x33});
                   }},
        Difference{"LastByte",
                   [](TarnMessage& m) {
                       SetPayload(m, {0x11, 0x22, 0x34});
                   }}),
    support::CaseName());

TEST(Comparison, IgnoresValidityAndFrame)
{
    TarnMessage zero;
    zero.SetFullHeader(0);
    zero.SetWStatus(static_cast<TarnMessage::tTarnWStatus>(0));
    TarnMessage invalid = Invalid();
    EXPECT_TRUE(zero == invalid);
    EXPECT_FALSE(zero != invalid);
    zero.RawMessageRef();
    EXPECT_TRUE(zero == invalid);
}

} // namespace
