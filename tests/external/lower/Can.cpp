#include <plexa_can/CanMessage.h>

namespace tarn
{

std::string CanMessage::ToString()
{
    return std::to_string(mData.size()) + " bytes";
}

} // namespace tarn
