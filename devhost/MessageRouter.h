// MessageRouter: the stand-in host's IMessageRouter. Keeps command handlers by routing key and
// lets a test or tool send a command the way the agent would (Execute), collecting the answer
// in an OutputStream.
#pragma once

#include <algorithm>
#include <limits>
#include <map>

#include "devhost/FaultInjector.h"
#include "devhost/TrackedObject.h"
#include "host/ICommandHandler.h"
#include "host/IMessageRouter.h"
#include "host/IOutputStream.h"

namespace KALVO::DevHost {

// An in-memory IOutputStream that collects a command handler's answer. It can be told to take
// fewer bytes than offered, so tests can drive a handler's short-write path.
class OutputStream : public ObjectOnly<EIL::Stream::IOutputStream> {
public:
    static constexpr char const* Kind = "OutputStream";

    // Takes at most `maxPerWrite` bytes per Write.
    explicit OutputStream(std::size_t maxPerWrite) noexcept : m_maxPerWrite(maxPerWrite) {}

    std::string Contents() const {
        std::lock_guard lock(m_mutex);
        return m_contents;
    }

    // Takes as many bytes as the limit allows and answers 0; `written` (when not null) receives
    // the count. Null data with a non-zero size: 22.
    Result::Code Write(void const* data, unsigned long size, unsigned long* written) override {
        if (!data && size != 0) return Result::InvalidArgument;
        return AtBoundary([&] {
            std::lock_guard lock(m_mutex);
            const std::size_t taken = std::min(static_cast<std::size_t>(size), m_maxPerWrite);
            m_contents.append(static_cast<char const*>(data), taken);
            if (written) *written = taken;
            return Result::Success;
        });
    }

private:
    const std::size_t m_maxPerWrite;
    mutable std::mutex m_mutex;  // guards m_contents
    std::string m_contents;
};

class MessageRouter : public Messaging::IMessageRouter {
public:
    static constexpr char const* Kind = "MessageRouter";
    using Interfaces = EIL::Object::InterfaceList<Messaging::IMessageRouter>;

    MessageRouter(std::shared_ptr<FaultInjector> faults, std::shared_ptr<ObjectLedger> ledger)
        : m_faults(std::move(faults)), m_ledger(std::move(ledger)) {}

    // Sends `payload` to the handler of `routingKey` on this thread, with a fresh in-memory
    // stream taking at most `maxPerWrite` bytes per write, and returns the handler's code with
    // what it wrote in `answer`. No handler under that key: 78 and an empty answer.
    Result::Code Execute(const std::string& routingKey, std::string_view payload, std::string& answer,
                         std::size_t maxPerWrite = std::numeric_limits<std::size_t>::max()) {
        answer.clear();
        const Handler handler = Find(routingKey);
        if (!handler) return Result::NotImplemented;
        const HostRef<TrackedObject<OutputStream>> stream(TrackedObject<OutputStream>::Make(m_ledger, maxPerWrite));
        const Result::Code code = handler->Execute(routingKey.c_str(), payload.data(), payload.size(), *stream);
        answer = stream->Contents();
        return code;
    }

    bool HasHandler(const std::string& routingKey) const { return static_cast<bool>(Find(routingKey)); }
    // Releases every handler (before unloading a plug-in that left one behind).
    void Clear() {
        Handlers released;  // released outside the lock: a handler's destructor may call back
        std::lock_guard lock(m_mutex);
        released.swap(m_handlers);
    }

    // IMessageRouter. Any thread.
    // Null key or handler: 22. A second registration under a key replaces (and releases) the first.
    Result::Code RegisterCommandHandler(char const* routingKey, Messaging::ICommandHandler* handler) override {
        return Serve(*m_faults, Operation::RegisterCommandHandler, [&] {
            if (!routingKey || !handler) return Result::InvalidArgument;
            Handler replaced(handler);  // the one replaced is released after the lock
            std::lock_guard lock(m_mutex);
            std::swap(m_handlers[routingKey], replaced);
            return Result::Success;
        });
    }
    // Null key: 22; no handler under the key: 2.
    Result::Code UnregisterCommandHandler(char const* routingKey) override {
        return Serve(*m_faults, Operation::UnregisterCommandHandler, [&] {
            if (!routingKey) return Result::InvalidArgument;
            Handlers::node_type removed;  // released after the lock
            std::lock_guard lock(m_mutex);
            const auto found = m_handlers.find(std::string_view(routingKey));
            if (found == m_handlers.end()) return Result::NoSuchEntry;
            removed = m_handlers.extract(found);
            return Result::Success;
        });
    }

private:
    // Handlers belong to the plug-in; the router holds one reference on each.
    using Handler = Agent::Hosting::ObjectPtr<Messaging::ICommandHandler>;
    using Handlers = std::map<std::string, Handler, std::less<>>;

    Handler Find(std::string_view routingKey) const {
        std::lock_guard lock(m_mutex);
        const auto found = m_handlers.find(routingKey);
        return found == m_handlers.end() ? Handler() : found->second;
    }

    std::shared_ptr<FaultInjector> m_faults;
    std::shared_ptr<ObjectLedger> m_ledger;
    mutable std::mutex m_mutex;  // guards m_handlers; never held while a handler runs or is released
    Handlers m_handlers;
};

}  // namespace KALVO::DevHost
