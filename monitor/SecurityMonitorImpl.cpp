#include "monitor/SecurityMonitorImpl.h"

#include <fmt/format.h>

#include <stdexcept>
#include <system_error>
#include <utility>

#include "configuration/Configuration.h"
#include "eil/json/Json.h"
#include "eil/object/ThrowIfFailed.h"
#include "eil/string/StrSplit.h"
#include "host/IServiceProvider.h"
#include "logging/Log.h"
#include "storage/Storage.h"

namespace KALVO::SecurityMonitor {

using Agent::Hosting::IObject;
using Agent::Hosting::ObjectPtr;
using Agent::Hosting::QueryInterface;
using Agent::Hosting::QueryService;
using EIL::Object::ThrowIfFailed;
using Logging::Severity;

namespace {

constexpr char const* StorageScope = "securitymonitor";
constexpr char const* CachedProcessUIDsKey = "CachedProcessUIDs";
constexpr std::uint32_t ProcessEventMask = 14;
constexpr std::uint32_t ShellEventMask = 2;

}  // namespace

SecurityMonitorImpl::SecurityMonitorImpl(ObjectPtr<IObject> host) : m_host(std::move(host)) {
    Logging::Log::Write(Severity::Trace, "SecurityMonitorImpl");
    if (!m_host)
        throw std::system_error(Result::ProtocolError, std::generic_category(), "service provider not available");

    ObjectPtr<Agent::Hosting::IServiceProvider> services;
    ThrowIfFailed(QueryInterface(m_host.Get(), services));

    ObjectPtr<IObject> identity;
    ThrowIfFailed(QueryInterface(m_host.Get(), identity));
    m_reporter = std::make_unique<Reporting::Reporter>(std::move(identity));

    ThrowIfFailed(QueryService<ESP::v0::IMonitorRegistration>(services.Get(), m_espMonitor));
    LoadCachedProcessUIDs();
    ThrowIfFailed(QueryService<ESP::v0::IEventFilter>(services.Get(), m_processFilter));

    if (const auto code = m_espMonitor->RegisterProcessMonitor(this, ProcessEventMask)) {
        Logging::Log::Error("Registering process monitor from ESP failed: {}", code);
        throw std::runtime_error(fmt::format("Registering process monitor ESP failed: {}", code));
    }
    if (const auto code = m_espMonitor->RegisterShellMonitor(this, ShellEventMask)) {
        Logging::Log::Error("Registering shell monitor from ESP failed: {}", code);
        const auto undo = m_espMonitor->UnregisterProcessMonitor(this);
        if (undo != Result::Success) Logging::Log::Error("Unregistering process monitor from ESP failed: {}", undo);
        // The text carries the undo's code, not the registration's: hosts match on it as it is.
        throw std::runtime_error(fmt::format("Registering shell monitor ESP failed: {}", undo));
    }

    ReadConfiguration(RepeatSettings::Read::Construction);
}

SecurityMonitorImpl::~SecurityMonitorImpl() {
    if (const auto code = m_espMonitor->UnregisterProcessMonitor(this))
        Logging::Log::Error("Unregistering process monitor from ESP failed: {}", code);
    if (const auto code = m_espMonitor->UnregisterShellMonitor(this))
        Logging::Log::Error("Unregistering shell monitor from ESP failed: {}", code);
    SaveRunningProcessUIDs();
}

void SecurityMonitorImpl::LoadCachedProcessUIDs() noexcept {
    // No value on a first run, or a storage failure: start with what was read, silently.
    try {
        const Storage::Storage storage(m_host.Get(), StorageScope);
        const std::string stored = storage.GetString(CachedProcessUIDsKey);
        for (auto& uid : EIL::String::StrSplit(stored, ",", false)) m_cachedProcessUIDs.insert(std::string(uid));
    } catch (...) {
    }
}

void SecurityMonitorImpl::SaveRunningProcessUIDs() noexcept {
    try {
        std::string value;
        for (const auto& uid : m_runningProcessUIDs.Sorted()) {
            value += uid;
            value += ',';
        }
        const Storage::Storage storage(m_host.Get(), StorageScope);
        storage.SetBuffer(CachedProcessUIDsKey, value.data(), value.size());
    } catch (...) {
        // Teardown never throws; a lost value only means some processes are reported again.
    }
}

void SecurityMonitorImpl::ReadConfiguration(RepeatSettings::Read form) noexcept {
    try {
        const Configuration::Configuration configuration(m_host.Get());
        std::unique_lock lock(m_configMutex);
        m_settings.ReadFrom(configuration, form);
    } catch (...) {
        Logging::Log::Warn("Failed to get configuration for process tree collapsing");
    }
}

Result::Code SecurityMonitorImpl::OnSynchronize(std::string const& context) {
    Logging::Log::Write(Severity::Trace, "SecurityMonitorImpl::OnSynchronize: context = {}", context);
    EIL::Json::Json document;
    try {
        document = EIL::Json::FromString(context);
    } catch (...) {
        Logging::Log::Warn("cannot determine reason for synchronize");
        return Result::ProtocolError;
    }
    bool reread = false;
    try {
        std::string reason;
        reread = document.TryGetMember<std::string>("reason", reason) && reason == "configuration";
    } catch (...) {
        // When in doubt the monitor refreshes.
        Logging::Log::CurrentException(Severity::Error, "Security monitor failed to synchronize");
        reread = true;
    }
    if (reread) ReadConfiguration(RepeatSettings::Read::Synchronize);
    return Result::Success;
}

bool SecurityMonitorImpl::CountWithinLimit(Counts& counts, std::string const& key) {
    unsigned int count = 0;
    if (counts.Get(key, count)) {
        ++count;
        counts.Update(key, count);
        return WithinReportLimit(count, m_settings.reportLimit.load());
    }
    // Get and insert are two critical sections on purpose: two simultaneous first occurrences
    // of a key may both be reported, which is cheaper than a compound lock on every event.
    const auto lock = EIL::Core::LockSpinningFirst(counts.Mutex());
    counts.InsertData(lock, key, 1, nullptr);
    return true;
}

bool SecurityMonitorImpl::WasCachedByPreviousRun(std::string const& uid) const {
    return m_cachedProcessUIDs.count(uid) != 0;
}

}  // namespace KALVO::SecurityMonitor
