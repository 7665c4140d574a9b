#include "devhost/ServiceProvider.h"

#include <utility>

#include "host/IEventFilter.h"
#include "host/IMonitorRegistration.h"
#include "host/IReportingService.h"

namespace KALVO::DevHost {

ServiceProvider::ServiceProvider(std::shared_ptr<FaultInjector> faults, HostRef<TrackedObject<ReportingService>> reporting,
                                 HostRef<TrackedObject<MonitorRegistration>> monitors,
                                 HostRef<TrackedObject<EventFilter>> filter)
    : m_faults(std::move(faults)), m_reporting(std::move(reporting)), m_monitors(std::move(monitors)), m_filter(std::move(filter)) {}

Result::Code ServiceProvider::GetService(Agent::Hosting::ServiceId id, Agent::Hosting::IObject*& out) {
    if (id == Reporting::IReportingService::ServiceId) {
        if (const auto failure = m_faults->Check(Operation::GetServiceReporting)) return *failure;
        return HandOut<Reporting::IReportingService>(m_reporting.Get(), out);
    }
    if (id == ESP::v0::IMonitorRegistration::ServiceId) {
        if (const auto failure = m_faults->Check(Operation::GetServiceMonitorRegistration)) return *failure;
        return HandOut<ESP::v0::IMonitorRegistration>(m_monitors.Get(), out);
    }
    if (id == ESP::v0::IEventFilter::ServiceId) {
        if (const auto failure = m_faults->Check(Operation::GetServiceEventFilter)) return *failure;
        return HandOut<ESP::v0::IEventFilter>(m_filter.Get(), out);
    }
    return Result::ProtocolNotSupported;
}

}  // namespace KALVO::DevHost
