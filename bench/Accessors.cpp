#include "Path.h"

#include <tarn/TarnMessage.h>

#include <string>

// Every accessor of the header: one pass is one call.

namespace
{

using tarn::TarnMessage;

template <auto Getter>
struct Get {
    TarnMessage message;

    void operator()() { benchmark::DoNotOptimize((message.*Getter)()); }
};

template <auto Getter>
struct GetOfChcp : Get<Getter> {
    GetOfChcp() { this->message.SetType(TarnMessage::TYPE_CHCP); }
};

template <auto Setter, auto Value>
struct Set {
    TarnMessage message;

    void operator()() { benchmark::DoNotOptimize((message.*Setter)(Value)); }
};

constexpr unsigned char BYTE = 7;

#define TARN_BENCH_FIELD(field, value)                                                             \
    (bench::AddPath<Get<&TarnMessage::Get##field>>("get/" #field) &&                               \
     bench::AddPath<Set<&TarnMessage::Set##field, value>>("set/" #field))

#define TARN_BENCH_CHCP_FIELD(field, value)                                                        \
    (bench::AddPath<GetOfChcp<&TarnMessage::Get##field>>("get2/" #field) &&                        \
     bench::AddPath<Set<&TarnMessage::Set##field, value>>("set2/" #field))

const bool added =
    TARN_BENCH_FIELD(Type, TarnMessage::TYPE_DATA) &&
    TARN_BENCH_FIELD(Priority, TarnMessage::PRIORITY_CONTROL) &&
    TARN_BENCH_FIELD(Addressing, TarnMessage::ADDRESSING_GROUP) &&
    TARN_BENCH_FIELD(AccessType, TarnMessage::ACCESS_WRITE) &&
    TARN_BENCH_FIELD(Direction, TarnMessage::DIRECTION_RESPONSE) &&
    TARN_BENCH_FIELD(AddressingMode, TarnMessage::ADDRESSING_MODE_EXTENDED) &&
    TARN_BENCH_FIELD(Register, BYTE) && TARN_BENCH_FIELD(TargetAddr, BYTE) &&
    TARN_BENCH_FIELD(SourceAddr, BYTE) && TARN_BENCH_FIELD(RStatus, TarnMessage::STATUS_STANDBY) &&
    TARN_BENCH_FIELD(WStatus, static_cast<TarnMessage::tTarnWStatus>(3)) &&
    TARN_BENCH_FIELD(DataType, TarnMessage::DATATYPE_U8) && TARN_BENCH_FIELD(FullHeader, 1u) &&
    TARN_BENCH_FIELD(ChcpMacID, 1u) && bench::AddPath<Get<&TarnMessage::GetModule>>("get/Module") &&
    // These lock twice, each by its contract.
    bench::AddPath<Set<&TarnMessage::SetModule, BYTE>>("set2/Module") &&
    TARN_BENCH_CHCP_FIELD(ChcpID, BYTE) &&
    TARN_BENCH_CHCP_FIELD(ChcpCommand, TarnMessage::CHCP_COMMAND_2) &&
    TARN_BENCH_CHCP_FIELD(ChcpDeviceCode, TarnMessage::tTarnDeviceCode{0x12345678});

} // namespace
