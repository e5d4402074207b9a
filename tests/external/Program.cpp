// What the core makes of frames that the built-in lower layer could not even hold.

#include <plexa_can/CanException.h>
#include <plexa_can/iCanAsyncDispatcher.h>
#include <plexa_can/iCanMessageHandler.h>
#include <plexa_common/LoggerMutex.h>
#include <tarn/TarnMessage.h>

#include <cstdio>
#include <type_traits>

namespace
{

using tarn::CanMessage;
using tarn::TarnMessage;
using Bytes = std::vector<unsigned char>;

static_assert(std::is_nothrow_destructible<tarn::iCanMessageHandler>::value,
              "the lower layer in use is not the one of this folder");

int failures = 0;

void Expect(bool fact, const char* text)
{
    std::printf("%s: %s\n", fact ? "ok" : "FAILED", text);
    failures += fact ? 0 : 1;
}

template <typename Value>
bool Refuses(TarnMessage& message)
{
    std::vector<Value> values;
    return !message.GetData(values) && values.empty();
}

bool EveryGetterRefuses(TarnMessage& message)
{
    for (int type = 0; type <= 15; ++type) {
        message.SetDataType(static_cast<TarnMessage::tTarnDataType>(type));
        if (!Refuses<unsigned char>(message) || !Refuses<unsigned short>(message) ||
            !Refuses<tarn::tarn_u24_t>(message) || !Refuses<unsigned int>(message) ||
            !Refuses<unsigned long long>(message) || !Refuses<double>(message) ||
            !Refuses<float>(message))
            return false;
    }
    return true;
}

std::string TextOfRefusedFraming(TarnMessage& message)
{
    try {
        message.RawMessage();
    } catch (const std::string& text) {
        return text;
    }
    return "nothing was thrown";
}

void DefaultMessage()
{
    TarnMessage message;
    CanMessage frame = message.RawMessage();
    Expect(frame.GetHeader() == 0x0F800001u, "the identifier of a default message");
    Expect(frame.GetFlags() == 1u, "its frame has the 29-bit flag alone");
    Expect(frame.GetData() == Bytes{0x20}, "its frame holds the status byte");
    Expect(message.RawMessageRef().GetData() == Bytes{0x20}, "the kept frame is the same");
    Expect(&message.RawMessageRef() == &message.RawMessageRef(), "the kept frame stays in place");
    Expect(TarnMessage(frame) == message, "the frame gives the message back");
}

void FrameOfTwelveBytes()
{
    CanMessage frame;
    Bytes bytes = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 0x38};
    frame.SetHeader(0x0F800001u);
    frame.SetData(bytes);
    frame.GetFlags() = 1u;
    TarnMessage message(frame);
    Expect(!!message && message.GetRStatus() == TarnMessage::STATUS_STANDBY,
           "a frame of 12 bytes is parsed from its last byte");
    Expect(message.GetDataType() == TarnMessage::DATATYPE_U8 && message.GetDataSize() == 11,
           "all 11 payload bytes are kept");
    Expect(message.ToStringShort().find("Raw-Data(11) :  - 0x01() - 0x02()") != std::string::npos,
           "they are shown");
    Expect(EveryGetterRefuses(message), "every getter refuses them as every type");
    Expect(TextOfRefusedFraming(message) == "tarn::CanMessage tarn::TarnMessage::RawMessage() : "
                                            "TYPE_DATA : mData.size() > 6!",
           "framing refuses them");
}

void FramesThatAreNotTarn()
{
    CanMessage error;
    error.GetFlags() = 5u;
    Expect(!TarnMessage(error), "an error frame is no message");
    CanMessage standard;
    Expect(!TarnMessage(standard), "a frame with an 11-bit identifier is no message");
}

} // namespace

int main()
{
    DefaultMessage();
    FrameOfTwelveBytes();
    FramesThatAreNotTarn();
    Poco::Mutex::ScopedLock lock(tarn::GetLoggerMutex());
    return failures == 0 ? 0 : 1;
}
