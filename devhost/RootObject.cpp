#include "devhost/RootObject.h"

#include "host/IEventFilter.h"
#include "host/IMonitorRegistration.h"
#include "host/IReportingService.h"

namespace KALVO::DevHost {

Result::Code HandOutPart(FaultInjector& faults, std::span<const PartEntry> parts, std::uint64_t id,
                         Agent::Hosting::IObject*& out) {
    for (const PartEntry& entry : parts) {
        if (entry.id != id) continue;
        if (const auto failure = faults.Check(entry.operation)) return *failure;
        entry.part->AddRef();
        out = entry.part;
        return Result::Success;
    }
    return Result::ProtocolNotSupported;
}

Result::Code ServiceProvider::GetService(Agent::Hosting::ServiceId id, Agent::Hosting::IObject*& out) {
    const PartEntry parts[] = {
        {Reporting::IReportingService::ServiceId, Operation::GetServiceReporting,
         static_cast<Reporting::IReportingService*>(m_reporting.Get())},
        {ESP::v0::IMonitorRegistration::ServiceId, Operation::GetServiceMonitorRegistration,
         static_cast<ESP::v0::IMonitorRegistration*>(m_monitors.Get())},
        {ESP::v0::IEventFilter::ServiceId, Operation::GetServiceEventFilter, static_cast<ESP::v0::IEventFilter*>(m_filter.Get())},
    };
    return HandOutPart(*m_faults, parts, id, out);
}

Result::Code RootObject::LookupInterface(Agent::Hosting::InterfaceId id, Agent::Hosting::IObject*& out) {
    const PartEntry parts[] = {
        {Agent::Hosting::IObject::Id, Operation::GetInterfaceObject, static_cast<IHostRoot*>(this)},
        {Agent::Hosting::IServiceProvider::Id, Operation::GetInterfaceServiceProvider,
         static_cast<Agent::Hosting::IServiceProvider*>(m_parts.services.Get())},
        {Messaging::IMessageRouter::Id, Operation::GetInterfaceMessageRouter,
         static_cast<Messaging::IMessageRouter*>(m_parts.router.Get())},
        {Logging::ILogSink::Id, Operation::GetInterfaceLogSink, static_cast<Logging::ILogSink*>(m_parts.log.Get())},
        {KALVO::Configuration::IConfiguration::Id, Operation::GetInterfaceConfiguration,
         static_cast<KALVO::Configuration::IConfiguration*>(m_parts.configuration.Get())},
        {KALVO::Storage::IStorage::Id, Operation::GetInterfaceStorage,
         static_cast<KALVO::Storage::IStorage*>(m_parts.storage.Get())},
    };
    return HandOutPart(*m_faults, parts, id, out);
}

}  // namespace KALVO::DevHost
