#include "MessageChecks.h"
#include "PayloadSetters.h"
#include "Require.h"

#include <cstdint>
#include <cstring>
#include <vector>

// Runs a program of message operations, which the input tells, on some messages and on models of
// them in the terms of the wire format. After every step the two say the same.

namespace
{

using tarn::CanMessage;
using tarn::TarnMessage;

constexpr std::size_t MESSAGES = 3;
constexpr int MOST_STEPS = 64;

struct Pair {
    TarnMessage message;
    WireMessage wire = {};

    Pair()
    {
        wire.valid = 1;
        wire.identifier = 0x0F800001;
        wire.status = 2;
    }
    Pair(CanMessage& frame, const WireMessage& model) : message(frame), wire(model) {}
};

/// Any number, and more often one near the ends of the ranges.
int SomeNumber(FuzzedDataProvider& input)
{
    return input.ConsumeBool() ? input.ConsumeIntegralInRange<int>(-2, 18)
                               : input.ConsumeIntegral<int>();
}

void PutBits(WireMessage& wire, unsigned int lowest, unsigned int width, std::uint32_t value)
{
    const std::uint32_t mask = ((1u << width) - 1u) << lowest;
    wire.identifier = (wire.identifier & ~mask) | (value << lowest & mask);
}

void MakeChcp(WireMessage& wire)
{
    PutBits(wire, 28, 1, 1);
    if (wire.size == 6)
        return;
    wire.size = 6;
    std::memset(wire.payload, 0, 6);
}

/// A setter of an enumeration in the identifier, which has an upper bound alone.
template <typename Enumeration>
void SetEnumeration(Pair& pair, FuzzedDataProvider& input, bool (TarnMessage::*set)(Enumeration),
                    unsigned int lowest, unsigned int width)
{
    const int value = SomeNumber(input);
    const bool fits = value < 1 << width;
    Require((pair.message.*set)(static_cast<Enumeration>(value)) == fits, "value in range");
    if (fits)
        PutBits(pair.wire, lowest, width, static_cast<std::uint32_t>(value));
}

void SetType(Pair& pair, FuzzedDataProvider& input)
{
    const int value = SomeNumber(input);
    Require(pair.message.SetType(static_cast<TarnMessage::tTarnMSgType>(value)) == (value <= 1),
            "type in range");
    if (value == 1)
        MakeChcp(pair.wire);
    else if (value < 1)
        PutBits(pair.wire, 28, 1, static_cast<std::uint32_t>(value));
}

void SetIdentifierField(Pair& pair, FuzzedDataProvider& input)
{
    switch (input.ConsumeIntegralInRange<int>(0, 5)) {
    case 0:
        return SetType(pair, input);
    case 1:
        return SetEnumeration(pair, input, &TarnMessage::SetPriority, 26, 2);
    case 2:
        return SetEnumeration(pair, input, &TarnMessage::SetAddressing, 25, 1);
    case 3:
        return SetEnumeration(pair, input, &TarnMessage::SetAccessType, 24, 1);
    case 4:
        return SetEnumeration(pair, input, &TarnMessage::SetDirection, 23, 1);
    default:
        return SetEnumeration(pair, input, &TarnMessage::SetAddressingMode, 22, 1);
    }
}

void SetAddress(Pair& pair, FuzzedDataProvider& input)
{
    const auto value = input.ConsumeIntegral<unsigned char>();
    switch (input.ConsumeIntegralInRange<int>(0, 3)) {
    case 0:
        Require(pair.message.SetSourceAddr(value) == (value < 128), "source address");
        return value < 128 ? PutBits(pair.wire, 0, 7, value) : void();
    case 1:
        Require(pair.message.SetTargetAddr(value) == (value < 128), "target address");
        return value < 128 ? PutBits(pair.wire, 7, 7, value) : void();
    case 2:
        Require(pair.message.SetRegister(value), "register");
        return PutBits(pair.wire, 14, 8, value);
    default:
        Require(pair.message.SetModule(value), "module");
        pair.wire.module = value;
        return PutBits(pair.wire, 22, 1, value != 0);
    }
}

/// 16 is taken for a status, and 0 then.
void SetStatusOrType(Pair& pair, FuzzedDataProvider& input)
{
    const int value = SomeNumber(input);
    const unsigned int low = static_cast<unsigned int>(value) % 16;
    switch (input.ConsumeIntegralInRange<int>(0, 2)) {
    case 0:
        Require(pair.message.SetRStatus(static_cast<TarnMessage::tTarnRStatus>(value)) ==
                    (value <= 16),
                "status");
        pair.wire.status = value <= 16 ? low : pair.wire.status;
        return;
    case 1:
        Require(pair.message.SetWStatus(static_cast<TarnMessage::tTarnWStatus>(value)) ==
                    (value <= 16),
                "status to write");
        pair.wire.status = value <= 16 ? low : pair.wire.status;
        return;
    default:
        Require(pair.message.SetDataType(static_cast<TarnMessage::tTarnDataType>(value)) ==
                    (value <= 15),
                "data type");
        pair.wire.type = value <= 15 ? low : pair.wire.type;
    }
}

void SetChcpId(Pair& pair, FuzzedDataProvider& input)
{
    const auto id = input.ConsumeIntegral<unsigned char>();
    Require(pair.message.SetChcpID(id) == (id < 128), "CHCP identifier");
    if (id >= 128)
        return;
    MakeChcp(pair.wire);
    pair.wire.payload[4] = id;
}

void SetChcpCommand(Pair& pair, FuzzedDataProvider& input)
{
    const int command = SomeNumber(input);
    Require(pair.message.SetChcpCommand(static_cast<TarnMessage::tTarnChcpCommand>(command)) ==
                (command <= 5),
            "CHCP command");
    if (command > 5)
        return;
    MakeChcp(pair.wire);
    pair.wire.payload[5] = static_cast<unsigned char>(static_cast<unsigned int>(command) % 256);
}

void SetChcpField(Pair& pair, FuzzedDataProvider& input)
{
    const auto word = input.ConsumeIntegral<std::uint64_t>();
    const auto low = static_cast<std::uint32_t>(word);
    switch (input.ConsumeIntegralInRange<int>(0, 4)) {
    case 0:
        return SetChcpId(pair, input);
    case 1:
        return SetChcpCommand(pair, input);
    case 2:
        Require(pair.message.SetChcpMacID(low), "MAC identifier");
        return PutBits(pair.wire, 0, 28, low);
    case 3:
        Require(pair.message.SetFullHeader(low), "identifier word");
        pair.wire.identifier = low;
        return;
    default:
        Require(pair.message.SetChcpDeviceCode(static_cast<TarnMessage::tTarnDeviceCode>(word)),
                "device code");
        MakeChcp(pair.wire);
        for (unsigned int i = 0; i < 4; ++i)
            pair.wire.payload[i] = static_cast<unsigned char>(low >> (8 * i));
    }
}

bool AreEqual(const WireMessage& one, const WireMessage& other)
{
    return one.identifier == other.identifier && one.status == other.status &&
           one.type == other.type && one.module == other.module && one.size == other.size &&
           std::memcmp(one.payload, other.payload, one.size) == 0;
}

void CompareWith(const Pair& pair, Pair& other)
{
    const bool same = AreEqual(pair.wire, other.wire);
    Require((pair.message == other.message) == same, "equality");
    Require((pair.message != other.message) != same, "inequality");
}

/// All but the validity.
void Assign(Pair& pair, const Pair& other)
{
    pair.message = other.message;
    const int valid = pair.wire.valid;
    pair.wire = other.wire;
    pair.wire.valid = valid;
}

class Program
{
public:
    explicit Program(FuzzedDataProvider& input) : mInput(input) { mPairs.resize(MESSAGES); }

