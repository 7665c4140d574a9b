// Host: the stand-in for the agent that loads the sensor, built in-process for tests,
// benchmarks and tools. It owns a complete, thread-safe implementation of every host
// interface the sensor uses, with knobs instead of mocks: fault injection and call counts
// (Faults), recorded logs, events and filter contexts, and reference accounting
// (OutstandingReferences) so a test can assert that the sensor gave back all it took.
//
// The host's parts stay usable through this object for its whole life. Objects a plug-in
// still holds when the Host is destroyed stay valid (they share what they need), but a plug-in
// must be unloaded only after the host has dropped its handlers (UnloadFrom in Plugin.h).
#pragma once

#include <fmt/format.h>

#include <map>

#include "devhost/EventFilter.h"
#include "devhost/HostConfiguration.h"
#include "devhost/HostStorage.h"
#include "devhost/LogSink.h"
#include "devhost/MessageRouter.h"
#include "devhost/MonitorRegistration.h"
#include "devhost/ProcessInfo.h"
#include "devhost/ReportingService.h"
#include "host/IServiceProvider.h"

namespace KALVO::DevHost {

// A host object handed out by identifier: the root hands out its parts by interface
// identifier, its service provider the services by service identifier. Each identifier can be
// made to fail on its own.
struct Offer {
    std::uint64_t id;
    Operation operation;                      // the fault that can stop this one
    HostRef<Agent::Hosting::IObject> object;  // the IObject of the part's interface

    template <class I, class T>
    static Offer Of(std::uint64_t id, Operation operation, const HostRef<TrackedObject<T>>& part) {
        return {id, operation, HostRef<Agent::Hosting::IObject>::Share(static_cast<I*>(part.Get()))};
    }
};

// The host object a plug-in receives in CreateInstance. It answers IObject and
// IServiceProvider itself, and hands out the other parts by interface identifier and the
// services by service identifier.
class RootObject : public Agent::Hosting::IServiceProvider {
public:
    static constexpr char const* Kind = "Host";

    RootObject(std::shared_ptr<FaultInjector> faults, std::vector<Offer> parts, std::vector<Offer> services) noexcept
        : m_faults(std::move(faults)), m_parts(std::move(parts)), m_services(std::move(services)) {}

    Result::Code LookupInterface(Agent::Hosting::InterfaceId id, Agent::Hosting::IObject*& out) {
        if (id != IObject::Id && id != IServiceProvider::Id) return HandOut(m_parts, id, out);
        const auto failure =
            m_faults->Check(id == IObject::Id ? Operation::GetInterfaceObject : Operation::GetInterfaceServiceProvider);
        if (failure) return *failure;
        out = this;
        out->AddRef();
        return Result::Success;
    }

    // IServiceProvider
    void Reserved3() override {}
    void Reserved4() override {}
    Result::Code GetService(Agent::Hosting::ServiceId id, Agent::Hosting::IObject*& out) override {
        return HandOut(m_services, id, out);
    }

private:
    // The part of identifier `id` with a reference for the receiver; 43 when none, `out` untouched.
    Result::Code HandOut(const std::vector<Offer>& parts, std::uint64_t id, Agent::Hosting::IObject*& out) {
        for (const Offer& part : parts) {
            if (part.id != id) continue;
            if (const auto failure = m_faults->Check(part.operation)) return *failure;
            part.object->AddRef();
            out = part.object.Get();
            return Result::Success;
        }
        return Result::ProtocolNotSupported;
    }

    std::shared_ptr<FaultInjector> m_faults;
    const std::vector<Offer> m_parts;
    const std::vector<Offer> m_services;
};

struct HostOptions {
    // The storage database file, or ":memory:" for a store that lives as long as the host.
    std::string storagePath = HostStorage::InMemory;
    // The configuration text served at first.
    std::string configuration = "{}";
};

class Host {
public:
    // Throws std::runtime_error when the storage cannot be opened.
    explicit Host(HostOptions options = {})
        : m_ledger(std::make_shared<ObjectLedger>()),
          m_faults(std::make_shared<FaultInjector>()),
          m_log(Make<LogSink>(m_faults)),
          m_configuration(Make<HostConfiguration>(m_faults, std::move(options.configuration))),
          m_storage(Make<HostStorage>(m_faults, std::move(options.storagePath))),
          m_router(Make<MessageRouter>(m_faults, m_ledger)),
          m_reporting(Make<ReportingService>(m_faults, m_ledger)),
          m_monitors(Make<MonitorRegistration>(m_faults, m_ledger, m_log)),
          m_filter(Make<EventFilter>(m_faults)),
          m_root(MakeRoot()) {}

