#include "support/Frames.h"

#include <tarn/TarnMessage.h>

#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <string>
#include <thread>
#include <vector>

// One message, many threads. What goes wrong between threads mostly shows under ThreadSanitizer.

namespace
{

using support::Bytes;
using tarn::tarn_u24_t;
using tarn::TarnMessage;

constexpr int ROUNDS = 2000;

/// Runs each job ROUNDS times on a thread of its own, all at once.
void RunTogether(const std::vector<std::function<void()>>& jobs)
{
    std::atomic<bool> go(false);
    std::vector<std::thread> threads;
    for (const auto& job : jobs) {
        threads.emplace_back([&go, &job] {
            while (!go)
                std::this_thread::yield();
            for (int round = 0; round < ROUNDS; ++round)
                job();
        });
    }
    go = true;
    for (std::thread& thread : threads)
        thread.join();
}

TEST(OneMessage, IsSeenWholeByAllThreads)
{
    TarnMessage message;
    message.SetFullHeader(0x05555555);
    std::atomic<int> torn(0);
    RunTogether({[&] { message.SetFullHeader(0x05555555); },
                 [&] { message.SetFullHeader(0x0AAAAAAA); },
                 [&] {
                     const unsigned int header = message.GetFullHeader();
                     torn += header != 0x05555555 && header != 0x0AAAAAAA;
                     const unsigned int sent = message.RawMessage().GetHeader();
                     torn += sent != 0x05555555 && sent != 0x0AAAAAAA;
                 },
                 [&] {
                     const std::string text = message.ToStringShort();
                     torn += text.find("Raw-Header : 5555555") == std::string::npos &&
                             text.find("Raw-Header : aaaaaaa") == std::string::npos;
                 }});
    EXPECT_EQ(torn, 0);
}

TEST(OneMessage, HandsOutOnlyPayloadsThatWereSetWhole)
{
    TarnMessage message;
    std::atomic<int> torn(0);
    RunTogether({[&] {
                     Bytes payload{1, 1, 1, 1, 1, 1};
                     message.SetData(payload);
                 },
                 [&] {
                     std::vector<unsigned short> payload{0x0202};
                     message.SetData(payload);
                 },
                 [&] {
                     Bytes payload;
                     torn += message.GetData(payload) && payload != Bytes(6, 1);
                     std::vector<unsigned short> values;
                     torn +=
                         message.GetData(values) && values != std::vector<unsigned short>{0x0202};
                 }});
    EXPECT_EQ(torn, 0);
}

TEST(OneMessage, ChangesModuleAndModeTogether)
{
    TarnMessage message;
    std::atomic<int> torn(0);
    RunTogether({[&] { message.SetModule(0); }, [&] { message.SetModule(5); },
                 [&] {
                     const std::string sent = message.RawMessage().ToString();
                     torn += sent != "0F800001#20" && sent != "0FC00001#2005";
                 }});
    EXPECT_EQ(torn, 0);
}

TEST(MessagesOfTwoThreads, AreFramedAtTheSameTime)
{
    std::atomic<int> torn(0);
    TarnMessage one;
    one.SetModule(5);
    TarnMessage other;
    other.SetChcpID(5);
    const auto sent = [](TarnMessage& message) { return message.RawMessageRef().ToString(); };
    RunTogether({[&] { torn += sent(one) != "0FC00001#2005"; },
                 [&] { torn += sent(other) != "1F800001#00000000050020"; }});
    EXPECT_EQ(torn, 0);
}

void TouchHeader(TarnMessage& message)
{
    message.SetType(TarnMessage::TYPE_DATA);
    message.SetPriority(message.GetPriority());
    message.SetAddressing(message.GetAddressing());
    message.SetAccessType(message.GetAccessType());
    message.SetDirection(message.GetDirection());
    message.SetAddressingMode(message.GetAddressingMode());
    message.SetRegister(message.GetRegister());
    message.SetTargetAddr(message.GetTargetAddr());
    message.SetSourceAddr(message.GetSourceAddr());
    message.SetModule(message.GetModule());
    message.SetRStatus(message.GetRStatus());
    message.SetWStatus(message.GetWStatus());
    message.SetFullHeader(message.GetFullHeader());
    message.GetType();
}

void TouchChcp(TarnMessage& message)
{
    message.SetChcpMacID(message.GetChcpMacID());
    message.SetChcpID(message.GetChcpID());
    message.SetChcpCommand(TarnMessage::CHCP_COMMAND_1);
    message.GetChcpCommand();
    message.SetChcpDeviceCode(message.GetChcpDeviceCode());
}

template <typename Value>
void TouchData(TarnMessage& message)
{
    std::vector<Value> values(1);
    message.SetData(values);
    message.GetData(values);
}

void TouchPayload(TarnMessage& message)
{
    TouchData<unsigned char>(message);
    TouchData<unsigned short>(message);
    TouchData<tarn_u24_t>(message);
    TouchData<unsigned int>(message);
    TouchData<unsigned long long>(message);
    TouchData<double>(message);
    TouchData<float>(message);
    message.SetDataType(message.GetDataType());
}

void TouchObject(TarnMessage& message)
{
    TarnMessage other;
    EXPECT_FALSE(message == other && message != other && !message);
    message = other;
    try {
        message.RawMessage();
    } catch (const std::string&) {
        // Another thread has just made a CHCP message without 6 bytes of it.
    }
    message.ToString();
    message.ToStringShort();
}

// GetDataSize() reads the number of bytes without the lock, as its manual says; it stays out.
TEST(OneMessage, TakesEveryOperationFromEveryThread)
{
    TarnMessage message;
    const auto each = [&message](void (*touch)(TarnMessage&)) {
        return [&message, touch] { touch(message); };
    };
    RunTogether({each(TouchHeader), each(TouchChcp), each(TouchPayload), each(TouchObject)});
    EXPECT_FALSE(!message);
}

} // namespace
