#include "support/CanFakes.h"
#include "support/CaseName.h"
#include "support/TemporaryFolder.h"

#include <plexa_can/BusName.h>
#include <plexa_can/CanBus.h>
#include <plexa_can/CanException.h>
#include <plexa_can/LogReplayDispatcher.h>
#include <plexa_can/VirtualCanBus.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <ostream>

namespace
{

using namespace tarn;
using namespace tarn::test;
using testing::HasSubstr;

std::string FailureOf(const std::string& name)
{
    try {
        CanBus::Open(name);
    } catch (const CanException& failure) {
        return failure.message();
    }
    return "no exception";
}

struct NameCase {
    const char* name;
    std::string text;
    std::string result; ///< the parts, or a part of the message
};

void PrintTo(const NameCase& row, std::ostream* out)
{
    *out << row.text.substr(0, 80);
}

class AcceptedName : public testing::TestWithParam<NameCase>
{
};

TEST_P(AcceptedName, IsTakenApart)
{
    const BusName name = ParseBusName(GetParam().text);
    std::string parts = name.scheme + " | " + name.address;
    for (const auto& option : name.options)
        parts += " | " + option.first + " | " + option.second;
    EXPECT_EQ(parts, GetParam().result);
}

INSTANTIATE_TEST_SUITE_P(BusName, AcceptedName,
                         testing::Values(NameCase{"Plain", "virtual:bench", "virtual | bench"},
                                         NameCase{"Options", "log:a.log?speed=2&loop=1",
                                                  "log | a.log | speed | 2 | loop | 1"},
                                         NameCase{"Path", "log:/var/log/a b:c=d&e.log?record=x=y?z",
                                                  "log | /var/log/a b:c=d&e.log | record | x=y?z"},
                                         NameCase{"UnknownScheme", "elsewhere:x", "elsewhere | x"},
                                         NameCase{"Foreign",
                                                  "virtual:Pr\xC3\xBC"
                                                  "fstand",
                                                  "virtual | Pr\xC3\xBC"
                                                  "fstand"}),
                         support::CaseName());

class RefusedName : public testing::TestWithParam<NameCase>
{
};

TEST_P(RefusedName, IsNamedWithTheReason)
{
    EXPECT_THAT(FailureOf(GetParam().text), HasSubstr(GetParam().result));
}

INSTANTIATE_TEST_SUITE_P(
    BusName, RefusedName,
    testing::Values(
        NameCase{"Empty", "", "bus name '': does not begin with a scheme"},
        NameCase{"NoColon", "can0",
                 "bus name 'can0': does not begin with a scheme of letters a to "
                 "z and a ':'; write it like virtual:bench"},
        NameCase{"EmptyScheme", ":x", "does not begin with a scheme"},
        NameCase{"UpperCase", "Virtual:x", "does not begin with a scheme"},
        NameCase{"NoAddress", "virtual:", "'virtual:': nothing behind the scheme"},
        NameCase{"NoAddressButOptions", "log:?speed=1", "nothing behind the scheme"},
        NameCase{"NoOption", "virtual:x?", "'' is not of the form key=value"},
        NameCase{"NoOptionBehind", "virtual:x?queue=1&", "'' is not of the form key=value"},
        NameCase{"NoOptionAhead", "virtual:x?&queue=1", "'' is not of the form key=value"},
        NameCase{"NoValue", "virtual:x?queue", "'queue' is not of the form key=value"},
        NameCase{"EmptyValue", "virtual:x?queue=", "'queue=' is not of the form key=value"},
        NameCase{"EmptyKey", "virtual:x?=1", "'=1' is not of the form key=value"},
        NameCase{"OddKey", "virtual:x?Queue=1", "'Queue=1' is not of the form key=value"},
        NameCase{"Twice", "virtual:x?queue=1&queue=2", "the key 'queue' comes twice"},
        NameCase{"LongKeyTwice",
                 "virtual:x?" + std::string(81, 'k') + "=1&" + std::string(81, 'k') + "=2",
                 "the key '" + std::string(80, 'k') + "...' comes twice"},
        NameCase{"Newline", "virtual:x\ny", "'virtual:x?y': has a control character"},
        NameCase{"Zero", std::string("virtual:x\0y", 11), "has a control character"},
        NameCase{"TooLong", "virtual:" + std::string(8185, 'x'), "longer than 8192 characters"},
        NameCase{"UnknownScheme", "serial:x",
                 "bus name 'serial:x': unknown scheme 'serial'; there are: socketcan "
                 "(socketcan:can0), virtual (virtual:bench), "
                 "log (log:drive.log?speed=2), socketcand (socketcand:127.0.0.1:29536/can0)"},
        NameCase{"LongUnknownScheme", std::string(81, 's') + ":x",
                 "bus name '" + std::string(80, 's') + "...': unknown scheme '" +
                     std::string(80, 's') + "...'; there are"},
        NameCase{"LongUnknownKey",
                 "virtual:" + std::string(80, 'x') + '?' + std::string(81, 'k') + "=1",
                 "bus virtual:" + std::string(72, 'x') + "...: unknown option '" +
                     std::string(80, 'k') + "...'; there are"},
        NameCase{"LongValue", "virtual:x?queue=" + std::string(81, '9'),
                 "option queue: '" + std::string(80, '9') + "...' is not a whole number"},
        NameCase{"UnknownVirtualKey", "virtual:x?speed=1",
                 "bus virtual:x: unknown option 'speed'; there are: delivery, queue, timeout, "
                 "bitrate, loss, duplication, error, delay, seed"},
        NameCase{"UnknownLogKey", "log:x?delay=1",
                 "bus log:x: unknown option 'delay'; there are: speed, loop, record"},
        NameCase{
            "UnknownSocketCanKey", "socketcan:can0?bitrate=1",
            "bus socketcan:can0: unknown option 'bitrate'; there are: errors, buffer, timeout, "
            "priority"},
        NameCase{"UnknownSocketCandKey", "socketcand:127.0.0.1:1/x?speed=1",
                 "bus socketcand:127.0.0.1:1/x: unknown option 'speed'; there are: timeout, "
                 "connect, reconnect, keepalive"},
        NameCase{"NoBusOverTcp", "socketcand:127.0.0.1:29536",
                 "address '127.0.0.1:29536': is not HOST:PORT/BUS; write it like "
                 "192.168.1.20:29536/can0 or [::1]:29536/can0"},
        NameCase{"LongAddress", "socketcand:" + std::string(81, 'h'),
                 "address '" + std::string(80, 'h') + "...': is not HOST:PORT/BUS"},
        NameCase{"NoHost", "socketcand::29536/can0", "names no host"},
        NameCase{"NoHostInBrackets", "socketcand:[]:29536/can0", "names no host"},
        NameCase{"NobodyAtAll", "socketcand:/can0", "is not HOST:PORT/BUS"},
        NameCase{"OpenBracket", "socketcand:[::1:29536/can0", "a '[' without its ']'"},
        NameCase{"BareIpv6", "socketcand:::1/can0", "names no host"},
        NameCase{"PortZero", "socketcand:h:0/can0", "the port is no number from 1 to 65535"},
        NameCase{"PortTooHigh", "socketcand:h:65536/can0", "no number from 1 to 65535"},
        NameCase{"PortOfWords", "socketcand:h:http/can0", "no number from 1 to 65535"},
        NameCase{"RestBehindBracket", "socketcand:[::1]x/can0", "no number from 1 to 65535"},
        NameCase{"NoNameOfBus", "socketcand:h:1/", "the bus has no name of 1 to 64"},
        NameCase{"BracketInBus", "socketcand:h:1/a>b", "the bus has no name of 1 to 64"},
        NameCase{"Delivery", "virtual:x?delivery=post",
                 "bus virtual:x: option delivery: 'post' is not threaded or inline"},
        NameCase{"QueueZero", "virtual:x?queue=0", "'0' is not a whole number from 1 to 1048576"},
        NameCase{"QueueHuge", "virtual:x?queue=99999999999999999999", "is not a whole number"},
        NameCase{"QueueSigned", "virtual:x?queue=-1", "'-1' is not a whole number"},
        NameCase{"QueueWithRest", "virtual:x?queue=1x", "'1x' is not a whole number"},
        NameCase{"QueueWithBlank", "virtual:x?queue= 1", "' 1' is not a whole number"},
        NameCase{"Timeout", "virtual:x?timeout=3600001", "from 0 to 3600000"},
        NameCase{"BitRate", "virtual:x?bitrate=1000001", "from 0 to 1000000"},
        NameCase{"BitRateInline", "virtual:x?bitrate=250000&delivery=inline",
                 "needs threaded delivery"},
        NameCase{"Loss", "virtual:x?loss=1.5",
                 "option loss: '1.5' is not a probability from 0 to 1"},
        NameCase{"LossNegative", "virtual:x?loss=-0.5", "is not a probability"},
        NameCase{"LossNoNumber", "virtual:x?loss=nan", "is not a probability"},
        NameCase{"Duplication", "virtual:x?duplication=2", "option duplication: '2'"},
        NameCase{"Error", "virtual:x?error=x", "option error: 'x'"},
        NameCase{"Delay", "virtual:x?delay=1.5", "option delay: '1.5' is not a whole number"},
        NameCase{"Seed", "virtual:x?seed=18446744073709551616", "option seed"},
        NameCase{"SpeedZero", "log:x?speed=0", "'0' is not a factor above 0, or max"},
        NameCase{"SpeedInfinite", "log:x?speed=inf", "'inf' is not a factor above 0, or max"},
        NameCase{"SpeedNoNumber", "log:x?speed=nan", "is not a factor"},
        NameCase{"Loop", "log:x?loop=yes", "option loop: 'yes' is not 0 or 1"},
        NameCase{"NoSuchLog", "log:/nowhere.log", "/nowhere.log: cannot open: No such file"}),
    support::CaseName());

TEST(CanBus, OpensNodesOfOneVirtualBusByItsName)
{
    const auto one = CanBus::Open("virtual:CanBusTest?delivery=inline&queue=5&timeout=7");
    const auto other = CanBus::Open("virtual:CanBusTest");
    FrameRecorder handler;
    other->Start(&handler);
    CanMessage frame = ExtendedFrame(0x0F800001);
    one->Send(frame);
    EXPECT_EQ(handler.Headers(), std::vector<unsigned int>{0x0F800001});
    EXPECT_NE(std::tr1::dynamic_pointer_cast<VirtualCanNode>(one), nullptr);
}

TEST(CanBus, GivesAVirtualBusItsFaults)
{
    const auto one = CanBus::Open("virtual:CanBusTest?delivery=inline&loss=1&seed=5");
    const auto other = CanBus::Open("virtual:CanBusTest?queue=9");
    FrameRecorder handler;
    other->Start(&handler);
    CanMessage frame = ExtendedFrame(1);
    one->Send(frame);
    EXPECT_TRUE(handler.Frames().empty());
    const auto third = CanBus::Open("virtual:CanBusTest?duplication=1");
    one->Send(frame);
    EXPECT_EQ(handler.Headers(), (std::vector<unsigned int>{1, 1}));
    const auto fourth = CanBus::Open("virtual:CanBusTest?error=1");
    one->Send(frame);
    ASSERT_EQ(handler.Frames().size(), 4u);
    EXPECT_TRUE(handler.Frames()[2].HasError());
}

TEST(CanBus, MakesAVirtualBusTakeItsTime)
{
    // 67 bits at 1000 bits a second; the delay comes on top.
    const auto one = CanBus::Open("virtual:CanBusTest?bitrate=1000&delay=50");
    const auto other = CanBus::Open("virtual:CanBusTest");
    FrameRecorder handler;
    other->Start(&handler);
    CanMessage frame = ExtendedFrame(1);
    const auto begin = std::chrono::steady_clock::now();
    one->Send(frame);
    ASSERT_TRUE(handler.AwaitCount(1));
    EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(117));
}