    Host(const Host&) = delete;  // owns the host's objects
    Host& operator=(const Host&) = delete;

    // The host object to hand to a plug-in's CreateInstance; borrowed (the Host holds it).
    Agent::Hosting::IObject* Root() const noexcept { return m_root.Get(); }

    HostConfiguration& Config() const noexcept { return *m_configuration; }
    HostStorage& Store() const noexcept { return *m_storage; }
    MessageRouter& Router() const noexcept { return *m_router; }
    LogSink& Logs() const noexcept { return *m_log; }
    ReportingService& Reports() const noexcept { return *m_reporting; }
    MonitorRegistration& Monitors() const noexcept { return *m_monitors; }
    EventFilter& Filter() const noexcept { return *m_filter; }
    FaultInjector& Faults() const noexcept { return *m_faults; }

    // A new process record of this host; the caller owns the reference. Throws std::bad_alloc.
    Agent::Hosting::ObjectPtr<ESP::v0::IProcessInfo> MakeProcess(ProcessRecord record) const {
        return TrackedObject<ProcessInfo>::Make(m_ledger, m_faults, std::move(record));
    }

    // References to this host's objects held by anyone but the host itself (the caller's own
    // process records included), by kind of object, e.g. "ProcessInfo x2, EventInfo x1"; empty
    // once a plug-in has given back everything it took. Exact when no other thread is taking
    // or dropping references at the time.
    std::string OutstandingReferences() const {
        std::map<std::string_view, std::uint64_t> byKind;
        m_ledger->ForEach([&byKind](const HostObject& object) {
            const std::uint64_t all = object.references.load(std::memory_order_acquire);
            const std::uint64_t host = object.hostReferences.load(std::memory_order_relaxed);
            if (all > host) byKind[object.kind] += all - host;
        });
        std::string text;
        for (const auto& [kind, count] : byKind) text += fmt::format("{}{} x{}", text.empty() ? "" : ", ", kind, count);
        return text;
    }

private:
    template <class T>
    using Part = HostRef<TrackedObject<T>>;

    template <class T, class... Args>
    Part<T> Make(Args&&... args) const {
        return Part<T>(TrackedObject<T>::Make(m_ledger, std::forward<Args>(args)...));
    }

    // The host object, with the parts made before it.
    HostRef<Agent::Hosting::IObject> MakeRoot() const {
        using namespace Agent::Hosting;
        const auto root = Make<RootObject>(
            m_faults,
            std::vector<Offer>{
                Offer::Of<Messaging::IMessageRouter>(Messaging::IMessageRouter::Id,
                                                     Operation::GetInterfaceMessageRouter, m_router),
                Offer::Of<Logging::ILogSink>(Logging::ILogSink::Id, Operation::GetInterfaceLogSink, m_log),
                Offer::Of<Configuration::IConfiguration>(Configuration::IConfiguration::Id,
                                                         Operation::GetInterfaceConfiguration, m_configuration),
                Offer::Of<Storage::IStorage>(Storage::IStorage::Id, Operation::GetInterfaceStorage, m_storage),
            },
            std::vector<Offer>{
                Offer::Of<Reporting::IReportingService>(Reporting::IReportingService::ServiceId,
                                                        Operation::GetServiceReporting, m_reporting),
                Offer::Of<ESP::v0::IMonitorRegistration>(ESP::v0::IMonitorRegistration::ServiceId,
                                                         Operation::GetServiceMonitorRegistration, m_monitors),
                Offer::Of<ESP::v0::IEventFilter>(ESP::v0::IEventFilter::ServiceId, Operation::GetServiceEventFilter,
                                                 m_filter),
            });
        return HostRef<IObject>::Share(static_cast<RootObject*>(root.Get()));
    }

    std::shared_ptr<ObjectLedger> m_ledger;
    std::shared_ptr<FaultInjector> m_faults;
    Part<LogSink> m_log;
    Part<HostConfiguration> m_configuration;
    Part<HostStorage> m_storage;
    Part<MessageRouter> m_router;
    Part<ReportingService> m_reporting;
    Part<MonitorRegistration> m_monitors;
    Part<EventFilter> m_filter;
    HostRef<Agent::Hosting::IObject> m_root;  // made last, from the parts
};

}  // namespace KALVO::DevHost
