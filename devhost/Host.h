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

#include <map>

#include "devhost/EventFilter.h"
#include "devhost/HostConfiguration.h"
#include "devhost/HostStorage.h"
#include "devhost/LogSink.h"
#include "devhost/MessageRouter.h"
#include "devhost/MonitorRegistration.h"
#include "devhost/ProcessRecord.h"
#include "devhost/ReportingService.h"

namespace KALVO::DevHost {

struct HostOptions {
    // The storage database file, or ":memory:" for a store that lives as long as the host.
    std::string storagePath = HostStorage::InMemory;
    // The configuration text served at first.
    std::string configuration = "{}";
};

class Host {
public:
    // Throws std::runtime_error when the storage cannot be opened.
    explicit Host(HostOptions options = {});

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
    Agent::Hosting::ObjectPtr<ESP::v0::IProcessInfo> MakeProcess(ProcessRecord record) const;

    // References to this host's objects held by anyone but the host itself (the caller's own
    // process records included). 0 once a plug-in has given back everything it took.
    std::uint64_t OutstandingReferences() const;
    // The same by kind of object, for a failing assertion's message, e.g. "ProcessInfo x2".
    std::string DescribeOutstandingReferences() const;

private:
    // The references held by others, per kind of object. Exact when no other thread is taking
    // or dropping references at the time.
    std::map<std::string_view, std::uint64_t> OutstandingByKind() const;

    // The host object, with the parts made before it.
    HostRef<Agent::Hosting::IObject> MakeRoot() const;

    template <class T>
    using Part = HostRef<TrackedObject<T>>;

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
