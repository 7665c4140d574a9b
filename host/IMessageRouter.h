// The host's command registration, asked of the host object.
#pragma once

#include "host/ICommandHandler.h"
#include "host/IObject.h"

namespace KALVO::Messaging {

class IMessageRouter : public Agent::Hosting::IObject {
public:
    static constexpr Agent::Hosting::InterfaceId Id = 0x5fbbedbb607a0783;  // asked of the host object

    // Slot 3. Registers `handler` under `routingKey`; the router takes its own reference.
    virtual Result::Code RegisterCommandHandler(char const* routingKey, ICommandHandler* handler) = 0;
    // Slot 4. Removes the handler registered under `routingKey`.
    virtual Result::Code UnregisterCommandHandler(char const* routingKey) = 0;

protected:
    ~IMessageRouter() = default;
};

}  // namespace KALVO::Messaging
