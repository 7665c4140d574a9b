#include "devhost/MonitorRegistration.h"

#include <algorithm>
#include <iterator>
#include <tuple>
#include <utility>

#include "devhost/Boundary.h"
#include "devhost/EventInfo.h"

namespace KALVO::DevHost {

namespace {

using Agent::Hosting::ObjectPtr;
using ESP::v0::IEventInfo;
using ESP::v0::IProcessMonitor;
using ESP::v0::IShellMonitor;

// How deeply this thread is inside deliveries: an unregistration from a monitor's own callback
// must not wait for the delivery it runs in.
thread_local int t_deliveryDepth = 0;

bool Holds(const std::vector<MonitorRegistration::Registered>& list, void* monitor) {
    return std::any_of(list.begin(), list.end(), [&](const auto& entry) { return entry.monitor == monitor; });
}

}  // namespace

MonitorRegistration::MonitorRegistration(std::shared_ptr<FaultInjector> faults, std::shared_ptr<ObjectLedger> ledger,
                                         HostRef<TrackedObject<LogSink>> log)
    : m_faults(std::move(faults)), m_ledger(std::move(ledger)), m_log(std::move(log)) {}

template <class M, class... Params, class... Args>
std::size_t MonitorRegistration::Deliver(const List& list, std::uint32_t bit, void (M::*method)(Params...),
                                         const Args&... args) {
    std::shared_lock delivering(m_delivering);
    ++t_deliveryDepth;
    struct Leave {
        ~Leave() { --t_deliveryDepth; }
    } leave;
    List monitors;
    {
        std::lock_guard lock(m_mutex);
        std::copy_if(list.begin(), list.end(), std::back_inserter(monitors), [&](const auto& entry) { return entry.mask & bit; });
    }
    ObjectPtr<IEventInfo> event = TrackedObject<EventInfo>::Make(m_ledger);
    std::size_t reached = 0;
    for (const Registered& entry : monitors) {
        {
            // A monitor unregistered by an earlier callback of this delivery gets nothing more.
            std::lock_guard lock(m_mutex);
            if (!Holds(list, entry.monitor)) continue;
        }
        ObjectPtr<IEventInfo> eventCopy = event;
        std::tuple<Args...> copies(args...);
        try {
            std::apply([&](auto&... each) { (static_cast<M*>(entry.monitor)->*method)(eventCopy, each...); }, copies);
        } catch (...) {
            {
                std::lock_guard lock(m_mutex);
                ++m_escaped;
            }
            m_log->Record({"devhost", static_cast<std::uint32_t>(Logging::v0::Severity::Error),
                           "a monitor callback let an exception escape"});
        }
        ++reached;
    }
    return reached;
}

std::size_t MonitorRegistration::DeliverProcessCreate(const ProcessPtr& process, const ProcessPtr& parent) {
    return Deliver(m_process, EventMask::ProcessCreate, &IProcessMonitor::OnProcessCreate, process, parent);
}

std::size_t MonitorRegistration::DeliverProcessCreateInstant(const ProcessPtr& process, const ProcessPtr& parent) {
    return Deliver(m_process, EventMask::ProcessCreate, &IProcessMonitor::OnProcessCreateInstant, process, parent);
}

std::size_t MonitorRegistration::DeliverProcessExists(const ProcessPtr& process) {
    return Deliver(m_process, EventMask::ProcessExists, &IProcessMonitor::OnProcessExists, process);
}

std::size_t MonitorRegistration::DeliverProcessTerminate(const ProcessPtr& process) {
    return Deliver(m_process, EventMask::ProcessTerminate, &IProcessMonitor::OnProcessTerminate, process);
}

std::size_t MonitorRegistration::DeliverProcessTerminateInstant(const ProcessPtr& process) {
    return Deliver(m_process, EventMask::ProcessTerminate, &IProcessMonitor::OnProcessTerminateInstant, process);
}

std::size_t MonitorRegistration::DeliverShellCommand(const ProcessPtr& process, std::string_view commandLine) {
    return Deliver(m_shell, EventMask::ShellCommand, &IShellMonitor::OnShellCommand, process,
                   commandLine.empty() ? nullptr : commandLine.data(), static_cast<unsigned long>(commandLine.size()));
}

std::vector<MonitorRegistration::Registered> MonitorRegistration::ProcessMonitors() const {
    std::lock_guard lock(m_mutex);
    return m_process;
}

std::vector<MonitorRegistration::Registered> MonitorRegistration::ShellMonitors() const {
    std::lock_guard lock(m_mutex);
    return m_shell;
}

std::uint64_t MonitorRegistration::EscapedExceptions() const {
    std::lock_guard lock(m_mutex);
    return m_escaped;
}

void MonitorRegistration::Clear() {
    {
        std::lock_guard lock(m_mutex);
        m_process.clear();
        m_shell.clear();
    }
    if (t_deliveryDepth == 0) std::unique_lock wait(m_delivering);
}

Result::Code MonitorRegistration::Register(Operation operation, List& list, void* monitor, std::uint32_t mask) {
    if (const auto failure = m_faults->Check(operation)) return *failure;
    if (!monitor) return Result::InvalidArgument;
    return AtBoundary([&] {
        std::lock_guard lock(m_mutex);
        if (Holds(list, monitor)) return Result::InvalidArgument;
        list.push_back({monitor, mask});
        return Result::Success;
    });
}

Result::Code MonitorRegistration::Unregister(Operation operation, List& list, void* monitor) {
    if (const auto failure = m_faults->Check(operation)) return *failure;
    return AtBoundary([&] {
        {
            std::lock_guard lock(m_mutex);
            const auto found = std::find_if(list.begin(), list.end(), [&](const auto& entry) { return entry.monitor == monitor; });
            if (found == list.end()) return Result::NoSuchEntry;
            list.erase(found);
        }
        // Returns once no delivery of another thread runs; not from inside a delivery.
        if (t_deliveryDepth == 0) std::unique_lock wait(m_delivering);
        return Result::Success;
    });
}

}  // namespace KALVO::DevHost
