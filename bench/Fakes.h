#ifndef TARN_BENCH_FAKES_H
#define TARN_BENCH_FAKES_H

#include <plexa_can/CanMessage.h>
#include <plexa_can/iCanAsyncDispatcher.h>
#include <plexa_can/iCanMessageHandler.h>
#include <tarn/TarnMessage.h>
#include <tarn/iTarnMessageHandler.h>

#include <benchmark/benchmark.h>

#include <vector>

namespace bench
{

/// A lower layer without bus or thread: the bench calls the handler as a receive thread would.
class FakeBus : public tarn::iCanAsyncDispatcher
{
public:
    void Start(tarn::iCanMessageHandler* handler) override { mHandler = handler; }
    void Stop(tarn::iCanMessageHandler*) override { mHandler = nullptr; }
    void Send(tarn::CanMessage& frame) override { benchmark::DoNotOptimize(frame); }

    void Receive(tarn::CanMessage& frame) { mHandler->DispatchResponse(frame); }

private:
    tarn::iCanMessageHandler* mHandler = nullptr;
};

class ReadsNothing : public tarn::iTarnMessageHandler
{
public:
    ~ReadsNothing() noexcept override {}

    bool DispatchResponse(tarn::TarnMessage& message) override
    {
        benchmark::DoNotOptimize(&message);
        return false;
    }
};

class ReadsFourFields : public tarn::iTarnMessageHandler
{
public:
    ~ReadsFourFields() noexcept override {}

    bool DispatchResponse(tarn::TarnMessage& message) override
    {
        Read(message);
        return false;
    }

    static void Read(const tarn::TarnMessage& message)
    {
        benchmark::DoNotOptimize(message.GetSourceAddr());
        benchmark::DoNotOptimize(message.GetRegister());
        benchmark::DoNotOptimize(message.GetRStatus());
        benchmark::DoNotOptimize(message.GetDataType());
    }
};

constexpr unsigned char SOURCE = 5;
constexpr unsigned char TARGET = 9;

/// A response of SOURCE to TARGET, with this many payload bytes of type U8.
inline tarn::CanMessage DataFrame(std::size_t payloadBytes = 4)
{
    tarn::CanMessage frame;
    frame.SetHeader(0x0F000000u | (TARGET << 7u) | SOURCE);
    frame.GetFlags() = tarn::CanMessage::FLAG_EXTENDED;
    std::vector<unsigned char> data(payloadBytes, 0x11);
    data.push_back(0x58);
    frame.SetData(data);
    return frame;
}

inline tarn::CanMessage ChcpFrame()
{
    tarn::CanMessage frame;
    frame.SetHeader(0x10000000u | 0x1234567u);
    frame.GetFlags() = tarn::CanMessage::FLAG_EXTENDED;
    frame.SetData({1, 2, 3, 4, 5, 0, 0x10});
    return frame;
}

} // namespace bench

#endif
