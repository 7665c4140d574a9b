// SecurityMonitorImpl: the monitor core. Registered with the host's event provider as process
// and shell monitor, it filters, counts and reports process creations, running processes and
// shell commands, re-reads its two configuration keys on demand, and persists the identifiers
// of the processes it saw alive so that a restart does not report them again.
//
// The package builds it in Start and destroys it in Stop, on the host's lifecycle thread; the
// event handlers run on the host's event threads, concurrently, from the moment of registration.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <set>
#include <shared_mutex>
#include <string>

#include "eil/core/LRUCache.h"
#include "host/IEventFilter.h"
#include "host/IMonitorRegistration.h"
#include "host/IObject.h"
#include "host/IOutputStream.h"
#include "host/IProcessMonitor.h"
#include "host/IShellMonitor.h"
#include "host/ObjectPtr.h"
#include "monitor/RepeatKeys.h"
#include "monitor/RepeatSettings.h"
#include "monitor/RunningProcessSet.h"
#include "reporting/Reporter.h"

namespace KALVO::SecurityMonitor {

class SecurityMonitorImpl final : public ESP::v0::IProcessMonitor, public ESP::v0::IShellMonitor {
public:
    using EventPtr = Agent::Hosting::ObjectPtr<ESP::v0::IEventInfo>;
    using ProcessPtr = Agent::Hosting::ObjectPtr<ESP::v0::IProcessInfo>;

    // Connects to the host: services, registration, persisted identifiers, configuration.
    // Throws when a service is missing or a registration fails; leaves no registration behind.
    explicit SecurityMonitorImpl(Agent::Hosting::ObjectPtr<Agent::Hosting::IObject> host);
    // Unregisters (failures logged) and persists the running identifiers (failures swallowed).
    ~SecurityMonitorImpl();

    SecurityMonitorImpl(const SecurityMonitorImpl&) = delete;  // registered by address
    SecurityMonitorImpl& operator=(const SecurityMonitorImpl&) = delete;

    void OnProcessCreate(EventPtr& event, ProcessPtr& process, ProcessPtr& parent) override;
    void OnProcessCreateInstant(EventPtr& event, ProcessPtr& process, ProcessPtr& parent) override;
    void OnProcessExists(EventPtr& event, ProcessPtr& process) override;
    void OnProcessTerminate(EventPtr& event, ProcessPtr& process) override;
    void OnProcessTerminateInstant(EventPtr& event, ProcessPtr& process) override;
    void OnShellCommand(EventPtr& event, ProcessPtr& process, char const* commandLine, unsigned long length) override;

    // The host's synchronize context: {"reason":"configuration"} re-reads the configuration.
    Result::Code OnSynchronize(std::string const& context);

    // Answers the health-check request {"id":"..."}; uses no state of a core, so the package
    // answers it with or without one.
    static Result::Code OnHealthCheck(std::string const& payload, EIL::Stream::IOutputStream& output);

private:
    using Counts = EIL::Core::LRUCache<std::string, unsigned int, RepeatCacheCapacity>;
    void ReadConfiguration(RepeatSettings::Read form) noexcept;
    // Counts one occurrence of `key`; false when the key has now been seen more often than the
    // report limit allows.
    bool CountWithinLimit(Counts& counts, std::string const& key);
    bool WasCachedByPreviousRun(std::string const& uid) const;
    void LoadCachedProcessUIDs() noexcept;
    void SaveRunningProcessUIDs() noexcept;

    Counts m_shellCommandCounts;
    Counts m_processTreeCounts;
    RepeatSettings m_settings;
    std::shared_mutex m_configMutex;  // guards the settings' collapse pattern and expression
    Agent::Hosting::ObjectPtr<Agent::Hosting::IObject> m_host;
    Agent::Hosting::ObjectPtr<ESP::v0::IMonitorRegistration> m_espMonitor;
    Agent::Hosting::ObjectPtr<ESP::v0::IEventFilter> m_processFilter;
    std::unique_ptr<Reporting::Reporter> m_reporter;
    // The host delivers process events on several threads at once: the running set locks
    // itself; the set read from storage is filled before registration and only read after it.
    RunningProcessSet m_runningProcessUIDs;
    std::set<std::string, std::less<>> m_cachedProcessUIDs;
};

}  // namespace KALVO::SecurityMonitor