TEST(CanBus, OpensALogWithItsOptions)
{
    const TemporaryFolder folder;
    const std::string log =
        folder.File("a.log", "(0000000000.000000) can0 101#\n(9999999999.000000) can0 102#\n");
    const auto bus =
        CanBus::Open("log:" + log + "?speed=max&loop=1&record=" + folder.PathOf("sent.log"));
    FrameRecorder handler;
    bus->Start(&handler);
    EXPECT_TRUE(handler.AwaitCount(5));
    CanMessage frame = ExtendedFrame(0x0F800001, {0x20});
    bus->Send(frame);
    EXPECT_THAT(folder.ContentOf("sent.log"), HasSubstr("0F800001#20"));
    bus->Stop(&handler);
}

TEST(CanBus, PlaysALogFasterByAFactor)
{
    const TemporaryFolder folder;
    const std::string log =
        folder.File("a.log", "(0000000000.000000) can0 101#\n(9999999999.000000) can0 102#\n");
    const auto fast = CanBus::Open("log:" + log + "?speed=1e12&loop=0");
    FrameRecorder handler;
    fast->Start(&handler);
    EXPECT_TRUE(handler.AwaitCount(2));
    const auto replay = std::tr1::dynamic_pointer_cast<LogReplayDispatcher>(fast);
    ASSERT_NE(replay, nullptr);
    EXPECT_TRUE(replay->WaitUntilFinished(20000));
}

} // namespace
