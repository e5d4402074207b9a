#include "Fakes.h"
#include "Path.h"

#include <tarn/TarnAsyncDispatcher.h>

#include <vector>

// From values to the frame that the lower layer gets. The message is reused.

namespace
{

using tarn::TarnAsyncDispatcher;
using tarn::TarnMessage;

template <typename Value, std::size_t Count>
struct Send {
    std::tr1::shared_ptr<bench::FakeBus> bus{new bench::FakeBus};
    std::tr1::shared_ptr<TarnAsyncDispatcher> dispatcher = TarnAsyncDispatcher::Create(bus);
    TarnMessage message;
    std::vector<Value> values = std::vector<Value>(Count, Value(3));

    void operator()()
    {
        message.SetData(values);
        dispatcher->Send(message);
    }
};

const bool added = bench::AddPath<Send<float, 1>>("send/float") &&
                   bench::AddPath<Send<unsigned short, 3>>("send/three_u16") &&
                   bench::AddPath<Send<unsigned char, 1>>("send/u8x1") &&
                   bench::AddPath<Send<unsigned char, 3>>("send/u8x3") &&
                   bench::AddPath<Send<unsigned char, 6>>("send/u8x6");

} // namespace
