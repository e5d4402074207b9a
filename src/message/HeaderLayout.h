#ifndef TARN_MESSAGE_HEADER_LAYOUT_H
#define TARN_MESSAGE_HEADER_LAYOUT_H

namespace tarn::layout
{

/// Width bits of a word, the lowest of them at bit First.
template <unsigned int First, unsigned int Width>
struct Field {
    static constexpr unsigned int FIRST = First;
    static constexpr unsigned int END = First + Width;
    static constexpr unsigned int MAX = (1u << Width) - 1u;
    static constexpr unsigned int MASK = MAX << First;

    static constexpr unsigned int Get(unsigned int word) { return (word >> First) & MAX; }

    static constexpr unsigned int Set(unsigned int word, unsigned int value)
    {
        return (word & ~MASK) | ((value & MAX) << First);
    }
};

// The identifier word of a DATA message.
using SourceAddr = Field<0, 7>;
using TargetAddr = Field<7, 7>;
using Register = Field<14, 8>;
using AddressingMode = Field<22, 1>;
using Direction = Field<23, 1>;
using AccessType = Field<24, 1>;
using Addressing = Field<25, 1>;
using Priority = Field<26, 2>;
using Type = Field<28, 1>;
using Unused = Field<29, 3>;

// The identifier word of a CHCP message: Type and Unused stand where they stand above.
using ChcpMacID = Field<0, 28>;

// The byte behind the payload.
using DataType = Field<0, 4>;
using Status = Field<4, 4>;

/// True when the fields, in this order, cover bits 0 to End-1 without gap or overlap.
template <unsigned int End, typename... Fields>
constexpr bool Tile()
{
    unsigned int next = 0;
    const bool adjoining = ((Fields::FIRST == next && (next = Fields::END) != 0) && ...);
    return adjoining && next == End;
}

static_assert(Tile<32, SourceAddr, TargetAddr, Register, AddressingMode, Direction, AccessType,
                   Addressing, Priority, Type, Unused>());
static_assert(Tile<32, ChcpMacID, Type, Unused>());
static_assert(Tile<8, DataType, Status>());
static_assert(!Tile<9, DataType, Status>() && !Tile<8, Status, DataType>());

} // namespace tarn::layout

#endif
