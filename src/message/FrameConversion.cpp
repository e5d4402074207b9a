#include "lock/ScopedLock.h"
#include "message/HeaderLayout.h"
#include "message/PayloadCodec.h"

#include <tarn/TarnMessage.h>

#include <string>

namespace tarn
{

namespace
{

/// Bit 0 of a frame's flags word.
constexpr unsigned int EXTENDED_IDENTIFIER = 1u;

/// A frame holds the payload, the status byte and the module byte.
constexpr std::size_t MAX_FRAME_BYTES = payload::MAX_BYTES + 2;

bool IsChcp(unsigned int header)
{
    return layout::Type::Get(header) == TarnMessage::TYPE_CHCP;
}

bool CarriesModule(unsigned int header)
{
    return !IsChcp(header) &&
           layout::AddressingMode::Get(header) == TarnMessage::ADDRESSING_MODE_EXTENDED;
}

[[noreturn]] void RefuseFraming(const char* reason)
{
    throw std::string("tarn::CanMessage tarn::TarnMessage::RawMessage() : ") + reason;
}

/// Set when this thread has destroyed its vector of FrameBytes.
thread_local bool tBytesGone = false;

struct ThreadBytes {
    std::vector<unsigned char> bytes;
    ~ThreadBytes() { tBytesGone = true; }
};

/// One vector a thread, so that framing a message allocates nothing after the first time. What is
/// destroyed after that vector (a static object, say) may still frame messages, in the spare one.
std::vector<unsigned char>& FrameBytes(std::vector<unsigned char>& spare)
{
    if (tBytesGone)
        return spare;
    static thread_local ThreadBytes kept;
    kept.bytes.clear();
    return kept.bytes;
}

} // namespace

TarnMessage::TarnMessage(CanMessage& frame)
    : mValid(false),
      mHeader(0),
      mStatus(0),
      mDataType(0),
      mModule(0)
{
    if (!frame.HasError() && (frame.GetFlags() & EXTENDED_IDENTIFIER) != 0) {
        mData = frame.GetData();
        mValid = Parse(frame.GetHeader());
    }
    mData.reserve(payload::MAX_BYTES);
}

bool TarnMessage::Parse(unsigned int header)
{
    constexpr std::size_t CHCP_FRAME_BYTES = payload::CHCP_BYTES + 1;
    const std::size_t trailingBytes = CarriesModule(header) ? 2 : 1;
    const bool fits =
        IsChcp(header) ? mData.size() == CHCP_FRAME_BYTES : mData.size() >= trailingBytes;
    if (!fits) {
        mData.clear();
        return IsChcp(
            header); // peers count on a CHCP frame of a wrong length being valid and empty
    }
    const std::size_t payloadBytes = mData.size() - trailingBytes;
    const unsigned int statusByte = mData[payloadBytes];
    mHeader = header;
    mStatus = static_cast<unsigned char>(layout::Status::Get(statusByte));
    mDataType = static_cast<unsigned char>(layout::DataType::Get(statusByte));
    mModule = CarriesModule(header) ? mData.back() : 0;
    mData.resize(payloadBytes);
    return true;
}

CanMessage TarnMessage::RawMessage() const
{
    // Outlives the lock, so that a failing unlock releases it too.
    CanMessage frame;
    {
        ScopedLock lock(mMutex);
        Frame(frame);
    }
    return frame;
}

CanMessage& TarnMessage::RawMessageRef()
{
    ScopedLock lock(mMutex);
    mRawMessage = RawMessage();
    return mRawMessage;
}

void TarnMessage::Frame(CanMessage& frame) const
{
    if (!IsChcp(mHeader) && mData.size() > payload::MAX_BYTES)
        RefuseFraming("TYPE_DATA : mData.size() > 6!");
    if (IsChcp(mHeader) && mData.size() != payload::CHCP_BYTES)
        RefuseFraming("TYPE_CHCP : mData.size() != 6!");
    const unsigned int statusByte =
        layout::Status::Set(layout::DataType::Set(0, mDataType), mStatus);
    std::vector<unsigned char> spare;
    std::vector<unsigned char>& bytes = FrameBytes(spare);
    bytes.reserve(MAX_FRAME_BYTES);
    bytes.insert(bytes.end(), mData.begin(), mData.end());
    bytes.push_back(static_cast<unsigned char>(statusByte));
    if (CarriesModule(mHeader))
        bytes.push_back(mModule);
    frame.GetFlags() |= EXTENDED_IDENTIFIER;
    frame.SetHeader(mHeader);
    frame.SetData(bytes);
}

} // namespace tarn
