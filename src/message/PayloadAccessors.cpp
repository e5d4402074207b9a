#include "lock/ScopedLock.h"
#include "message/HeaderLayout.h"
#include "message/PayloadCodec.h"

#include <tarn/TarnMessage.h>

#include <algorithm>
#include <cmath>

namespace tarn
{

const float TarnMessage::S16F0_MAX = 3.9F;
const float TarnMessage::S16F1_MAX = 15.9F;
const float TarnMessage::S16F2_MAX = 63.9F;
const float TarnMessage::S16F3_MAX = 255.9F;
const float TarnMessage::S16F4_MAX = 1023.9F;
const float TarnMessage::S16F5_MAX = 4095.9F;
const float TarnMessage::S16F6_MAX = 16383.9F;
const float TarnMessage::S16F7_MAX = 65534.0F;

namespace
{

using Bytes = std::vector<unsigned char>;

/// Replaces the payload and its type; false when there are no values or too many for a frame.
template <typename Coding>
bool Encode(const std::vector<typename Coding::Value>& values, Coding coding, int type, Bytes& data,
            unsigned char& dataType)
{
    if (values.empty() || values.size() > payload::MAX_BYTES / Coding::WIDTH)
        return false;
    data.resize(values.size() * Coding::WIDTH);
    unsigned char* bytes = data.data();
    for (const auto& value : values) {
        payload::WriteWord<Coding::WIDTH>(bytes, coding.ToWord(value));
        bytes += Coding::WIDTH;
    }
    dataType = static_cast<unsigned char>(type);
    return true;
}

/// Replaces the values by those in the payload; false when it is not a whole number of them.
template <typename Coding>
bool Decode(const Bytes& data, Coding coding, std::vector<typename Coding::Value>& values)
{
    if (!payload::Holds<Coding>(data.size()))
        return false;
    values.clear();
    values.reserve(data.size() / Coding::WIDTH);
    for (std::size_t at = 0; at < data.size(); at += Coding::WIDTH)
        values.push_back(coding.ToValue(payload::ReadWord<Coding::WIDTH>(&data[at])));
    return true;
}

/// The value of a FLOAT payload; false when the payload is none.
bool LoadSingle(Poco::Mutex& mutex, const unsigned char& type, const Bytes& data, double& value)
{
    ScopedLock lock(mutex);
    if (type != TarnMessage::DATATYPE_FLOAT || !payload::Holds<payload::Float>(data.size()))
        return false;
    value = payload::Float::ToValue(payload::ReadWord<payload::Float::WIDTH>(data.data()));
    return true;
}

/// The largest magnitude among the values; NaN when the first of them is one.
float LargestMagnitude(const std::vector<float>& values)
{
    // Plain comparisons: a NaN further back never wins one, which std::minmax_element does not
    // promise.
    float smallest = values.front();
    float largest = values.front();
    for (const float value : values) {
        if (value < smallest)
            smallest = value;
        if (largest < value)
            largest = value;
    }
    return std::max(std::fabs(smallest), std::fabs(largest));
}

} // namespace

unsigned int TarnMessage::GetDataSize() const
{
    const tTarnDataType type = GetDataType();
    const auto bytes = static_cast<unsigned int>(mData.size());
    switch (type) {
    case DATATYPE_U8:
        return bytes;
    case DATATYPE_U16:
        return bytes / 2;
    case DATATYPE_U24:
        return bytes / 3;
    case DATATYPE_U32:
        return bytes / 4;
    case DATATYPE_U48:
    case DATATYPE_FLOAT: // counted like U48, which makes it 0 for the 4 bytes of a float
        return bytes / 6;
    default:
        return type <= DATATYPE_S16F7 ? bytes / 2 : 0;
    }
}

bool TarnMessage::SetData(std::vector<unsigned char>& values)
{
    return Locked(mMutex,
                  [&] { return Encode(values, payload::U8(), DATATYPE_U8, mData, mDataType); });
}

bool TarnMessage::GetData(std::vector<unsigned char>& values) const
{
    ScopedLock lock(mMutex);
    return mDataType == DATATYPE_U8 && Decode(mData, payload::U8(), values);
}

bool TarnMessage::SetData(std::vector<unsigned short>& values)
{
    return Locked(mMutex,
                  [&] { return Encode(values, payload::U16(), DATATYPE_U16, mData, mDataType); });
}

bool TarnMessage::GetData(std::vector<unsigned short>& values) const
{
    ScopedLock lock(mMutex);
    return mDataType == DATATYPE_U16 && Decode(mData, payload::U16(), values);
}

bool TarnMessage::SetData(std::vector<tarn_u24_t>& values)
{
    return Locked(mMutex,
                  [&] { return Encode(values, payload::U24(), DATATYPE_U24, mData, mDataType); });
}

bool TarnMessage::GetData(std::vector<tarn_u24_t>& values) const
{
    ScopedLock lock(mMutex);
    return mDataType == DATATYPE_U24 && Decode(mData, payload::U24(), values);
}

bool TarnMessage::SetData(std::vector<unsigned int>& values)
{
    return Locked(mMutex,
                  [&] { return Encode(values, payload::U32(), DATATYPE_U32, mData, mDataType); });
}

bool TarnMessage::GetData(std::vector<unsigned int>& values) const
{
    ScopedLock lock(mMutex);
    return mDataType == DATATYPE_U32 && Decode(mData, payload::U32(), values);
}

bool TarnMessage::SetData(std::vector<unsigned long long>& values)
{
    return Locked(mMutex,
                  [&] { return Encode(values, payload::U48(), DATATYPE_U48, mData, mDataType); });
}

bool TarnMessage::GetData(std::vector<unsigned long long>& values) const
{
    ScopedLock lock(mMutex);
    return mDataType == DATATYPE_U48 && Decode(mData, payload::U48(), values);
}

bool TarnMessage::SetData(std::vector<double>& values)
{
    return Locked(
        mMutex, [&] { return Encode(values, payload::Float(), DATATYPE_FLOAT, mData, mDataType); });
}

bool TarnMessage::GetData(std::vector<double>& values) const
{
    double value = 0;
    if (!LoadSingle(mMutex, mDataType, mData, value))
        return false;
    values.assign(1, value);
    return true;
}

// Flattened: of all setters this one computes, and with calls in between it took a fifth longer.
[[gnu::flatten]] bool TarnMessage::SetData(std::vector<float>& values, tTarnDataType type)
{
    return Locked(mMutex, [&] {
        if (type < DATATYPE_S16F0 || type > DATATYPE_S16F7)
            return false;
        const payload::FixedPoint coding = {static_cast<unsigned int>(type)};
        return Encode(values, coding, type, mData, mDataType);
    });
}

bool TarnMessage::SetData(std::vector<float>& values)
{
    static const float limits[] = {S16F0_MAX, S16F1_MAX, S16F2_MAX, S16F3_MAX,
                                   S16F4_MAX, S16F5_MAX, S16F6_MAX, S16F7_MAX};
    if (values.empty())
        return SetData(values, DATATYPE_S16F0);
    const float magnitude = LargestMagnitude(values);
    int format = DATATYPE_S16F0;
    for (const float limit : limits) {
        if (magnitude <= limit)
            return SetData(values, static_cast<tTarnDataType>(format));
        ++format;
    }
    return false;
}

bool TarnMessage::GetData(std::vector<float>& values) const
{
    ScopedLock lock(mMutex);
    if (mDataType == DATATYPE_FLOAT) {
        double value = 0;
        if (!LoadSingle(mMutex, mDataType, mData, value))
            return false;
        values.push_back(payload::NarrowToSingle(value));
        return true;
    }
    return mDataType <= DATATYPE_S16F7 && Decode(mData, payload::FixedPoint{mDataType}, values);
}

} // namespace tarn
