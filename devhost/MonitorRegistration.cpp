#include "devhost/MonitorRegistration.h"

#include <algorithm>
#include <exception>
#include <utility>

#include "devhost/Boundary.h"
#include "devhost/HostRef.h"
#include "devhost/TrackedObject.h"

namespace KALVO::DevHost {

namespace {

using Agent::Hosting::ObjectPtr;
using ESP::v0::IEventInfo;
using ESP::v0::IProcessInfo;
using ESP::v0::IProcessMonitor;
using ESP::v0::IShellMonitor;

// How deeply this thread is inside deliveries: an unregistration from a monitor's own callback
// must not wait for the delivery it runs in.
thread_local int t_deliveryDepth = 0;

}  // namespace

MonitorRegistration::MonitorRegistration(std::shared_ptr<FaultInjector> faults, std::shared_ptr<ObjectLedger> ledger,
                                         HostRef<TrackedObject<LogSink>> log)
    : m_faults(std::move(faults)), m_ledger(std::move(ledger)), m_log(std::move(log)) {}

template <class Call>
std::size_t MonitorRegistration::Deliver(const List& list, std::uint32_t bit, Call&& call) {
    std::shared_lock delivering(m_delivering);
    ++t_deliveryDepth;
    struct Leave {
        ~Leave() { --t_deliveryDepth; }
    } leave;
    std::vector<Entry> monitors;
    {
        std::lock_guard lock(m_mutex);
        for (const Entry& entry : list)
            if (entry.mask & bit) monitors.push_back(entry);
    }
    ObjectPtr<TrackedObject<EventInfo>> event;
    std::size_t reached = 0;
    for (const Entry& entry : monitors) {
        {
            // A monitor unregistered by an earlier callback of this delivery gets nothing more.
            std::lock_guard lock(m_mutex);
            if (std::none_of(list.begin(), list.end(), [&](const Entry& e) { return e.monitor == entry.monitor; })) continue;
        }
        if (!event) event = TrackedObject<EventInfo>::MakeUnlisted();
        ObjectPtr<IEventInfo> eventCopy(event.Get());
        try {
            call(entry.monitor, eventCopy);
        } catch (...) {
            m_escaped.fetch_add(1, std::memory_order_relaxed);
            if (m_log) m_log->HostLine(Logging::v0::Severity::Error, "a monitor callback let an exception escape");
        }
        ++reached;
    }
    // With the host's reference the only one left, nobody can take another: the event ends
    // here without the ledger. A monitor that kept it makes it an object to account for.
    if (event && event->Tracking().references.load(std::memory_order_acquire) != 1) event->List(m_ledger);
    return reached;
}

std::size_t MonitorRegistration::DeliverProcessCreate(const ProcessPtr& process, const ProcessPtr& parent) {
    return Deliver(m_process, EventMask::ProcessCreate, [&](void* monitor, ObjectPtr<IEventInfo>& event) {
        ProcessPtr child = process;
        ProcessPtr creator = parent;
        static_cast<IProcessMonitor*>(monitor)->OnProcessCreate(event, child, creator);
    });
}

std::size_t MonitorRegistration::DeliverProcessCreateInstant(const ProcessPtr& process, const ProcessPtr& parent) {
    return Deliver(m_process, EventMask::ProcessCreate,
                   [&](void* monitor, ObjectPtr<IEventInfo>& event) {
                       ProcessPtr child = process;
                       ProcessPtr creator = parent;
                       static_cast<IProcessMonitor*>(monitor)->OnProcessCreateInstant(event, child, creator);
                   });
}

std::size_t MonitorRegistration::DeliverProcessExists(const ProcessPtr& process) {
    return Deliver(m_process, EventMask::ProcessExists, [&](void* monitor, ObjectPtr<IEventInfo>& event) {
        ProcessPtr copy = process;
        static_cast<IProcessMonitor*>(monitor)->OnProcessExists(event, copy);
    });
}

std::size_t MonitorRegistration::DeliverProcessTerminate(const ProcessPtr& process) {
    return Deliver(m_process, EventMask::ProcessTerminate,
                   [&](void* monitor, ObjectPtr<IEventInfo>& event) {
                       ProcessPtr copy = process;
                       static_cast<IProcessMonitor*>(monitor)->OnProcessTerminate(event, copy);
                   });
}

std::size_t MonitorRegistration::DeliverProcessTerminateInstant(const ProcessPtr& process) {
    return Deliver(m_process, EventMask::ProcessTerminate,
                   [&](void* monitor, ObjectPtr<IEventInfo>& event) {
                       ProcessPtr copy = process;
                       static_cast<IProcessMonitor*>(monitor)->OnProcessTerminateInstant(event, copy);
                   });
}

std::size_t MonitorRegistration::DeliverShellCommand(const ProcessPtr& process, std::string_view commandLine) {
    return Deliver(m_shell, EventMask::ShellCommand, [&](void* monitor, ObjectPtr<IEventInfo>& event) {
        ProcessPtr copy = process;
        static_cast<IShellMonitor*>(monitor)->OnShellCommand(event, copy, commandLine.empty() ? nullptr : commandLine.data(),
                                                             static_cast<unsigned long>(commandLine.size()));
    });
}

std::vector<MonitorRegistration::Registered> MonitorRegistration::ProcessMonitors() const {
    std::lock_guard lock(m_mutex);
    std::vector<Registered> registered;
    for (const Entry& entry : m_process) registered.push_back({entry.monitor, entry.mask});
    return registered;
}

std::vector<MonitorRegistration::Registered> MonitorRegistration::ShellMonitors() const {
    std::lock_guard lock(m_mutex);
    std::vector<Registered> registered;
    for (const Entry& entry : m_shell) registered.push_back({entry.monitor, entry.mask});
    return registered;
}

std::uint64_t MonitorRegistration::EscapedExceptions() const noexcept { return m_escaped.load(std::memory_order_relaxed); }

void MonitorRegistration::WaitForDeliveries() {
    if (t_deliveryDepth == 0) std::unique_lock wait(m_delivering);
}

void MonitorRegistration::Clear() {
    {
        std::lock_guard lock(m_mutex);
        m_process.clear();
        m_shell.clear();
    }
    WaitForDeliveries();
}

Result::Code MonitorRegistration::LookupInterface(Agent::Hosting::InterfaceId id, Agent::Hosting::IObject*& out) {
    return AnswerObjectOnly<ESP::v0::IMonitorRegistration>(this, id, out);
}

Result::Code MonitorRegistration::Register(List& list, void* monitor, std::uint32_t mask) {
    if (!monitor) return Result::InvalidArgument;
    return AtBoundary([&] {
        std::lock_guard lock(m_mutex);
        if (std::any_of(list.begin(), list.end(), [&](const Entry& entry) { return entry.monitor == monitor; }))
            return Result::InvalidArgument;
        list.push_back({monitor, mask});
        return Result::Success;
    });
}

Result::Code MonitorRegistration::Unregister(List& list, void* monitor) {
    return AtBoundary([&] {
        {
            std::lock_guard lock(m_mutex);
            const auto found = std::find_if(list.begin(), list.end(), [&](const Entry& entry) { return entry.monitor == monitor; });
            if (found == list.end()) return Result::NoSuchEntry;
            list.erase(found);
        }
        WaitForDeliveries();
        return Result::Success;
    });
}

Result::Code MonitorRegistration::RegisterProcessMonitor(IProcessMonitor* monitor, std::uint32_t eventMask) {
    if (const auto failure = m_faults->Check(Operation::RegisterProcessMonitor)) return *failure;
    return Register(m_process, monitor, eventMask);
}

Result::Code MonitorRegistration::UnregisterProcessMonitor(IProcessMonitor* monitor) {
    if (const auto failure = m_faults->Check(Operation::UnregisterProcessMonitor)) return *failure;
    return Unregister(m_process, monitor);
}

Result::Code MonitorRegistration::RegisterShellMonitor(IShellMonitor* monitor, std::uint32_t eventMask) {
    if (const auto failure = m_faults->Check(Operation::RegisterShellMonitor)) return *failure;
    return Register(m_shell, monitor, eventMask);
}

Result::Code MonitorRegistration::UnregisterShellMonitor(IShellMonitor* monitor) {
    if (const auto failure = m_faults->Check(Operation::UnregisterShellMonitor)) return *failure;
    return Unregister(m_shell, monitor);
}

}  // namespace KALVO::DevHost
