#include "devhost/Host.h"

#include <utility>

#include "devhost/ProcessInfo.h"

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
      m_filter(MakePart<EventFilter>(m_ledger, m_faults)) {
    auto services = MakePart<ServiceProvider>(m_ledger, m_faults, ShareOf(m_reporting), ShareOf(m_monitors), ShareOf(m_filter));
    m_root = MakePart<RootObject>(m_ledger, m_faults,
                                  RootObject::Parts{std::move(services), ShareOf(m_router), ShareOf(m_log),
                                                    ShareOf(m_configuration), ShareOf(m_storage)});
}

Host::~Host() = default;

Agent::Hosting::IObject* Host::Root() const noexcept { return static_cast<IHostRoot*>(m_root.Get()); }

Agent::Hosting::ObjectPtr<ESP::v0::IProcessInfo> Host::MakeProcess(ProcessRecord record) const {
    return TrackedObject<ProcessInfo>::Make(m_ledger, m_faults, std::move(record));
}

std::uint64_t Host::OutstandingReferences() const { return m_ledger->Outstanding(); }

std::string Host::DescribeOutstandingReferences() const { return m_ledger->DescribeOutstanding(); }

}  // namespace KALVO::DevHost
