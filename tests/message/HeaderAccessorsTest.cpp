#include "support/Frames.h"

#include <tarn/TarnMessage.h>

#include <gtest/gtest.h>

#include <ostream>
#include <string>

namespace
{

using support::Bytes;
using support::PayloadOf;
using tarn::TarnMessage;

// A word that alternates, so that a field written too wide or beside its place shows.
constexpr unsigned int EVEN_BITS = 0x55555555;
constexpr unsigned int ODD_BITS = 0xAAAAAAAA;

TarnMessage WithHeader(unsigned int header)
{
    TarnMessage message;
    message.SetFullHeader(header);
    return message;
}

/// One call of a setter on one word: what it answers, the word afterwards, and what the getter
/// shows then.
struct SetterCase {
    const char* name;
    bool (*set)(TarnMessage&, int);
    int (*get)(const TarnMessage&);
    int value;
    unsigned int before;
    bool taken;
    unsigned int after;
    int shown;
};

void PrintTo(const SetterCase& row, std::ostream* out)
{
    *out << row.name << "(" << row.value << ") on " << std::hex << row.before;
}

// An accessor pair of an enumerated field and of a byte field, as functions of int.
#define ENUM_FIELD(NAME, TYPE)                                                                     \
#NAME,                                                                                         \
        [](TarnMessage& message, int value) {                                                      \
            return message.Set##NAME(static_cast<TarnMessage::TYPE>(value));                       \
        },                                                                                         \
        [](const TarnMessage& message) { return static_cast<int>(message.Get##NAME()); }
#define BYTE_FIELD(NAME)                                                                           \
#NAME,                                                                                         \
        [](TarnMessage& message, int value) {                                                      \
            return message.Set##NAME(static_cast<unsigned char>(value));                           \
        },                                                                                         \
        [](const TarnMessage& message) { return static_cast<int>(message.Get##NAME()); }

class HeaderSetter : public testing::TestWithParam<SetterCase>
{
};

TEST_P(HeaderSetter, ChangesItsOwnBitsOrNothing)
{
    const SetterCase& row = GetParam();
    TarnMessage message = WithHeader(row.before);
    EXPECT_EQ(row.set(message, row.value), row.taken);
    EXPECT_EQ(message.GetFullHeader(), row.after);
    EXPECT_EQ(row.get(message), row.shown);
}

#define TYPE ENUM_FIELD(Type, tTarnMSgType)
#define PRIORITY ENUM_FIELD(Priority, tTarnMsgPriority)
#define ADDRESSING ENUM_FIELD(Addressing, tTarnAddressing)
#define ACCESS_TYPE ENUM_FIELD(AccessType, tTarnAccessType)
#define DIRECTION ENUM_FIELD(Direction, tTarnDirection)
#define ADDRESSING_MODE ENUM_FIELD(AddressingMode, tTarnAddressingMode)

INSTANTIATE_TEST_SUITE_P(
    Accepted, HeaderSetter,
    testing::Values(SetterCase{TYPE, 1, 0x00000000, true, 0x10000000, 1},
                    SetterCase{TYPE, 0, 0xFFFFFFFF, true, 0xEFFFFFFF, 0},
                    SetterCase{TYPE, 1, ODD_BITS, true, 0xBAAAAAAA, 1},
                    SetterCase{TYPE, -1, 0x00000000, true, 0x10000000, 1},
                    SetterCase{TYPE, -2, 0xFFFFFFFF, true, 0xEFFFFFFF, 0},
                    SetterCase{PRIORITY, 0, 0xFFFFFFFF, true, 0xF3FFFFFF, 0},
                    SetterCase{PRIORITY, 1, 0x00000000, true, 0x04000000, 1},
                    SetterCase{PRIORITY, 2, EVEN_BITS, true, 0x59555555, 2},
                    SetterCase{PRIORITY, 3, 0x00000000, true, 0x0C000000, 3},
                    SetterCase{PRIORITY, 3, ODD_BITS, true, 0xAEAAAAAA, 3},
                    SetterCase{PRIORITY, -1, 0x00000000, true, 0x0C000000, 3},
                    SetterCase{PRIORITY, -6, 0x00000000, true, 0x08000000, 2},
                    SetterCase{ADDRESSING, 0, 0xFFFFFFFF, true, 0xFDFFFFFF, 0},
                    SetterCase{ADDRESSING, 1, 0x00000000, true, 0x02000000, 1},
                    SetterCase{ADDRESSING, -1, EVEN_BITS, true, 0x57555555, 1},
                    SetterCase{ADDRESSING, -2, ODD_BITS, true, 0xA8AAAAAA, 0},
                    SetterCase{ACCESS_TYPE, 0, 0xFFFFFFFF, true, 0xFEFFFFFF, 0},
                    SetterCase{ACCESS_TYPE, 1, 0x00000000, true, 0x01000000, 1},
                    SetterCase{ACCESS_TYPE, -1, ODD_BITS, true, 0xABAAAAAA, 1},
                    SetterCase{ACCESS_TYPE, -2, EVEN_BITS, true, 0x54555555, 0},
                    SetterCase{DIRECTION, 0, 0xFFFFFFFF, true, 0xFF7FFFFF, 0},
                    SetterCase{DIRECTION, 1, 0x00000000, true, 0x00800000, 1},
                    SetterCase{DIRECTION, -1, EVEN_BITS, true, 0x55D55555, 1},
                    SetterCase{DIRECTION, -2, ODD_BITS, true, 0xAA2AAAAA, 0},
                    SetterCase{ADDRESSING_MODE, 0, 0xFFFFFFFF, true, 0xFFBFFFFF, 0},
                    SetterCase{ADDRESSING_MODE, 1, 0x00000000, true, 0x00400000, 1},
                    SetterCase{ADDRESSING_MODE, -1, ODD_BITS, true, 0xAAEAAAAA, 1},
                    SetterCase{ADDRESSING_MODE, -2, EVEN_BITS, true, 0x55155555, 0}));

INSTANTIATE_TEST_SUITE_P(
    AcceptedBytes, HeaderSetter,
    testing::Values(SetterCase{BYTE_FIELD(Register), 0, 0xFFFFFFFF, true, 0xFFC03FFF, 0},
                    SetterCase{BYTE_FIELD(Register), 1, 0x00000000, true, 0x00004000, 1},
                    SetterCase{BYTE_FIELD(Register), 255, 0x00000000, true, 0x003FC000, 255},
                    SetterCase{BYTE_FIELD(Register), 0xA5, EVEN_BITS, true, 0x55695555, 0xA5},
                    SetterCase{BYTE_FIELD(TargetAddr), 0, 0xFFFFFFFF, true, 0xFFFFC07F, 0},
                    SetterCase{BYTE_FIELD(TargetAddr), 1, 0x00000000, true, 0x00000080, 1},
                    SetterCase{BYTE_FIELD(TargetAddr), 127, 0x00000000, true, 0x00003F80, 127},
                    SetterCase{BYTE_FIELD(TargetAddr), 0x2A, ODD_BITS, true, 0xAAAA952A, 0x2A},
                    SetterCase{BYTE_FIELD(SourceAddr), 0, 0xFFFFFFFF, true, 0xFFFFFF80, 0},
                    SetterCase{BYTE_FIELD(SourceAddr), 1, 0x00000000, true, 0x00000001, 1},
                    SetterCase{BYTE_FIELD(SourceAddr), 127, 0x00000000, true, 0x0000007F, 127},
                    SetterCase{BYTE_FIELD(SourceAddr), 0x2A, EVEN_BITS, true, 0x5555552A, 0x2A}));

INSTANTIATE_TEST_SUITE_P(
    Refused, HeaderSetter,
    testing::Values(SetterCase{TYPE, 2, EVEN_BITS, false, EVEN_BITS, 1},
                    SetterCase{TYPE, 0x7FFFFFFF, ODD_BITS, false, ODD_BITS, 0},
                    SetterCase{PRIORITY, 4, EVEN_BITS, false, EVEN_BITS, 1},
                    SetterCase{PRIORITY, 0x7FFFFFFF, ODD_BITS, false, ODD_BITS, 2},
                    SetterCase{ADDRESSING, 2, EVEN_BITS, false, EVEN_BITS, 0},
                    SetterCase{ACCESS_TYPE, 2, EVEN_BITS, false, EVEN_BITS, 1},
                    SetterCase{DIRECTION, 2, EVEN_BITS, false, EVEN_BITS, 0},
                    SetterCase{ADDRESSING_MODE, 2, EVEN_BITS, false, EVEN_BITS, 1},
                    SetterCase{BYTE_FIELD(TargetAddr), 128, EVEN_BITS, false, EVEN_BITS, 42},
                    SetterCase{BYTE_FIELD(TargetAddr), 200, EVEN_BITS, false, EVEN_BITS, 42},
                    SetterCase{BYTE_FIELD(TargetAddr), 255, EVEN_BITS, false, EVEN_BITS, 42},
                    SetterCase{BYTE_FIELD(SourceAddr), 128, EVEN_BITS, false, EVEN_BITS, 85},
                    SetterCase{BYTE_FIELD(SourceAddr), 255, EVEN_BITS, false, EVEN_BITS, 85}));

/// One call of the setter of a nibble: what it answers and what both getters show then.
struct NibbleCase {
    int value;
    bool taken;
    int shown;
};

void PrintTo(const NibbleCase& row, std::ostream* out)
{
    *out << row.value;
}

class StatusSetter : public testing::TestWithParam<NibbleCase>
{
};

TEST_P(StatusSetter, WritesOneNibbleThatBothViewsShow)
{
    const NibbleCase& row = GetParam();
    TarnMessage written;
    written.SetWStatus(static_cast<TarnMessage::tTarnWStatus>(9));
    TarnMessage reported(written);
    EXPECT_EQ(written.SetWStatus(static_cast<TarnMessage::tTarnWStatus>(row.value)), row.taken);
    EXPECT_EQ(reported.SetRStatus(static_cast<TarnMessage::tTarnRStatus>(row.value)), row.taken);
    for (const TarnMessage* message : {&written, &reported}) {
        EXPECT_EQ(message->GetWStatus(), row.shown);
        EXPECT_EQ(message->GetRStatus(), row.shown);
        EXPECT_EQ(message->GetDataType(), 0);
        EXPECT_EQ(message->GetFullHeader(), 0x0F800001u);
    }
}

INSTANTIATE_TEST_SUITE_P(Accepted, StatusSetter,
                         testing::Values(NibbleCase{0, true, 0}, NibbleCase{1, true, 1},
                                         NibbleCase{5, true, 5}, NibbleCase{15, true, 15},
                                         NibbleCase{16, true, 0}, NibbleCase{-1, true, 15},
                                         NibbleCase{-16, true, 0}, NibbleCase{-13, true, 3}));
INSTANTIATE_TEST_SUITE_P(Refused, StatusSetter,
                         testing::Values(NibbleCase{17, false, 9}, NibbleCase{32, false, 9},
                                         NibbleCase{0x7FFFFFFF, false, 9}));

class DataTypeSetter : public testing::TestWithParam<NibbleCase>
{
};

TEST_P(DataTypeSetter, RelabelsThePayloadOnly)
{
    const NibbleCase& row = GetParam();
    TarnMessage message;
    Bytes payload{1, 2, 3};
    ASSERT_TRUE(message.SetData(payload));
    EXPECT_EQ(message.SetDataType(static_cast<TarnMessage::tTarnDataType>(row.value)), row.taken);
    EXPECT_EQ(message.GetDataType(), row.shown);
    EXPECT_EQ(PayloadOf(message), (Bytes{1, 2, 3}));
    EXPECT_EQ(message.GetWStatus(), 2);
    EXPECT_EQ(message.GetFullHeader(), 0x0F800001u);
}

INSTANTIATE_TEST_SUITE_P(Accepted, DataTypeSetter,
                         testing::Values(NibbleCase{0, true, 0}, NibbleCase{13, true, 13},
                                         NibbleCase{14, true, 14}, NibbleCase{15, true, 15},
                                         NibbleCase{-1, true, 15}, NibbleCase{-8, true, 8},
                                         NibbleCase{-16, true, 0}));
INSTANTIATE_TEST_SUITE_P(Refused, DataTypeSetter,
                         testing::Values(NibbleCase{16, false, 8}, NibbleCase{17, false, 8},
                                         NibbleCase{0x7FFFFFFF, false, 8}));

TEST(Module, TurnsTheModuleByteOnAndOff)
{
    TarnMessage message = WithHeader(0);
    EXPECT_TRUE(message.SetModule(3));
    EXPECT_EQ(message.GetModule(), 3);
    EXPECT_EQ(message.GetAddressingMode(), TarnMessage::ADDRESSING_MODE_EXTENDED);
    EXPECT_EQ(message.GetFullHeader(), 0x00400000u);
    EXPECT_TRUE(message.SetModule(255));
    EXPECT_EQ(message.GetModule(), 255);
    EXPECT_TRUE(message.SetModule(0));
    EXPECT_EQ(message.GetModule(), 0);
    EXPECT_EQ(message.GetAddressingMode(), TarnMessage::ADDRESSING_MODE_STANDARD);
    EXPECT_EQ(message.GetFullHeader(), 0u);
}

TEST(Module, ChangesTheModeBitOfAChcpMessageToo)
{
    TarnMessage message = WithHeader(0x10000000);
    EXPECT_TRUE(message.SetModule(1));
    EXPECT_EQ(message.GetFullHeader(), 0x10400000u);
}

TEST(AddressingMode, LeavesTheModuleAlone)
{
    TarnMessage message;
    message.SetModule(7);
    EXPECT_TRUE(message.SetAddressingMode(TarnMessage::ADDRESSING_MODE_STANDARD));
    EXPECT_EQ(message.GetModule(), 7);
    EXPECT_TRUE(message.SetAddressingMode(TarnMessage::ADDRESSING_MODE_EXTENDED));
    EXPECT_EQ(message.GetModule(), 7);
}

TEST(FullHeader, IsKeptAsItIsAndTouchesNoPayload)
{
    TarnMessage message;
    EXPECT_TRUE(message.SetFullHeader(0xFFFFFFFF));
    EXPECT_EQ(message.GetFullHeader(), 0xFFFFFFFFu);
    EXPECT_EQ(message.GetType(), TarnMessage::TYPE_CHCP);
    EXPECT_EQ(PayloadOf(message), Bytes{});
    Bytes payload{1, 2};
    message.SetData(payload);
    EXPECT_TRUE(message.SetFullHeader(0x10000000));
    EXPECT_EQ(PayloadOf(message), (Bytes{1, 2}));
    EXPECT_TRUE(message.SetFullHeader(0));
    EXPECT_EQ(message.GetFullHeader(), 0u);
}

TEST(DataGetters, ShowTheBitsOfAMacIdentifier)
{
    // 9ABCDEF is 10 0 1 1 0 10101111 0011011 1101111 in the fields of a DATA message.
    const TarnMessage message = WithHeader(0x19ABCDEF);
    EXPECT_EQ(message.GetType(), TarnMessage::TYPE_CHCP);
    EXPECT_EQ(message.GetSourceAddr(), 0x6F);
    EXPECT_EQ(message.GetTargetAddr(), 0x1B);
    EXPECT_EQ(message.GetRegister(), 0xAF);
    EXPECT_EQ(message.GetAddressingMode(), TarnMessage::ADDRESSING_MODE_STANDARD);
    EXPECT_EQ(message.GetDirection(), TarnMessage::DIRECTION_REQUEST);
    EXPECT_EQ(message.GetAccessType(), TarnMessage::ACCESS_READ);
    EXPECT_EQ(message.GetAddressing(), TarnMessage::ADDRESSING_GROUP);
    EXPECT_EQ(message.GetPriority(), TarnMessage::PRIORITY_CONTROL);
}

} // namespace
