#ifndef LOWER_PLEXA_CAN_I_CAN_MESSAGE_HANDLER_H
#define LOWER_PLEXA_CAN_I_CAN_MESSAGE_HANDLER_H

namespace tarn
{

class CanMessage;

/// Its destructor may not throw, unlike that of the built-in lower layer.
class iCanMessageHandler
{
public:
    virtual ~iCanMessageHandler() {}
    virtual void DispatchResponse(CanMessage& frame) = 0;
};

} // namespace tarn

#endif
