#include "lock/ScopedLock.h"
#include "message/PayloadCodec.h"

#include <tarn/TarnMessage.h>

namespace tarn
{

TarnMessage::TarnMessage() : mValid(true), mHeader(0), mStatus(0), mDataType(0), mModule(0)
{
    mData.reserve(payload::MAX_BYTES);
    SetType(TYPE_DATA);
    SetPriority(PRIORITY_DATA);
    SetAddressing(ADDRESSING_DEVICE);
    SetAccessType(ACCESS_READ);
    SetDirection(DIRECTION_REQUEST);
    SetAddressingMode(ADDRESSING_MODE_STANDARD);
    SetRegister(0);
    SetTargetAddr(0);
    SetSourceAddr(1);
    SetWStatus(static_cast<tTarnWStatus>(2));
}

TarnMessage::TarnMessage(const TarnMessage& other)
    : mValid(other.mValid),
      mHeader(other.mHeader),
      mStatus(other.mStatus),
      mDataType(other.mDataType),
      mModule(other.mModule)
{
    mData.reserve(payload::MAX_BYTES);
    mData = other.mData;
}

TarnMessage::~TarnMessage() = default;

void TarnMessage::operator=(const TarnMessage& other)
{
    ScopedLock lock(mMutex);
    mData = other.mData;
    mHeader = other.mHeader;
    mDataType = other.mDataType;
    mStatus = other.mStatus;
    mModule = other.mModule;
}

bool TarnMessage::operator==(const TarnMessage& other) const
{
    ScopedLock lock(mMutex);
    return mHeader == other.mHeader && mStatus == other.mStatus && mDataType == other.mDataType &&
           mData == other.mData && mModule == other.mModule;
}

bool TarnMessage::operator!=(TarnMessage& other) const
{
    return !(*this == other);
}

bool TarnMessage::operator!() const
{
    return !mValid;
}

} // namespace tarn
