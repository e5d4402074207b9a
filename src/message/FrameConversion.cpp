#include "lock/ScopedLock.h"
#include "message/HeaderLayout.h"
#include "message/PayloadCodec.h"

#include <tarn/TarnMessage.h>

#include <algorithm>
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

/// The vector that a thread frames its messages in.
struct ThreadBytes {
    std::vector<unsigned char>* bytes; ///< null at first
    bool areGone;                      ///< the thread has destroyed it
};

/// Trivial, so that reaching it takes one look-up and no question whether it is made yet.
thread_local ThreadBytes tBytes = {nullptr, false};

/// Makes the vector of this thread, or gives back the spare one when the thread has destroyed it.
[[gnu::cold]] std::vector<unsigned char>& FirstFrameBytes(ThreadBytes& mine,
                                                          std::vector<unsigned char>& spare)
{
    struct Owner {
        explicit Owner(ThreadBytes& owned) : mOwned(owned) {}
        ~Owner() { mOwned = {nullptr, true}; }
        Owner(const Owner&) = delete;
        Owner& operator=(const Owner&) = delete;

        ThreadBytes& mOwned;
        std::vector<unsigned char> mBytes;
    };
    if (mine.areGone)
        return spare;
    static thread_local Owner owner(mine);
    mine.bytes = &owner.mBytes;
    return owner.mBytes;
}

/// One vector a thread, so that framing a message allocates nothing after the first time. What is
/// destroyed after that vector (a static object, say) may still frame messages, in the spare one.
std::vector<unsigned char>& FrameBytes(std::vector<unsigned char>& spare)
{
    ThreadBytes& mine = tBytes;
    return mine.bytes != nullptr ? *mine.bytes : FirstFrameBytes(mine, spare);
}

} // namespace

TarnMessage::TarnMessage(CanMessage& frame)
    : mValid(!frame.HasError() && (frame.GetFlags() & EXTENDED_IDENTIFIER) != 0),
      mHeader(0),
      mStatus(0),
      mDataType(0),
      mModule(0),
      mData(mValid ? frame.GetData() : std::vector<unsigned char>())
{
    if (mValid)
        mValid = Parse(frame.GetHeader());
    if (mData.capacity() < payload::MAX_BYTES)
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
    mData.erase(mData.end() - static_cast<std::ptrdiff_t>(trailingBytes), mData.end());
    return true;
}

CanMessage TarnMessage::RawMessage() const
{
    return Locked(mMutex, [&] {
        CanMessage frame;
        Frame(frame);
        return frame;
    });
}

CanMessage& TarnMessage::RawMessageRef()
{
    Locked(mMutex, [&] { mRawMessage = RawMessage(); });
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
    const std::size_t size = mData.size() + (CarriesModule(mHeader) ? 2 : 1);
    if (bytes.size() != size) { // of the message before, or a lower layer keeps what it is given
        bytes.reserve(MAX_FRAME_BYTES);
        bytes.resize(size);
    }
    std::copy(mData.begin(), mData.end(), bytes.begin());
    bytes[mData.size()] = static_cast<unsigned char>(statusByte);
    if (CarriesModule(mHeader))
        bytes.back() = mModule;
    frame.GetFlags() |= EXTENDED_IDENTIFIER;
    frame.SetHeader(mHeader);
    frame.SetData(bytes);
}

} // namespace tarn
