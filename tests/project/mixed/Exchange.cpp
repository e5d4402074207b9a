#include "Exchange.h"

#include <tarn/TarnMessage.h>

#include <string>

// STANDARD names the functions of this translation unit: both may stand in one program.
#define JOIN(a, b) a##b
#define NAMED(name, standard) JOIN(name, standard)

namespace
{

using tarn::TarnMessage;

TarnMessage* Make(unsigned char reg, std::vector<tarn::tarn_u24_t>& values)
{
    auto* const message = new TarnMessage;
    message->SetRegister(reg);
    message->SetModule(5);
    return message->SetData(values) ? message : nullptr;
}

bool Check(TarnMessage& message, unsigned char reg, unsigned int first)
{
    std::vector<tarn::tarn_u24_t> values;
    TarnMessage received(message.RawMessageRef());
    return received == message && received.GetRegister() == reg && received.GetModule() == 5 &&
           received.GetData(values) && values.size() == 2 && values[0].value == first &&
           received.ToString() == message.ToString() && TarnMessage::S16F7_MAX > 65533.0F;
}

/// A CHCP word over a payload of another size cannot be framed.
bool Catches(TarnMessage& message)
{
    TarnMessage broken(message);
    std::vector<unsigned char> one(1, 0xFF);
    broken.SetData(one);
    broken.SetFullHeader(0x10000000u);
    try {
        broken.RawMessage();
    } catch (const std::string& text) {
        return text.find("TYPE_CHCP : mData.size() != 6!") != std::string::npos;
    }
    return false;
}

} // namespace

Exchange NAMED(Exchange, STANDARD)()
{
    return {__cplusplus,
            {sizeof(TarnMessage), sizeof(tarn::CanMessage), sizeof(tarn::tarn_u24_t),
             sizeof(TarnMessage::tTarnMSgType), sizeof(TarnMessage::tTarnWStatus),
             sizeof(TarnMessage::tTarnDeviceCode)},
            Make,
            Check,
            Catches};
}