    void Run()
    {
        for (int step = 0; step < MOST_STEPS && mInput.remaining_bytes() > 0; ++step) {
            const std::size_t place = SomePlace();
            Step(mPairs[place]);
            RequireSameMessage(mPairs[place].message, mPairs[place].wire);
        }
        RequireAllSame();
    }

private:
    std::size_t SomePlace() { return mInput.ConsumeIntegralInRange<std::size_t>(0, MESSAGES - 1); }

    Pair& SomePair() { return mPairs[SomePlace()]; }

    void RequireAllSame()
    {
        for (Pair& pair : mPairs)
            RequireSameMessage(pair.message, pair.wire);
    }

    void Step(Pair& pair)
    {
        switch (mInput.ConsumeIntegralInRange<int>(0, 7)) {
        case 0:
            return SetIdentifierField(pair, mInput);
        case 1:
            return SetAddress(pair, mInput);
        case 2:
            return SetStatusOrType(pair, mInput);
        case 3:
            return SetChcpField(pair, mInput);
        case 4:
            return SetSomePayload(pair.message, pair.wire, mInput);
        case 5:
            return CompareWith(pair, SomePair());
        case 6:
            return Replace(pair);
        default:
            return Assign(pair, SomePair());
        }
    }

    /// By a copy of another, or by what a frame says.
    void Replace(Pair& pair)
    {
        if (mInput.ConsumeBool()) {
            const Pair copy(SomePair());
            Exchange(pair, copy);
            return;
        }
        CanMessage frame;
        frame.SetHeader(mInput.ConsumeIntegral<std::uint32_t>());
        frame.GetFlags() = mInput.ConsumeBool() ? 1u : mInput.ConsumeIntegral<unsigned int>();
        const auto size = mInput.ConsumeIntegralInRange<std::size_t>(0, CanMessage::MAX_DATA_SIZE);
        frame.SetData(mInput.ConsumeBytes<unsigned char>(size));
        const Pair read(frame, WireRead(frame.GetFlags(), frame.GetHeader(), frame.GetBytes(),
                                        static_cast<unsigned int>(frame.GetDataSize())));
        Exchange(pair, read);
    }

    /// Puts a new message, validity and all, in the place of one.
    void Exchange(Pair& pair, const Pair& replacement)
    {
        std::vector<Pair> pairs;
        for (const Pair& each : mPairs)
            pairs.push_back(&each == &pair ? replacement : each);
        mPairs.swap(pairs);
        RequireAllSame();
    }

    FuzzedDataProvider& mInput;
    std::vector<Pair> mPairs;
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    FuzzedDataProvider input(data, size);
    Program(input).Run();
    return 0;
}
