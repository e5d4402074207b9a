#ifndef TESTS_SUPPORT_FRAMES_H
#define TESTS_SUPPORT_FRAMES_H

#include <plexa_can/CanMessage.h>
#include <tarn/TarnMessage.h>

#include <utility>
#include <vector>

namespace support
{

using Bytes = std::vector<unsigned char>;

constexpr unsigned int EXTENDED = 1; ///< flags of a frame with a 29-bit identifier

inline tarn::CanMessage Frame(unsigned int header, Bytes data, unsigned int flags = EXTENDED)
{
    tarn::CanMessage frame;
    frame.SetHeader(header);
    frame.GetFlags() = flags;
    frame.SetData(data);
    return frame;
}

/// The message that a frame with these contents is read as.
inline tarn::TarnMessage Received(unsigned int header, Bytes data, unsigned int flags = EXTENDED)
{
    tarn::CanMessage frame = Frame(header, std::move(data), flags);
    return tarn::TarnMessage(frame);
}

/// A message with this payload and data type, received in STANDARD addressing mode. At most 7
/// payload bytes.
inline tarn::TarnMessage WithPayload(unsigned int dataType, Bytes payload)
{
    payload.push_back(static_cast<unsigned char>(dataType));
    return Received(0, payload);
}

/// The payload bytes of a message, whatever its data type.
inline Bytes PayloadOf(const tarn::TarnMessage& message)
{
    tarn::TarnMessage copy(message);
    copy.SetDataType(tarn::TarnMessage::DATATYPE_U8);
    Bytes payload;
    copy.GetData(payload);
    return payload;
}

} // namespace support

#endif
