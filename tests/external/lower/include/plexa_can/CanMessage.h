#ifndef LOWER_PLEXA_CAN_CAN_MESSAGE_H
#define LOWER_PLEXA_CAN_CAN_MESSAGE_H

#include <string>
#include <vector>

namespace tarn
{

/// A frame that keeps what it is given, however long, and offers what the core may lean on and
/// nothing else: no operation is const that need not be.
class CanMessage
{
public:
    CanMessage() : mHeader(0), mFlags(0) {}
    unsigned int GetHeader() { return mHeader; }
    void SetHeader(unsigned int header) { mHeader = header; }
    std::vector<unsigned char> GetData() { return {mData.begin(), mData.end()}; }
    void SetData(std::vector<unsigned char>& data) { mData.assign(data.begin(), data.end()); }
    unsigned int& GetFlags() { return mFlags; }
    bool HasError() { return (mFlags & 4u) != 0; }
    std::string ToString();

private:
    std::string mData;
    unsigned int mHeader;
    unsigned int mFlags;
};

} // namespace tarn

#endif
