#include <plexa_can/CanException.h>
#include <plexa_can/CanMessage.h>

#include <algorithm>

namespace tarn
{

namespace
{

// linux/can.h: the mark of an error frame, and the widths of the two identifiers.
constexpr unsigned int ERROR_MARK = 0x20000000u;
constexpr unsigned int EXTENDED_MASK = 0x1FFFFFFFu;
constexpr unsigned int STANDARD_MASK = 0x7FFu;

void AppendHex(std::string& text, unsigned int value, unsigned int digits)
{
    for (unsigned int digit = digits; digit > 0; --digit)
        text += "0123456789ABCDEF"[(value >> (4 * (digit - 1))) & 0xFu];
}

} // namespace

std::vector<unsigned char> CanMessage::GetData() const
{
    std::vector<unsigned char> data(mData.begin(), mData.end()); // a copy of known size is cheap
    data.erase(data.begin() + mDataSize, data.end());
    return data;
}

void CanMessage::SetData(const std::vector<unsigned char>& data)
{
    SetBytes(data.data(), data.size());
}

void CanMessage::SetBytes(const unsigned char* bytes, std::size_t size)
{
    if (size > MAX_DATA_SIZE)
        throw CanException("a CAN frame takes at most 8 data bytes, not " + std::to_string(size));
    std::copy_n(bytes, size, mData.begin());
    mDataSize = static_cast<unsigned char>(size);
}

std::string CanMessage::ToString() const
{
    std::string text;
    text.reserve(8 + 1 + 2 * MAX_DATA_SIZE);
    if (HasError())
        AppendHex(text, (mHeader & EXTENDED_MASK) | ERROR_MARK, 8);
    else if ((mFlags & FLAG_EXTENDED) != 0)
        AppendHex(text, mHeader & EXTENDED_MASK, 8);
    else
        AppendHex(text, mHeader & STANDARD_MASK, 3);
    text += '#';
    if ((mFlags & FLAG_REMOTE) != 0)
        return text + 'R';
    for (std::size_t i = 0; i < mDataSize; ++i)
        AppendHex(text, mData[i], 2);
    return text;
}

} // namespace tarn
