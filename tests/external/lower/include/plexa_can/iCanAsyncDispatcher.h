#ifndef LOWER_PLEXA_CAN_I_CAN_ASYNC_DISPATCHER_H
#define LOWER_PLEXA_CAN_I_CAN_ASYNC_DISPATCHER_H

namespace tarn
{

class CanMessage;
class iCanMessageHandler;

class iCanAsyncDispatcher
{
public:
    virtual ~iCanAsyncDispatcher() {}
    virtual void Start(iCanMessageHandler* handler) = 0;
    virtual void Stop(iCanMessageHandler* handler) = 0;
    virtual void Send(CanMessage& frame) = 0;
};

} // namespace tarn

#endif
