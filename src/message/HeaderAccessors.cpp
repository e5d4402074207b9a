#include "lock/ScopedLock.h"
#include "message/HeaderLayout.h"
#include "message/PayloadCodec.h"

#include <tarn/TarnMessage.h>

namespace tarn
{

namespace
{

// The status check lets one value more through than the nibble holds; devices in the field rely on
// 16 being taken as 0.
constexpr int STATUS_LIMIT = 16;
constexpr int DATA_TYPE_LIMIT = 15;
constexpr int CHCP_COMMAND_LIMIT = TarnMessage::CHCP_COMMAND_5;
constexpr unsigned int CHCP_ID_MAX = 0x7F;

// The data bytes of a CHCP message.
constexpr std::size_t CHCP_ID_BYTE = 4;
constexpr std::size_t CHCP_COMMAND_BYTE = 5;

template <typename Field>
unsigned int Load(Poco::Mutex& mutex, const unsigned int& header)
{
    return Locked(mutex, [&] { return Field::Get(header); });
}

/// Only the upper bound counts: a negative value is stored masked.
template <typename Field>
bool Put(unsigned int& header, int value)
{
    if (value > static_cast<int>(Field::MAX))
        return false;
    header = Field::Set(header, static_cast<unsigned int>(value));
    return true;
}

template <typename Field>
bool Store(Poco::Mutex& mutex, unsigned int& header, int value)
{
    return Locked(mutex, [&] { return Put<Field>(header, value); });
}

unsigned char LoadNibble(Poco::Mutex& mutex, const unsigned char& nibble)
{
    return Locked(mutex, [&] { return nibble; });
}

bool StoreNibble(Poco::Mutex& mutex, unsigned char& nibble, int value, int limit)
{
    return Locked(mutex, [&] {
        if (value > limit)
            return false;
        nibble = static_cast<unsigned char>(static_cast<unsigned int>(value) & 0x0Fu);
        return true;
    });
}

} // namespace

TarnMessage::tTarnMSgType TarnMessage::GetType() const
{
    return static_cast<tTarnMSgType>(Load<layout::Type>(mMutex, mHeader));
}

bool TarnMessage::SetType(tTarnMSgType type)
{
    return Locked(mMutex, [&] {
        if (!Put<layout::Type>(mHeader, type))
            return false;
        if (type == TYPE_CHCP && mData.size() != payload::CHCP_BYTES)
            mData.assign(payload::CHCP_BYTES, 0);
        return true;
    });
}

TarnMessage::tTarnMsgPriority TarnMessage::GetPriority() const
{
    return static_cast<tTarnMsgPriority>(Load<layout::Priority>(mMutex, mHeader));
}

bool TarnMessage::SetPriority(tTarnMsgPriority priority)
{
    return Store<layout::Priority>(mMutex, mHeader, priority);
}

TarnMessage::tTarnAddressing TarnMessage::GetAddressing() const
{
    return static_cast<tTarnAddressing>(Load<layout::Addressing>(mMutex, mHeader));
}

bool TarnMessage::SetAddressing(tTarnAddressing addressing)
{
    return Store<layout::Addressing>(mMutex, mHeader, addressing);
}

TarnMessage::tTarnAccessType TarnMessage::GetAccessType() const
{
    return static_cast<tTarnAccessType>(Load<layout::AccessType>(mMutex, mHeader));
}

bool TarnMessage::SetAccessType(tTarnAccessType accessType)
{
    return Store<layout::AccessType>(mMutex, mHeader, accessType);
}

TarnMessage::tTarnDirection TarnMessage::GetDirection() const
{
    return static_cast<tTarnDirection>(Load<layout::Direction>(mMutex, mHeader));
}

bool TarnMessage::SetDirection(tTarnDirection direction)
{
    return Store<layout::Direction>(mMutex, mHeader, direction);
}

TarnMessage::tTarnAddressingMode TarnMessage::GetAddressingMode() const
{
    return static_cast<tTarnAddressingMode>(Load<layout::AddressingMode>(mMutex, mHeader));
}

bool TarnMessage::SetAddressingMode(tTarnAddressingMode mode)
{
    return Store<layout::AddressingMode>(mMutex, mHeader, mode);
}

unsigned char TarnMessage::GetRegister() const
{
    return static_cast<unsigned char>(Load<layout::Register>(mMutex, mHeader));
}

bool TarnMessage::SetRegister(unsigned char reg)
{
    return Store<layout::Register>(mMutex, mHeader, reg);
}

unsigned char TarnMessage::GetTargetAddr() const
{
    return static_cast<unsigned char>(Load<layout::TargetAddr>(mMutex, mHeader));
}

bool TarnMessage::SetTargetAddr(unsigned char address)
{
    return Store<layout::TargetAddr>(mMutex, mHeader, address);
}

unsigned char TarnMessage::GetSourceAddr() const
{
    return static_cast<unsigned char>(Load<layout::SourceAddr>(mMutex, mHeader));
}

bool TarnMessage::SetSourceAddr(unsigned char address)
{
    return Store<layout::SourceAddr>(mMutex, mHeader, address);
}

unsigned char TarnMessage::GetModule() const
{
    return Locked(mMutex, [&] { return mModule; });
}

bool TarnMessage::SetModule(unsigned char module)
{
    ScopedLock lock(mMutex);
    mModule = module;
    return SetAddressingMode(module != 0 ? ADDRESSING_MODE_EXTENDED : ADDRESSING_MODE_STANDARD);
}

TarnMessage::tTarnRStatus TarnMessage::GetRStatus() const
{
    return static_cast<tTarnRStatus>(LoadNibble(mMutex, mStatus));
}

bool TarnMessage::SetRStatus(tTarnRStatus status)
{
    return StoreNibble(mMutex, mStatus, status, STATUS_LIMIT);
}

TarnMessage::tTarnWStatus TarnMessage::GetWStatus() const
{
    return static_cast<tTarnWStatus>(LoadNibble(mMutex, mStatus));
}

bool TarnMessage::SetWStatus(tTarnWStatus status)
{
    return StoreNibble(mMutex, mStatus, status, STATUS_LIMIT);
}

TarnMessage::tTarnDataType TarnMessage::GetDataType() const
{
    return static_cast<tTarnDataType>(LoadNibble(mMutex, mDataType));
}

bool TarnMessage::SetDataType(tTarnDataType type)
{
    return StoreNibble(mMutex, mDataType, type, DATA_TYPE_LIMIT);
}

unsigned int TarnMessage::GetFullHeader() const
{
    return Locked(mMutex, [&] { return mHeader; });
}

bool TarnMessage::SetFullHeader(unsigned int header)
{
    return Locked(mMutex, [&] {
        mHeader = header;
        return true;
    });
}

unsigned int TarnMessage::GetChcpMacID() const
{
    return Load<layout::ChcpMacID>(mMutex, mHeader);
}

bool TarnMessage::SetChcpMacID(unsigned int mac)
{
    return Locked(mMutex, [&] {
        mHeader = layout::ChcpMacID::Set(mHeader, mac);
        return true;
    });
}

// The CHCP getters ask for the type under a lock of its own; whatever another thread does before
// the second lock, the size test keeps the read inside the payload.

unsigned char TarnMessage::GetChcpID() const
{
    if (GetType() != TYPE_CHCP)
        return 0;
    ScopedLock lock(mMutex);
    if (mData.size() != payload::CHCP_BYTES)
        return 0;
    return static_cast<unsigned char>(mData[CHCP_ID_BYTE] & CHCP_ID_MAX);
}

bool TarnMessage::SetChcpID(unsigned char id)
{
    if (id > CHCP_ID_MAX)
        return false;
    ScopedLock lock(mMutex);
    SetType(TYPE_CHCP);
    mData[CHCP_ID_BYTE] = id;
    return true;
}

TarnMessage::tTarnChcpCommand TarnMessage::GetChcpCommand() const
{
    if (GetType() != TYPE_CHCP)
        return CHCP_COMMAND_NONE;
    ScopedLock lock(mMutex);
    if (mData.size() != payload::CHCP_BYTES || mData[CHCP_COMMAND_BYTE] > CHCP_COMMAND_LIMIT)
        return CHCP_COMMAND_NONE;
    return static_cast<tTarnChcpCommand>(mData[CHCP_COMMAND_BYTE]);
}

bool TarnMessage::SetChcpCommand(tTarnChcpCommand command)
{
    if (command > CHCP_COMMAND_LIMIT)
        return false;
    ScopedLock lock(mMutex);
    SetType(TYPE_CHCP);
    mData[CHCP_COMMAND_BYTE] = static_cast<unsigned char>(static_cast<unsigned int>(command));
    return true;
}

TarnMessage::tTarnDeviceCode TarnMessage::GetChcpDeviceCode() const
{
    constexpr auto NONE = static_cast<tTarnDeviceCode>(0);
    if (GetType() != TYPE_CHCP)
        return NONE;
    ScopedLock lock(mMutex);
    if (mData.size() != payload::CHCP_BYTES)
        return NONE;
    return static_cast<tTarnDeviceCode>(
        payload::ReadWord<payload::DEVICE_CODE_BYTES>(mData.data()));
}

bool TarnMessage::SetChcpDeviceCode(tTarnDeviceCode code)
{
    ScopedLock lock(mMutex);
    SetType(TYPE_CHCP);
    payload::WriteWord<payload::DEVICE_CODE_BYTES>(mData.data(), code);
    return true;
}

} // namespace tarn
