#include "SimulatedDevice.h"

#include "support/Await.h"
#include "support/CanFakes.h"
#include "support/CaseName.h"

#include <plexa_can/CandumpLine.h>
#include <plexa_can/VirtualCanBus.h>
#include <tarn/TarnAsyncDispatcher.h>
#include <tarn/TarnAsyncDispatcherMock.h>
#include <tarn/TarnSyncRequest.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <random>
#include <thread>

namespace
{

using namespace tarn;
using namespace tarn::test;
using namespace tarn::tool;
using testing::ElementsAre;

CanMessage Frame(const std::string& text)
{
    CandumpLine line;
    EXPECT_TRUE(ParseCandumpLine(text.data(), text.size(), line)) << text;
    return line.frame;
}

/// Address 9, group 4. Register 0x11: U16 100, read only; 0x12: U8 1 2 3; 0x13: write only; 0x11 of
/// module 3: FLOAT 1.5.
void FillIn(SimulatedDevice& device)
{
    RegisterMap& registers = device.GetRegisters();
    registers.Add({0, 0x11}, RegisterMap::READ_ONLY, RegisterValue::From<unsigned short>({100}));
    registers.Add({0, 0x12}, RegisterMap::READ_WRITE,
                  RegisterValue::From<unsigned char>({1, 2, 3}));
    registers.Add({0, 0x13}, RegisterMap::WRITE_ONLY, RegisterValue::From<unsigned char>({7}));
    registers.Add({3, 0x11}, RegisterMap::READ_WRITE, RegisterValue::From<double>({1.5}));
}

SimulatedDevice::Options AtNine()
{
    SimulatedDevice::Options options;
    options.address = 9;
    options.groups = {4};
    return options;
}

/// Keeps what it gets as text, each frame behind a blank.
struct Client : iCanMessageHandler {
    ~Client() noexcept override {}
    void DispatchResponse(CanMessage& frame) override { mFrames += " " + frame.ToString(); }

    std::string mFrames;
};

/// A bus that delivers before Send() returns, with a device and a client that keeps what it gets.
class Device : public testing::Test
{
protected:
    explicit Device(SimulatedDevice::Options options = AtNine())
        : mBus(VirtualCanBus::Create(Inline())),
          mDeviceNode(mBus->Connect()),
          mClientNode(mBus->Connect()),
          mDispatcher(TarnAsyncDispatcher::Create(mDeviceNode)),
          mDevice(std::make_unique<SimulatedDevice>(mDispatcher, options))
    {
        FillIn(*mDevice);
        mDispatcher->Start();
        mClientNode->Start(&mClient);
    }

    ~Device() override
    {
        mClientNode->Stop(&mClient);
        mDispatcher->Stop();
    }

    static VirtualCanBus::Options Inline()
    {
        VirtualCanBus::Options options;
        options.delivery = VirtualCanBus::DELIVERY_INLINE;
        return options;
    }

    /// The frames that come in answer to one, each behind a blank.
    std::string AnswersTo(const CanMessage& request)
    {
        mClient.mFrames.clear();
        CanMessage frame = request;
        mClientNode->Send(frame);
        return mClient.mFrames;
    }

    std::string AnswersTo(const std::string& request) { return AnswersTo(Frame(request)); }

