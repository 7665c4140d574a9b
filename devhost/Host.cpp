#include "devhost/Host.h"

#include <utility>

#include "devhost/ProcessInfo.h"
#include "host/IConfiguration.h"
#include "host/IEventFilter.h"
#include "host/ILogSink.h"
#include "host/IMessageRouter.h"
#include "host/IMonitorRegistration.h"
#include "host/IReportingService.h"
#include "host/IStorage.h"

namespace KALVO::DevHost {

namespace {

template <class T, class... Args>
HostRef<TrackedObject<T>> MakePart(const std::shared_ptr<ObjectLedger>& ledger, Args&&... args) {
    return HostRef<TrackedObject<T>>(TrackedObject<T>::Make(ledger, std::forward<Args>(args)...));
}

template <class T>
HostRef<TrackedObject<T>> ShareOf(const HostRef<TrackedObject<T>>& part) {
    return HostRef<TrackedObject<T>>::Share(part.Get());
}

// `part` handed out as its interface I under `id`.
template <class I, class T>
PartTable::Part PartOf(std::uint64_t id, Operation operation, const HostRef<TrackedObject<T>>& part) {
    return {id, operation, HostRef<Agent::Hosting::IObject>::Share(static_cast<I*>(part.Get()))};
}

}  // namespace

Host::Host(HostOptions options)
    : m_ledger(std::make_shared<ObjectLedger>()),
      m_faults(std::make_shared<FaultInjector>()),
      m_log(MakePart<LogSink>(m_ledger, m_faults)),
      m_configuration(MakePart<HostConfiguration>(m_ledger, m_faults, std::move(options.configuration))),
      m_storage(MakePart<HostStorage>(m_ledger, m_faults, std::move(options.storagePath))),
      m_router(MakePart<MessageRouter>(m_ledger, m_faults, m_ledger)),
      m_reporting(MakePart<ReportingService>(m_ledger, m_faults, m_ledger)),
      m_monitors(MakePart<MonitorRegistration>(m_ledger, m_faults, m_ledger, ShareOf(m_log))),
      m_filter(MakePart<EventFilter>(m_ledger, m_faults)),
      m_root(MakeRoot()) {}

HostRef<TrackedObject<RootObject>> Host::MakeRoot() const {
    using namespace Agent::Hosting;
    std::vector<PartTable::Part> services;
    services.push_back(PartOf<Reporting::IReportingService>(Reporting::IReportingService::ServiceId,
                                                            Operation::GetServiceReporting, m_reporting));
    services.push_back(PartOf<ESP::v0::IMonitorRegistration>(ESP::v0::IMonitorRegistration::ServiceId,
                                                             Operation::GetServiceMonitorRegistration, m_monitors));
    services.push_back(PartOf<ESP::v0::IEventFilter>(ESP::v0::IEventFilter::ServiceId, Operation::GetServiceEventFilter, m_filter));
    const auto provider = MakePart<ServiceProvider>(m_ledger, PartTable(m_faults, std::move(services)));
    std::vector<PartTable::Part> parts;
    parts.push_back(PartOf<IServiceProvider>(IServiceProvider::Id, Operation::GetInterfaceServiceProvider, provider));
    parts.push_back(PartOf<Messaging::IMessageRouter>(Messaging::IMessageRouter::Id, Operation::GetInterfaceMessageRouter, m_router));
    parts.push_back(PartOf<Logging::ILogSink>(Logging::ILogSink::Id, Operation::GetInterfaceLogSink, m_log));
    parts.push_back(PartOf<Configuration::IConfiguration>(Configuration::IConfiguration::Id, Operation::GetInterfaceConfiguration,
                                                          m_configuration));
    parts.push_back(PartOf<Storage::IStorage>(Storage::IStorage::Id, Operation::GetInterfaceStorage, m_storage));
    return MakePart<RootObject>(m_ledger, m_faults, PartTable(m_faults, std::move(parts)));
}

Host::~Host() = default;

Agent::Hosting::IObject* Host::Root() const noexcept { return static_cast<IHostRoot*>(m_root.Get()); }

Agent::Hosting::ObjectPtr<ESP::v0::IProcessInfo> Host::MakeProcess(ProcessRecord record) const {
    return TrackedObject<ProcessInfo>::Make(m_ledger, m_faults, std::move(record));
}

std::uint64_t Host::OutstandingReferences() const { return m_ledger->Outstanding(); }

std::string Host::DescribeOutstandingReferences() const { return m_ledger->DescribeOutstanding(); }

}  // namespace KALVO::DevHost
