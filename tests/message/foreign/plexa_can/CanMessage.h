#ifndef FOREIGN_PLEXA_CAN_CAN_MESSAGE_H
#define FOREIGN_PLEXA_CAN_CAN_MESSAGE_H

#include <vector>

namespace tarn
{

/// A frame of somebody else's CAN layer: it has the operations that a message needs and no other,
/// none of them const, takes any number of bytes, and keeps the vector it is handed.
class CanMessage
{
public:
    unsigned int GetHeader() { return mHeader; }
    void SetHeader(unsigned int header) { mHeader = header; }
    std::vector<unsigned char> GetData() { return mData; }
    void SetData(std::vector<unsigned char>& data) { mData.swap(data); }
    unsigned int& GetFlags() { return mFlags; }
    bool HasError() { return mError; }

    bool mError = false;

private:
    unsigned int mHeader = 0;
    unsigned int mFlags = 0;
    std::vector<unsigned char> mData;
};

} // namespace tarn

#endif