    std::tr1::shared_ptr<VirtualCanBus> mBus;
    std::tr1::shared_ptr<VirtualCanNode> mDeviceNode;
    std::tr1::shared_ptr<VirtualCanNode> mClientNode;
    std::tr1::shared_ptr<TarnAsyncDispatcher> mDispatcher;
    Client mClient;
    std::unique_ptr<SimulatedDevice> mDevice;
};

struct Exchange {
    std::string name;
    std::string request;
    std::string answer; ///< behind a blank; empty for none
};

void PrintTo(const Exchange& exchange, std::ostream* out)
{
    *out << exchange.request;
}

class DeviceAnswers : public Device, public testing::WithParamInterface<Exchange>
{
};

TEST_P(DeviceAnswers, WithTheFieldsOfTheRequest)
{
    EXPECT_EQ(AnswersTo(GetParam().request), GetParam().answer);
}

INSTANTIATE_TEST_SUITE_P(Requests, DeviceAnswers,
                         testing::ValuesIn(std::vector<Exchange>{
                             {"Read", "0F844481#20", " 0F044089#640059"},
                             {"ReadForAnotherSource", "0F8444FE#20", " 0F047F09#640059"},
                             {"ReadWithHigherPriority", "07844481#20", " 07044089#640059"},
                             {"ReadOfTheGroup", "0D844201#20", " 0D044084#640059"},
                             {"ReadOfAModule", "0FC44481#2003", " 0F444089#0000C03F5D03"},
                             {"ReadInExtendedModeWithoutModule", "0FC44481#2000",
                              " 0F444089#64005900"},
                             {"Write", "0E848481#04050628", " 0E048089#04050658"},
                             {"WriteToAModule", "0EC44481#000020402D03", " 0E444089#000020405D03"},
                             {"UnknownRegister", "0F880481#20", " 0F080089#B0"},
                             {"UnknownRegisterWritten", "0E880481#0128", " 0E080089#B0"},
                             {"UnknownModule", "0FC44481#2004", " 0F444089#B004"},
                             {"ReadOnlyRegisterWritten", "0E844481#010029", " 0E044089#F0"},
                             {"WriteOnlyRegisterRead", "0F84C481#20", " 0F04C089#F0"}}),
                         support::CaseName());

INSTANTIATE_TEST_SUITE_P(Others, DeviceAnswers,
                         testing::ValuesIn(std::vector<Exchange>{
                             {"Response", "0F044481#640059", ""},
                             {"ForAnotherDevice", "0F844501#20", ""},
                             {"ForADeviceWithTheNumberOfItsGroup", "0F844201#20", ""},
                             {"ForAGroupWithItsNumber", "0D844481#20", ""},
                             {"Chcp", "1F844481#01020304050020", ""},
                             {"ChcpOfTheWrongLength", "1F844481#20", ""},
                             {"TooShort", "0F844481#", ""}}),
                         support::CaseName());

class DeviceRefuses : public Device, public testing::WithParamInterface<Exchange>
{
};

TEST_P(DeviceRefuses, AValueThatDoesNotFitItsRegister)
{
    EXPECT_EQ(AnswersTo(GetParam().request), " 0E048089#E0");
    EXPECT_EQ(AnswersTo("0F848481#20"), " 0F048089#01020358") << "the register keeps its value";
}

INSTANTIATE_TEST_SUITE_P(Writes, DeviceRefuses,
                         testing::ValuesIn(std::vector<Exchange>{
                             {"Nothing", "0E848481#28", ""},
                             {"TooFew", "0E848481#040528", ""},
                             {"TooMany", "0E848481#0405060728", ""},
                             {"SevenBytes", "0E848481#0405060708090A28", ""},
                             {"AnotherType", "0E848481#04050629", ""},
                             {"NoType", "0E848481#0405062F", ""}}),
                         support::CaseName());

struct TypedValue {
    std::string name;
    RegisterValue initial;
    std::string bytes;
    std::string type; ///< low digit of the status byte
};

void PrintTo(const TypedValue& value, std::ostream* out)
{
    *out << value.bytes;
}

class DeviceKeeps : public Device, public testing::WithParamInterface<TypedValue>
{
};

TEST_P(DeviceKeeps, WhatIsWrittenToIt)
{
    const auto& [name, initial, bytes, type] = GetParam();
    mDevice->GetRegisters().Add({0, 0}, RegisterMap::READ_WRITE, initial);
    const std::string carried = bytes + "5" + type;
    EXPECT_EQ(AnswersTo("0E800481#" + bytes + "2" + type), " 0E000089#" + carried);
    EXPECT_EQ(AnswersTo("0F800481#20"), " 0F000089#" + carried);
}

INSTANTIATE_TEST_SUITE_P(
    Values, DeviceKeeps,
    testing::ValuesIn(std::vector<TypedValue>{
        {"U8", RegisterValue::From<unsigned char>({0, 0, 0}), "01FF03", "8"},
        {"U16", RegisterValue::From<unsigned short>({0, 0, 0}), "6400C8002C01", "9"},
        {"U24", RegisterValue::From<tarn_u24_t>({{0}, {0}}), "563412BC9A78", "A"},
        {"U32", RegisterValue::From<unsigned int>({0}), "78563412", "B"},
        {"U48", RegisterValue::From<unsigned long long>({0}), "BC9A78563412", "C"},
        {"FLOAT", RegisterValue::From<double>({0}), "0000C03F", "D"},
        {"S16F0", RegisterValue::From<float>({0}), "0030", "0"},
        {"S16F7InARegisterOfS16F0", RegisterValue::From<float>({0, 0}), "FF7F0080", "7"},
        {"Untyped", {TarnMessage::DATATYPE_NOT_A_TYPE, {0, 0}}, "ABCD", "F"},
        {"Nothing", {TarnMessage::DATATYPE_U8, {}}, "", "8"}}),
    support::CaseName());

TEST_F(Device, SatisfiesSynchronousRequestsOfEveryKind)
{
    const auto client = TarnAsyncDispatcher::Create(mClientNode);
    client->Start();
    const auto sync = TarnSyncRequest::Create(client);
    for (int kind = 0; kind < 16; ++kind) {
        SCOPED_TRACE(kind);
        const bool group = (kind & 1) != 0;
        TarnMessage request;
        request.SetTargetAddr(group ? 4 : 9);
        request.SetAddressing(group ? TarnMessage::ADDRESSING_GROUP
                                    : TarnMessage::ADDRESSING_DEVICE);
        request.SetAccessType((kind & 2) != 0 ? TarnMessage::ACCESS_READ
                                              : TarnMessage::ACCESS_WRITE);
        request.SetRegister((kind & 4) != 0 ? 0x11 : 0x77);
        request.SetModule((kind & 8) != 0 ? 3 : 0);
        TarnMessage response;
        EXPECT_TRUE(sync->Send(request, response, 0));
    }
    client->Stop();
}

TEST_F(Device, ReportsItsPresentStatusAndValue)
{
    mDevice->SetStatus(TarnMessage::STATUS_OPERATING_WITH_WARNING);
    auto& registers = mDevice->GetRegisters();
    EXPECT_TRUE(registers.Set({0, 0x11}, RegisterValue::From<unsigned short>({258})));
    EXPECT_FALSE(registers.Set({0, 0x11}, RegisterValue::From<unsigned char>({1})));
    EXPECT_FALSE(registers.Set({0, 0x77}, RegisterValue::From<unsigned char>({1})));
    EXPECT_EQ(AnswersTo("0F844481#20"), " 0F044089#020169");
}

TEST_F(Device, CountsAnswersThatTheBusRefuses)
{
    FrameRecorder cutter([this](CanMessage&) { mDeviceNode->SetBusOff(true); });
    mDeviceNode->Stop(mDispatcher.get());
    mDeviceNode->Start(&cutter); // ahead of the device, so that the answer finds no bus
    mDispatcher->Start();
    EXPECT_EQ(AnswersTo("0F844481#20"), "");
    mDeviceNode->Stop(&cutter);
    EXPECT_EQ(mDevice->GetCounters().requests, 1u);
    EXPECT_EQ(mDevice->GetCounters().answers, 0u);
    EXPECT_EQ(mDevice->GetCounters().unsent, 1u);
    EXPECT_EQ(mBus->GetCounters().handlerExceptions, 0u);
}

TEST_F(Device, IsNotHeardAnyMoreOnceItIsGone)
{
    mDevice.reset();
    EXPECT_EQ(AnswersTo("0F844481#20"), "");
}

TEST_F(Device, SurvivesRandomFrames)
{
    std::mt19937 random(1);
    unsigned int forIt = 0;
    for (int i = 0; i < 20000; ++i) {
        std::vector<unsigned char> data(random() % 9);
        for (unsigned char& byte : data)
            byte = static_cast<unsigned char>(random());
        unsigned int header = random() & 0x1FFFFFFFu;
        if (i % 2 == 0)
            header = (header & ~0x12003F80u) | 0x02000000u | (9u << 7);
        const std::size_t trailer = (header & 0x00400000u) != 0 ? 2 : 1;
        const bool device = (header & 0x12803F80u) == (0x02800000u | (9u << 7));
        const bool group = (header & 0x12803F80u) == (0x00800000u | (4u << 7));
        const bool answered = (device || group) && data.size() >= trailer;
        forIt += answered ? 1 : 0;
        ASSERT_EQ(AnswersTo(ExtendedFrame(header, data)).empty(), !answered) << header;
    }
    EXPECT_GT(forIt, 4000u);
    EXPECT_EQ(mDevice->GetCounters().answers, forIt);
    EXPECT_EQ(mBus->GetCounters().handlerExceptions, 0u);
}

SimulatedDevice::Options Silent()
{
    SimulatedDevice::Options options = AtNine();
    options.silent = true;
    return options;
}

class SilentDevice : public Device
{
protected:
    SilentDevice() : Device(Silent()) {}
};

TEST_F(SilentDevice, DoesWhatItIsToldAndAnswersNothing)
{
    EXPECT_EQ(AnswersTo("0F844481#20"), "");
    EXPECT_EQ(AnswersTo("0E848481#04050628"), "");
    RegisterValue value;
    EXPECT_FALSE(mDevice->GetRegisters().Read({0, 0x12}, value).has_value());
    EXPECT_THAT(value.bytes, ElementsAre(4, 5, 6));
    EXPECT_EQ(mDevice->GetCounters().requests, 2u);
    EXPECT_EQ(mDevice->GetCounters().answers, 0u);
}

SimulatedDevice::Options LateBy(std::chrono::milliseconds delay)
{
    SimulatedDevice::Options options = AtNine();
    options.delay = delay;
    return options;
}

TEST(LateDevice, HoldsUpNobodyAndForgetsWhatWaitsWhenItGoes)
{
    const auto mock = TarnAsyncDispatcherMock::Create();
    SimulatedDevice device(mock, LateBy(std::chrono::hours(1)));
    FillIn(device);
    CanMessage request = Frame("0F844481#20");
    for (std::size_t i = 0; i < LateSender::CAPACITY + 2; ++i)
        mock->DispatchResponse(request);
    EXPECT_EQ(device.GetCounters().requests, LateSender::CAPACITY + 2);
    EXPECT_EQ(device.GetCounters().answers, 0u);
    EXPECT_EQ(device.GetCounters().unsent, 2u) << "memory is bounded";
}

TEST(LateDevice, AnswersOverABusWhileItsValuesMove)
{
    const auto bus = VirtualCanBus::Create();
    const auto deviceSide = TarnAsyncDispatcher::Create(bus->Connect());
    const auto clientSide = TarnAsyncDispatcher::Create(bus->Connect());
    SimulatedDevice device(deviceSide, LateBy(std::chrono::milliseconds(1)));
    FillIn(device);
    deviceSide->Start();
    clientSide->Start();
    std::atomic<bool> done{false};
    std::thread mover([&] {
        for (unsigned short i = 0; !done; ++i)
            device.GetRegisters().Set({0, 0x11}, RegisterValue::From<unsigned short>({i}));
    });
    TarnMessage request;
    request.SetTargetAddr(9);
    request.SetRegister(0x11);
    const auto sync = TarnSyncRequest::Create(clientSide);
    for (int i = 0; i < 50; ++i) {
        TarnMessage response;
        ASSERT_TRUE(sync->Send(request, response, 20000));
        EXPECT_EQ(response.GetDataType(), TarnMessage::DATATYPE_U16);
    }
    done = true;
    mover.join();
    clientSide->Stop();
    deviceSide->Stop();
    EXPECT_EQ(device.GetCounters().answers, 50u);
}

TEST(LateSender, SendsOnAThreadOfItsOwnInTheOrderOfTime)
{
    Gate open;
    Gate finished;
    std::string sent;
    std::thread::id thread;
    LateSender sender([&](TarnMessage& message) {
        open.Pass();
        thread = std::this_thread::get_id();
        sent += std::to_string(message.GetRegister());
        if (sent.size() == 4)
            finished.Open();
    });
    const auto put = [&](unsigned char reg, int due) {
        TarnMessage message;
        message.SetRegister(reg);
        EXPECT_TRUE(sender.Put(message, LateSender::Clock::time_point(std::chrono::seconds(due))));
    };
    put(1, 0); // every due time is past; the gate holds the first one up
    put(4, 3);
    put(2, 2);
    put(3, 2);
    open.Open();
    ASSERT_TRUE(finished.Pass());
    EXPECT_EQ(sent, "1234");
    EXPECT_NE(thread, std::this_thread::get_id());
}

TEST(SimulatedDevice, RefusesWhatNobodyCanListenTo)
{
    const auto mock = TarnAsyncDispatcherMock::Create();
    SimulatedDevice::Options options;
    options.address = 127;
    EXPECT_THROW(SimulatedDevice(mock, options), std::invalid_argument);
    options.address = 126;
    options.groups = {127};
    EXPECT_THROW(SimulatedDevice(mock, options), std::invalid_argument);
    options.groups = {126};
    EXPECT_NO_THROW(SimulatedDevice(mock, options));
}

TEST(RegisterValue, RefusesWhatNoMessageCarries)
{
    EXPECT_THROW(RegisterValue::From<unsigned short>({}), std::invalid_argument);
    EXPECT_THROW(RegisterValue::From<unsigned int>({1, 2}), std::invalid_argument);
    EXPECT_THROW(RegisterValue::From<float>({70000.0F}), std::invalid_argument);
    RegisterMap registers;
    EXPECT_THROW(registers.Add({0, 0}, RegisterMap::READ_ONLY,
                               {TarnMessage::DATATYPE_U8, std::vector<unsigned char>(7)}),
                 std::invalid_argument);
}

} // namespace
