#include "devhost/MessageRouter.h"

#include <utility>

#include "devhost/Boundary.h"
#include "devhost/HostRef.h"
#include "devhost/TrackedObject.h"

namespace KALVO::DevHost {

using Agent::Hosting::ObjectPtr;
using Messaging::ICommandHandler;

MessageRouter::MessageRouter(std::shared_ptr<FaultInjector> faults, std::shared_ptr<ObjectLedger> ledger)
    : m_faults(std::move(faults)), m_ledger(std::move(ledger)) {}

Result::Code MessageRouter::Execute(const std::string& routingKey, std::string_view payload, std::string& answer,
                                    StreamLimits limits) {
    answer.clear();
    ObjectPtr<ICommandHandler> handler;
    {
        std::lock_guard lock(m_mutex);
        const auto found = m_handlers.find(routingKey);
        if (found == m_handlers.end()) return Result::NotImplemented;
        handler = found->second;
    }
    const HostRef<TrackedObject<OutputStream>> stream(TrackedObject<OutputStream>::Make(m_ledger, limits));
    const Result::Code code = handler->Execute(routingKey.c_str(), payload.data(), payload.size(), *stream);
    answer = stream->Contents();
    return code;
}

bool MessageRouter::HasHandler(const std::string& routingKey) const {
    std::lock_guard lock(m_mutex);
    return m_handlers.contains(routingKey);
}

void MessageRouter::Clear() {
    Handlers released;  // released outside the lock: a handler's destructor may call back
    std::lock_guard lock(m_mutex);
    released.swap(m_handlers);
}

Result::Code MessageRouter::RegisterCommandHandler(char const* routingKey, ICommandHandler* handler) {
    if (const auto failure = m_faults->Check(Operation::RegisterCommandHandler)) return *failure;
    if (!routingKey || !handler) return Result::InvalidArgument;
    return AtBoundary([&] {
        ObjectPtr<ICommandHandler> replaced;  // released after the lock
        ObjectPtr<ICommandHandler> held(handler);
        std::lock_guard lock(m_mutex);
        auto& slot = m_handlers[routingKey];
        replaced = std::exchange(slot, std::move(held));
        return Result::Success;
    });
}

Result::Code MessageRouter::UnregisterCommandHandler(char const* routingKey) {
    if (const auto failure = m_faults->Check(Operation::UnregisterCommandHandler)) return *failure;
    if (!routingKey) return Result::InvalidArgument;
    return AtBoundary([&] {
        ObjectPtr<ICommandHandler> removed;  // released after the lock
        std::lock_guard lock(m_mutex);
        const auto found = m_handlers.find(std::string_view(routingKey));
        if (found == m_handlers.end()) return Result::NoSuchEntry;
        removed = std::move(found->second);
        m_handlers.erase(found);
        return Result::Success;
    });
}

}  // namespace KALVO::DevHost
