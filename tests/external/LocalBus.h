#ifndef EXTERNAL_LOCAL_BUS_H
#define EXTERNAL_LOCAL_BUS_H

#include <plexa_can/CanMessage.h>
#include <plexa_can/iCanAsyncDispatcher.h>
#include <plexa_can/iCanMessageHandler.h>

#include <algorithm>
#include <memory>
#include <mutex>
#include <vector>

/// A bus in its simplest form: the sender runs the handlers, under one lock.
struct LocalBus {
    std::recursive_mutex mutex;
    std::vector<class LocalConnection*> connections;
};

class LocalConnection : public tarn::iCanAsyncDispatcher
{
public:
    using Lock = std::lock_guard<std::recursive_mutex>;

    explicit LocalConnection(std::shared_ptr<LocalBus> bus) : mBus(std::move(bus))
    {
        const Lock lock(mBus->mutex);
        mBus->connections.push_back(this);
    }

    ~LocalConnection() override
    {
        const Lock lock(mBus->mutex);
        auto& all = mBus->connections;
        all.erase(std::find(all.begin(), all.end(), this));
    }

    void Start(tarn::iCanMessageHandler* handler) override
    {
        const Lock lock(mBus->mutex);
        if (!Has(handler))
            mHandlers.push_back(handler);
    }

    void Stop(tarn::iCanMessageHandler* handler) override
    {
        const Lock lock(mBus->mutex);
        if (Has(handler))
            mHandlers.erase(std::find(mHandlers.begin(), mHandlers.end(), handler));
    }

    void Send(tarn::CanMessage& frame) override
    {
        const Lock lock(mBus->mutex);
        const tarn::CanMessage sent(frame);
        for (LocalConnection* const connection : mBus->connections) {
            if (connection != this)
                connection->Deliver(sent);
        }
    }

private:
    bool Has(const tarn::iCanMessageHandler* handler) const
    {
        return std::find(mHandlers.begin(), mHandlers.end(), handler) != mHandlers.end();
    }

    void Deliver(const tarn::CanMessage& frame)
    {
        const auto handlers = mHandlers; // they may change in a call
        for (tarn::iCanMessageHandler* const handler : handlers) {
            tarn::CanMessage copy(frame);
            if (!Has(handler))
                continue;
            try {
                handler->DispatchResponse(copy);
            } catch (...) { // the sender is not to blame
            }
        }
    }

    const std::shared_ptr<LocalBus> mBus;
    std::vector<tarn::iCanMessageHandler*> mHandlers;
};

#endif
