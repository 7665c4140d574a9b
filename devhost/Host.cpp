#include "devhost/Host.h"

#include <fmt/format.h>

#include "devhost/ProcessInfo.h"
#include "host/IServiceProvider.h"

namespace KALVO::DevHost {

namespace {

using namespace Agent::Hosting;

// A host object handed out by identifier: the root hands out its parts by interface
// identifier, its service provider the services by service identifier. Each identifier can be
// made to fail on its own.
struct Offer {
    std::uint64_t id;
    Operation operation;     // the fault that can stop this one
    HostRef<IObject> object;  // the IObject of the part's interface

    template <class I, class T>
    static Offer Of(std::uint64_t id, Operation operation, const HostRef<TrackedObject<T>>& part) {
        return {id, operation, HostRef<IObject>::Share(static_cast<I*>(part.Get()))};
    }
};

// The part of identifier `id` with a reference for the receiver; 43 when none, `out` untouched.
Result::Code HandOut(FaultInjector& faults, const std::vector<Offer>& parts, std::uint64_t id, IObject*& out) {
    for (const Offer& part : parts) {
        if (part.id != id) continue;
        if (const auto failure = faults.Check(part.operation)) return *failure;
        part.object->AddRef();
        out = part.object.Get();
        return Result::Success;
    }
    return Result::ProtocolNotSupported;
}

// The host object a plug-in receives in CreateInstance. It answers IObject and
// IServiceProvider itself, and hands out the other parts by interface identifier and the
// services by service identifier.
class RootObject : public IServiceProvider {
public:
    static constexpr char const* Kind = "Host";

    RootObject(std::shared_ptr<FaultInjector> faults, std::vector<Offer> parts, std::vector<Offer> services) noexcept
        : m_faults(std::move(faults)), m_parts(std::move(parts)), m_services(std::move(services)) {}

    Result::Code LookupInterface(InterfaceId id, IObject*& out) {
        if (id != IObject::Id && id != IServiceProvider::Id) return HandOut(*m_faults, m_parts, id, out);
        const auto failure = m_faults->Check(id == IObject::Id ? Operation::GetInterfaceObject : Operation::GetInterfaceServiceProvider);
        if (failure) return *failure;
        out = this;
        out->AddRef();
        return Result::Success;
    }

    // IServiceProvider
    void Reserved3() override {}
    void Reserved4() override {}
    Result::Code GetService(ServiceId id, IObject*& out) override { return HandOut(*m_faults, m_services, id, out); }

private:
    std::shared_ptr<FaultInjector> m_faults;
    const std::vector<Offer> m_parts;
    const std::vector<Offer> m_services;
};

template <class T, class... Args>
HostRef<TrackedObject<T>> Make(const std::shared_ptr<ObjectLedger>& ledger, Args&&... args) {
    return HostRef<TrackedObject<T>>(TrackedObject<T>::Make(ledger, std::forward<Args>(args)...));
}

}  // namespace

Host::Host(HostOptions options)
    : m_ledger(std::make_shared<ObjectLedger>()),
      m_faults(std::make_shared<FaultInjector>()),
      m_log(Make<LogSink>(m_ledger, m_faults)),
      m_configuration(Make<HostConfiguration>(m_ledger, m_faults, std::move(options.configuration))),
      m_storage(Make<HostStorage>(m_ledger, m_faults, std::move(options.storagePath))),
      m_router(Make<MessageRouter>(m_ledger, m_faults, m_ledger)),
      m_reporting(Make<ReportingService>(m_ledger, m_faults, m_ledger)),
      m_monitors(Make<MonitorRegistration>(m_ledger, m_faults, m_ledger, m_log)),
      m_filter(Make<EventFilter>(m_ledger, m_faults)),
      m_root(MakeRoot()) {}

HostRef<IObject> Host::MakeRoot() const {
    const auto root = Make<RootObject>(
        m_ledger, m_faults,
        std::vector<Offer>{
            Offer::Of<Messaging::IMessageRouter>(Messaging::IMessageRouter::Id, Operation::GetInterfaceMessageRouter, m_router),
            Offer::Of<Logging::ILogSink>(Logging::ILogSink::Id, Operation::GetInterfaceLogSink, m_log),
            Offer::Of<Configuration::IConfiguration>(Configuration::IConfiguration::Id, Operation::GetInterfaceConfiguration,
                                                     m_configuration),
            Offer::Of<Storage::IStorage>(Storage::IStorage::Id, Operation::GetInterfaceStorage, m_storage),
        },
        std::vector<Offer>{
            Offer::Of<Reporting::IReportingService>(Reporting::IReportingService::ServiceId, Operation::GetServiceReporting, m_reporting),
            Offer::Of<ESP::v0::IMonitorRegistration>(ESP::v0::IMonitorRegistration::ServiceId,
                                                     Operation::GetServiceMonitorRegistration, m_monitors),
            Offer::Of<ESP::v0::IEventFilter>(ESP::v0::IEventFilter::ServiceId, Operation::GetServiceEventFilter, m_filter),
        });
    return HostRef<IObject>::Share(static_cast<RootObject*>(root.Get()));
}

ObjectPtr<ESP::v0::IProcessInfo> Host::MakeProcess(ProcessRecord record) const {
    return TrackedObject<ProcessInfo>::Make(m_ledger, m_faults, std::move(record));
}

std::map<std::string_view, std::uint64_t> Host::OutstandingByKind() const {
    std::map<std::string_view, std::uint64_t> byKind;
    std::lock_guard lock(m_ledger->mutex);
    for (const HostObject* object : m_ledger->objects) {
        const std::uint64_t all = object->references.load(std::memory_order_acquire);
        const std::uint64_t host = object->hostReferences.load(std::memory_order_relaxed);
        if (all > host) byKind[object->kind] += all - host;
    }
    return byKind;
}

std::uint64_t Host::OutstandingReferences() const {
    std::uint64_t total = 0;
    for (const auto& [kind, count] : OutstandingByKind()) total += count;
    return total;
}

std::string Host::DescribeOutstandingReferences() const {
    std::string text;
    for (const auto& [kind, count] : OutstandingByKind()) text += fmt::format("{}{} x{}", text.empty() ? "" : ", ", kind, count);
    return text;
}

}  // namespace KALVO::DevHost
