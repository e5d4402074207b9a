#include "RegisterMap.h"

#include <stdexcept>
#include <utility>

namespace tarn::tool
{

namespace
{

constexpr std::size_t MAX_BYTES = 6;

bool IsFixedPoint(TarnMessage::tTarnDataType dataType)
{
    return dataType <= TarnMessage::DATATYPE_S16F7;
}

bool AreOneType(TarnMessage::tTarnDataType one, TarnMessage::tTarnDataType other)
{
    return one == other || (IsFixedPoint(one) && IsFixedPoint(other));
}

} // namespace

std::optional<RegisterValue> RegisterValue::Of(const TarnMessage& message)
{
    TarnMessage bytes(message);
    bytes.SetDataType(TarnMessage::DATATYPE_U8); // read as U8, a payload is its bytes
    RegisterValue value;
    value.dataType = message.GetDataType();
    if (bytes.GetDataSize() > 0 && !bytes.GetData(value.bytes))
        return std::nullopt;
    return value;
}

RegisterValue RegisterValue::Made(bool taken, const TarnMessage& message)
{
    const auto value = Of(message);
    if (!taken || !value)
        throw std::invalid_argument("register: no message carries so many or such values; "
                                    "give 1 value, or as many as fit 6 bytes");
    return *value;
}

void RegisterValue::PutInto(TarnMessage& message) const
{
    std::vector<unsigned char> payload = bytes;
    if (!payload.empty())
        message.SetData(payload);
    message.SetDataType(dataType);
}

void RegisterMap::Add(Place place, tAccess access, RegisterValue value)
{
    if (value.bytes.size() > MAX_BYTES)
        throw std::invalid_argument("register: a value has at most 6 bytes; shorten it");
    const std::lock_guard<std::mutex> lock(mMutex);
    mRegisters[place] = {access, std::move(value), {}};
}

void RegisterMap::AddMoving(Place place, tAccess access, std::function<RegisterValue()> next)
{
    Add(place, access, next());
    const std::lock_guard<std::mutex> lock(mMutex);
    mRegisters[place].next = std::move(next);
}

RegisterMap::Refusal RegisterMap::Read(Place place, RegisterValue& value) const
{
    const std::lock_guard<std::mutex> lock(mMutex);
    const auto found = mRegisters.find(place);
    if (found == mRegisters.end())
        return TarnMessage::STATUS_RESOURCE_NOT_EXISTING;
    if (found->second.access == WRITE_ONLY)
        return TarnMessage::STATUS_ACCESS_NOT_GRANTED;
    value = found->second.Now();
    return std::nullopt;
}

std::optional<RegisterValue> RegisterMap::Get(Place place) const
{
    const std::lock_guard<std::mutex> lock(mMutex);
    const auto found = mRegisters.find(place);
    if (found == mRegisters.end())
        return std::nullopt;
    return found->second.Now();
}

RegisterMap::Refusal RegisterMap::Write(Place place, const RegisterValue& value)
{
    const std::lock_guard<std::mutex> lock(mMutex);
    const auto found = mRegisters.find(place);
    if (found == mRegisters.end())
        return TarnMessage::STATUS_RESOURCE_NOT_EXISTING;
    if (found->second.access == READ_ONLY)
        return TarnMessage::STATUS_ACCESS_NOT_GRANTED;
    if (!Fits(value, found->second.value))
        return TarnMessage::STATUS_FRAME_FAILURE;
    found->second.value = value;
    found->second.next = nullptr;
    return std::nullopt;
}

bool RegisterMap::Set(Place place, const RegisterValue& value)
{
    const std::lock_guard<std::mutex> lock(mMutex);
    const auto found = mRegisters.find(place);
    if (found == mRegisters.end() || !Fits(value, found->second.value))
        return false;
    found->second.value = value;
    found->second.next = nullptr;
    return true;
}

bool RegisterMap::Fits(const RegisterValue& value, const RegisterValue& present)
{
    return AreOneType(value.dataType, present.dataType) &&
           value.bytes.size() == present.bytes.size();
}

} // namespace tarn::tool
