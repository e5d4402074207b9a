#include <plexa_can/CanMessage.h>
#include <plexa_can/SocketCanDispatcher.h>
#include <plexa_can/iCanMessageHandler.h>

#include <cstdio>
#include <iostream>
#include <string>
#include <vector>

// device_partner INTERFACE: a device with address 9 in a process of its own. It takes requests and
// makes answers byte by byte, without libplexa_tarn, until its input ends; then it prints what its
// connection has counted.
//
// A request carries a number of 32 bits. The answer is that number times 2654435761, plus the
// register, so that no two requests have the same. Ahead of every fourth answer goes one for
// another register.

namespace
{

using namespace tarn;

constexpr unsigned int DEVICE = 9;

unsigned int NumberIn(const unsigned char* bytes)
{
    return bytes[0] | bytes[1] << 8 | bytes[2] << 16 | static_cast<unsigned int>(bytes[3]) << 24;
}

class Device : public iCanMessageHandler
{
public:
    explicit Device(SocketCanDispatcher& bus) : mBus(bus) {}
    ~Device() noexcept override {}

    void DispatchResponse(CanMessage& request) override
    {
        const unsigned int word = request.GetHeader();
        const bool isData = (word >> 28 & 1) == 0;
        const bool isRequest = (word >> 23 & 1) == 1;
        const bool isForMe = (word >> 7 & 0x7F) == DEVICE;
        if (!isData || !isRequest || !isForMe || request.GetDataSize() < 5)
            return;
        const unsigned int reg = word >> 14 & 0xFF;
        const unsigned int number = NumberIn(request.GetBytes());
        const unsigned int source = word & 0x7F;
        const unsigned int answer = (word & 0x1F7FC000) | source << 7 | DEVICE;
        if (number % 4 == 0)
            Answer(answer ^ 1u << 14, 0, request);
        Answer(answer, number * 2654435761u + reg, request);
    }

private:
    void Answer(unsigned int word, unsigned int value, const CanMessage& request)
    {
        std::vector<unsigned char> data;
        for (unsigned int i = 0; i < 4; ++i)
            data.push_back(static_cast<unsigned char>(value >> 8 * i));
        data.push_back(0x5B); // status OPERATING, type U32
        const bool extendedMode = (word >> 22 & 1) == 1;
        if (extendedMode)
            data.push_back(request.GetBytes()[5]);
        CanMessage frame;
        frame.SetHeader(word);
        frame.GetFlags() = CanMessage::FLAG_EXTENDED;
        frame.SetData(data);
        mBus.Send(frame);
    }

    SocketCanDispatcher& mBus;
};

} // namespace

int main(int argc, char** argv)
{
    const auto bus = SocketCanDispatcher::Create(argc > 1 ? argv[1] : "vcan0");
    Device device(*bus);
    bus->Start(&device);
    std::cout << "ready" << std::endl;
    std::string line;
    while (std::getline(std::cin, line))
        ;
    bus->Stop(&device);
    const CanBusCounters counters = bus->GetCounters();
    std::printf("received %llu delivered %llu dropped %llu sent %llu failed %llu threw %llu\n",
                counters.received, counters.delivered, counters.droppedByKernel, counters.sent,
                counters.sendFailures, counters.handlerExceptions);
}
