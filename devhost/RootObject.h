// RootObject: the host object a plug-in receives in CreateInstance, and ServiceProvider, which
// it hands out. The root answers IObject itself and hands out IServiceProvider,
// IMessageRouter, ILogSink, IConfiguration and IStorage by interface identifier; the service
// provider hands out the reporting service, the ESP registration service and the event filter
// by service identifier. Each identifier can be made to fail on its own.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "devhost/FaultInjector.h"
#include "devhost/HostRef.h"
#include "devhost/TrackedObject.h"
#include "eil/object/LookupInterfaceImpl.h"
#include "host/IObject.h"
#include "host/IServiceProvider.h"

namespace KALVO::DevHost {

// Host objects handed out by identifier. Any thread.
class PartTable {
public:
    struct Part {
        std::uint64_t id;
        Operation operation;                      // the fault that can stop this one
        HostRef<Agent::Hosting::IObject> object;  // the IObject of the part's interface
    };

    PartTable(std::shared_ptr<FaultInjector> faults, std::vector<Part> parts) noexcept
        : m_faults(std::move(faults)), m_parts(std::move(parts)) {}

    // The part of identifier `id` with a reference for the receiver; 43 when none, `out` untouched.
    Result::Code HandOut(std::uint64_t id, Agent::Hosting::IObject*& out) const;

private:
    std::shared_ptr<FaultInjector> m_faults;
    std::vector<Part> m_parts;
};

class ServiceProvider : public Agent::Hosting::IServiceProvider {
public:
    static constexpr char const* Kind = "ServiceProvider";
    using Interfaces = EIL::Object::InterfaceList<Agent::Hosting::IServiceProvider>;

    explicit ServiceProvider(PartTable services) noexcept : m_services(std::move(services)) {}

    // IServiceProvider
    void Reserved3() override {}
    void Reserved4() override {}
    Result::Code GetService(Agent::Hosting::ServiceId id, Agent::Hosting::IObject*& out) override {
        return m_services.HandOut(id, out);
    }

protected:
    ~ServiceProvider() = default;

private:
    const PartTable m_services;
};

// The root has no interface of its own beyond IObject, so it derives from a tag that is one.
class IHostRoot : public Agent::Hosting::IObject {
protected:
    ~IHostRoot() = default;
};

class RootObject : public IHostRoot {
public:
    static constexpr char const* Kind = "Host";

    RootObject(std::shared_ptr<FaultInjector> faults, PartTable parts) noexcept
        : m_faults(std::move(faults)), m_parts(std::move(parts)) {}

    Result::Code LookupInterface(Agent::Hosting::InterfaceId id, Agent::Hosting::IObject*& out) {
        if (id != Agent::Hosting::IObject::Id) return m_parts.HandOut(id, out);
        if (const auto failure = m_faults->Check(Operation::GetInterfaceObject)) return *failure;
        return AnswerObjectOnly<IHostRoot>(this, id, out);
    }

protected:
    ~RootObject() = default;

private:
    std::shared_ptr<FaultInjector> m_faults;
    const PartTable m_parts;
};

}  // namespace KALVO::DevHost
