// MessageRouter: the stand-in host's IMessageRouter. Keeps command handlers by routing key and
// lets a test or tool send a command the way the agent would (Execute), collecting the answer.
#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>

#include "devhost/FaultInjector.h"
#include "devhost/ObjectLedger.h"
#include "devhost/OutputStream.h"
#include "eil/object/LookupInterfaceImpl.h"
#include "host/ICommandHandler.h"
#include "host/IMessageRouter.h"
#include "host/ObjectPtr.h"

namespace KALVO::DevHost {

class MessageRouter : public Messaging::IMessageRouter {
public:
    static constexpr char const* Kind = "MessageRouter";
    using Interfaces = EIL::Object::InterfaceList<Messaging::IMessageRouter>;

    MessageRouter(std::shared_ptr<FaultInjector> faults, std::shared_ptr<ObjectLedger> ledger);

    // Sends `payload` to the handler of `routingKey` on this thread, with a fresh in-memory
    // stream limited by `limits`, and returns the handler's code with what it wrote in
    // `answer`. No handler under that key: 78 and an empty answer.
    Result::Code Execute(const std::string& routingKey, std::string_view payload, std::string& answer,
                         StreamLimits limits = {});

    bool HasHandler(const std::string& routingKey) const;
    // Releases every handler (before unloading a plug-in that left one behind).
    void Clear();

    // IMessageRouter. Any thread.
    // Null key or handler: 22. A second registration under a key replaces (and releases) the first.
    Result::Code RegisterCommandHandler(char const* routingKey, Messaging::ICommandHandler* handler) override;
    // Null key: 22; no handler under the key: 2.
    Result::Code UnregisterCommandHandler(char const* routingKey) override;

protected:
    ~MessageRouter() = default;

private:
    // Handlers belong to the plug-in; the router holds one reference on each.
    using Handlers = std::map<std::string, Agent::Hosting::ObjectPtr<Messaging::ICommandHandler>, std::less<>>;

    std::shared_ptr<FaultInjector> m_faults;
    std::shared_ptr<ObjectLedger> m_ledger;
    mutable std::mutex m_mutex;  // guards m_handlers; never held while a handler runs or is released
    Handlers m_handlers;
};

}  // namespace KALVO::DevHost
