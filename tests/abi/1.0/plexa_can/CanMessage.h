#ifndef PLEXA_CAN_CAN_MESSAGE_H
#define PLEXA_CAN_CAN_MESSAGE_H

#include <plexa_can/Export.h>

#include <array>
#include <cstddef>
#include <string>
#include <vector>

namespace tarn
{

/// One classical CAN frame: an identifier word, flags and 0 to 8 data bytes, held inside the
/// object.
///
/// A value: copies are independent, nothing is shared. Not safe for use by several threads at once.
class PLEXA_CAN_API CanMessage
{
public:
    /// Most data bytes of a classical CAN frame.
    static constexpr std::size_t MAX_DATA_SIZE = 8;

    /// The bits of the flags word.
    enum tFlag : unsigned int {
        FLAG_EXTENDED = 1u << 0, ///< the identifier has 29 bits (clear: 11 bits)
        FLAG_REMOTE = 1u << 1,   ///< remote request: asks for a frame, carries no data
        FLAG_ERROR = 1u << 2     ///< error frame: reports a condition of the bus, no traffic
    };

    /// An empty data frame with an 11-bit identifier of 0.
    CanMessage() : mHeader(0), mFlags(0), mTimeStamp(0), mData(), mDataSize(0) {}

    /// The identifier word as it was set: the identifier in its low 29 (or 11) bits. The bits above
    /// are carried along and mean nothing on the bus.
    unsigned int GetHeader() const { return mHeader; }
    /// Stores the word as it is. Whether it has 29 bits, the flags say.
    void SetHeader(unsigned int header) { mHeader = header; }

    /// A copy of the data bytes. Its capacity is always 8, so appending the bytes that a frame can
    /// still take does not allocate again.
    std::vector<unsigned char> GetData() const;
    /// Replaces the data bytes.
    /// @throws CanException for more than 8 bytes; the frame is unchanged then.
    void SetData(const std::vector<unsigned char>& data);

    /// The data bytes in place, GetDataSize() of them; valid until the frame changes or goes.
    const unsigned char* GetBytes() const { return mData.data(); }
    /// 0 to 8.
    std::size_t GetDataSize() const { return mDataSize; }
    /// Replaces the data bytes by the size bytes at bytes, which may be null when size is 0.
    /// @throws CanException for more than 8 bytes; the frame is unchanged then.
    void SetBytes(const unsigned char* bytes, std::size_t size);

    /// The flags word (see tFlag), to read and to write.
    unsigned int& GetFlags() { return mFlags; }
    /// The flags word, to read.
    unsigned int GetFlags() const { return mFlags; }

    /// True for an error frame.
    bool HasError() const { return (mFlags & FLAG_ERROR) != 0; }

    /// When the frame was received, in nanoseconds since 1970-01-01 00:00 UTC; 0 where nobody said.
    unsigned long long GetTimeStamp() const { return mTimeStamp; }
    /// Nanoseconds as GetTimeStamp() gives them; any number.
    void SetTimeStamp(unsigned long long nanoseconds) { mTimeStamp = nanoseconds; }

    /// The frame as candump and cansend of can-utils write it: the identifier in 8 hexadecimal
    /// digits (3 for an 11-bit one), "#", the data: "0F800001#20". A remote request has "R" for
    /// data. An error frame carries its error class in the identifier, under the mark 20000000.
    std::string ToString() const;

private:
    unsigned int mHeader;
    unsigned int mFlags;
    unsigned long long mTimeStamp;
    std::array<unsigned char, MAX_DATA_SIZE> mData;
    unsigned char mDataSize;
};

} // namespace tarn

#endif
