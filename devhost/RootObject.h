// RootObject: the host object a plug-in receives in CreateInstance, and ServiceProvider, which
// it hands out. The root answers IObject itself and hands out IServiceProvider,
// IMessageRouter, ILogSink, IConfiguration and IStorage by interface identifier; the service
// provider hands out the reporting service, the ESP registration service and the event filter
// by service identifier. Each identifier can be made to fail on its own.
#pragma once

#include <cstdint>
#include <memory>
#include <span>

#include "devhost/EventFilter.h"
#include "devhost/FaultInjector.h"
#include "devhost/HostConfiguration.h"
#include "devhost/HostRef.h"
#include "devhost/HostStorage.h"
#include "devhost/LogSink.h"
#include "devhost/MessageRouter.h"
#include "devhost/MonitorRegistration.h"
#include "devhost/ReportingService.h"
#include "devhost/TrackedObject.h"
#include "eil/object/LookupInterfaceImpl.h"
#include "host/IObject.h"
#include "host/IServiceProvider.h"

namespace KALVO::DevHost {

// One part handed out by identifier: the fault that can stop it, and the part as the IObject of
// its interface.
struct PartEntry {
    std::uint64_t id;
    Operation operation;
    Agent::Hosting::IObject* part;
};

// The part of identifier `id` among `parts` with a reference for the receiver; 43 when none.
Result::Code HandOutPart(FaultInjector& faults, std::span<const PartEntry> parts, std::uint64_t id,
                         Agent::Hosting::IObject*& out);

class ServiceProvider : public Agent::Hosting::IServiceProvider {
public:
    static constexpr char const* Kind = "ServiceProvider";
    using Interfaces = EIL::Object::InterfaceList<Agent::Hosting::IServiceProvider>;

    ServiceProvider(std::shared_ptr<FaultInjector> faults, HostRef<TrackedObject<ReportingService>> reporting,
                    HostRef<TrackedObject<MonitorRegistration>> monitors, HostRef<TrackedObject<EventFilter>> filter)
        : m_faults(std::move(faults)), m_reporting(std::move(reporting)), m_monitors(std::move(monitors)), m_filter(std::move(filter)) {}

    // IServiceProvider. Any thread. An unknown service: 43, `out` untouched.
    void Reserved3() override {}
    void Reserved4() override {}
    Result::Code GetService(Agent::Hosting::ServiceId id, Agent::Hosting::IObject*& out) override;

protected:
    ~ServiceProvider() = default;

private:
    std::shared_ptr<FaultInjector> m_faults;
    const HostRef<TrackedObject<ReportingService>> m_reporting;
    const HostRef<TrackedObject<MonitorRegistration>> m_monitors;
    const HostRef<TrackedObject<EventFilter>> m_filter;
};

// The root has no interface of its own beyond IObject, so it derives from a tag that is one.
class IHostRoot : public Agent::Hosting::IObject {
protected:
    ~IHostRoot() = default;
};

class RootObject : public IHostRoot {
public:
    static constexpr char const* Kind = "Host";

    struct Parts {
        HostRef<TrackedObject<ServiceProvider>> services;
        HostRef<TrackedObject<MessageRouter>> router;
        HostRef<TrackedObject<LogSink>> log;
        HostRef<TrackedObject<HostConfiguration>> configuration;
        HostRef<TrackedObject<HostStorage>> storage;
    };

    RootObject(std::shared_ptr<FaultInjector> faults, Parts parts) noexcept
        : m_faults(std::move(faults)), m_parts(std::move(parts)) {}

    // Any thread. An unknown interface: 43, `out` untouched.
    Result::Code LookupInterface(Agent::Hosting::InterfaceId id, Agent::Hosting::IObject*& out);

protected:
    ~RootObject() = default;

private:
    std::shared_ptr<FaultInjector> m_faults;
    const Parts m_parts;
};

}  // namespace KALVO::DevHost
