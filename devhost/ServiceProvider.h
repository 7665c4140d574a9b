// ServiceProvider: the stand-in host's IServiceProvider, handing out the reporting service,
// the ESP registration service and the event filter by service identifier.
#pragma once

#include <memory>

#include "devhost/EventFilter.h"
#include "devhost/FaultInjector.h"
#include "devhost/HostRef.h"
#include "devhost/MonitorRegistration.h"
#include "devhost/ReportingService.h"
#include "devhost/TrackedObject.h"
#include "eil/object/LookupInterfaceImpl.h"
#include "host/IServiceProvider.h"

namespace KALVO::DevHost {

class ServiceProvider : public Agent::Hosting::IServiceProvider {
public:
    static constexpr char const* Kind = "ServiceProvider";
    using Interfaces = EIL::Object::InterfaceList<Agent::Hosting::IServiceProvider>;

    ServiceProvider(std::shared_ptr<FaultInjector> faults, HostRef<TrackedObject<ReportingService>> reporting,
                    HostRef<TrackedObject<MonitorRegistration>> monitors, HostRef<TrackedObject<EventFilter>> filter);

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

}  // namespace KALVO::DevHost
