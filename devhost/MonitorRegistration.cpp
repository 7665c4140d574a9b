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

// The registrations this thread is delivering to right now, so that an unregistration from
// inside a callback does not wait for itself.
thread_local std::vector<void const*> t_delivering;

std::size_t DeliveringOnThisThread(void const* registration) {
    return static_cast<std::size_t>(std::count(t_delivering.begin(), t_delivering.end(), registration));
}

}  // namespace

MonitorRegistration::MonitorRegistration(std::shared_ptr<FaultInjector> faults, std::shared_ptr<ObjectLedger> ledger,
                                         HostRef<TrackedObject<LogSink>> log)
    : m_faults(std::move(faults)), m_ledger(std::move(ledger)), m_log(std::move(log)) {}

template <class Call>
std::size_t MonitorRegistration::Deliver(List& list, std::uint32_t bit, EventKind kind, Call&& call) {
    std::vector<RegistrationPtr> targets;
    {
        std::lock_guard lock(m_mutex);
        for (const RegistrationPtr& registration : list) {
            if (registration->active && (registration->mask & bit) != 0) {
                ++registration->inFlight;
                targets.push_back(registration);
            }
        }
    }
    const HostRef<TrackedObject<EventInfo>> event(
        TrackedObject<EventInfo>::Make(m_ledger, kind, m_sequence.fetch_add(1, std::memory_order_relaxed) + 1));
    std::size_t reached = 0;
    for (const RegistrationPtr& registration : targets) {
        bool active;
        {
            std::lock_guard lock(m_mutex);
            active = registration->active;
        }
        if (active) {
            ObjectPtr<IEventInfo> eventCopy(event.Get());
            t_delivering.push_back(registration.get());
            try {
                call(registration->monitor, eventCopy);
            } catch (...) {
                m_escaped.fetch_add(1, std::memory_order_relaxed);
                if (m_log) m_log->HostLine(2, "a monitor callback let an exception escape");
            }
            t_delivering.pop_back();
            ++reached;
        }
        {
            std::lock_guard lock(m_mutex);
            --registration->inFlight;
        }
        m_idle.notify_all();
    }
    return reached;
}

std::size_t MonitorRegistration::DeliverProcessCreate(const ProcessPtr& process, const ProcessPtr& parent) {
    return Deliver(m_process, EventMask::ProcessCreate, EventKind::ProcessCreate, [&](void* monitor, ObjectPtr<IEventInfo>& event) {
        ProcessPtr child = process;
        ProcessPtr creator = parent;
        static_cast<IProcessMonitor*>(monitor)->OnProcessCreate(event, child, creator);
    });
}

std::size_t MonitorRegistration::DeliverProcessCreateInstant(const ProcessPtr& process, const ProcessPtr& parent) {
    return Deliver(m_process, EventMask::ProcessCreate, EventKind::ProcessCreateInstant,
                   [&](void* monitor, ObjectPtr<IEventInfo>& event) {
                       ProcessPtr child = process;
                       ProcessPtr creator = parent;
                       static_cast<IProcessMonitor*>(monitor)->OnProcessCreateInstant(event, child, creator);
                   });
}

std::size_t MonitorRegistration::DeliverProcessExists(const ProcessPtr& process) {
    return Deliver(m_process, EventMask::ProcessExists, EventKind::ProcessExists, [&](void* monitor, ObjectPtr<IEventInfo>& event) {
        ProcessPtr copy = process;
        static_cast<IProcessMonitor*>(monitor)->OnProcessExists(event, copy);
    });
}

std::size_t MonitorRegistration::DeliverProcessTerminate(const ProcessPtr& process) {
    return Deliver(m_process, EventMask::ProcessTerminate, EventKind::ProcessTerminate,
                   [&](void* monitor, ObjectPtr<IEventInfo>& event) {
                       ProcessPtr copy = process;
                       static_cast<IProcessMonitor*>(monitor)->OnProcessTerminate(event, copy);
                   });
}

std::size_t MonitorRegistration::DeliverProcessTerminateInstant(const ProcessPtr& process) {
    return Deliver(m_process, EventMask::ProcessTerminate, EventKind::ProcessTerminateInstant,
                   [&](void* monitor, ObjectPtr<IEventInfo>& event) {
                       ProcessPtr copy = process;
                       static_cast<IProcessMonitor*>(monitor)->OnProcessTerminateInstant(event, copy);
                   });
}

std::size_t MonitorRegistration::DeliverShellCommand(const ProcessPtr& process, std::string_view commandLine) {
    return Deliver(m_shell, EventMask::ShellCommand, EventKind::ShellCommand, [&](void* monitor, ObjectPtr<IEventInfo>& event) {
        ProcessPtr copy = process;
        static_cast<IShellMonitor*>(monitor)->OnShellCommand(event, copy, commandLine.empty() ? nullptr : commandLine.data(),
                                                             static_cast<unsigned long>(commandLine.size()));
    });
}

std::vector<MonitorRegistration::Registered> MonitorRegistration::ProcessMonitors() const {
    std::lock_guard lock(m_mutex);
    std::vector<Registered> registered;
    for (const RegistrationPtr& registration : m_process) registered.push_back({registration->monitor, registration->mask});
    return registered;
}

std::vector<MonitorRegistration::Registered> MonitorRegistration::ShellMonitors() const {
    std::lock_guard lock(m_mutex);
    std::vector<Registered> registered;
    for (const RegistrationPtr& registration : m_shell) registered.push_back({registration->monitor, registration->mask});
    return registered;
}

std::uint64_t MonitorRegistration::EscapedExceptions() const noexcept { return m_escaped.load(std::memory_order_relaxed); }

void MonitorRegistration::Clear() {
    std::unique_lock lock(m_mutex);
    List removed;
    for (List* list : {&m_process, &m_shell}) {
        for (RegistrationPtr& registration : *list) {
            registration->active = false;
            removed.push_back(std::move(registration));
        }
        list->clear();
    }
    m_idle.wait(lock, [&] {
        return std::all_of(removed.begin(), removed.end(), [](const RegistrationPtr& registration) {
            return registration->inFlight == DeliveringOnThisThread(registration.get());
        });
    });
}

Result::Code MonitorRegistration::LookupInterface(Agent::Hosting::InterfaceId id, Agent::Hosting::IObject*& out) {
    return AnswerObjectOnly<ESP::v0::IMonitorRegistration>(this, id, out);
}

Result::Code MonitorRegistration::Register(List& list, void* monitor, std::uint32_t mask) {
    if (!monitor) return Result::InvalidArgument;
    return AtBoundary([&] {
        auto registration = std::make_shared<Registration>(Registration{monitor, mask});
        std::lock_guard lock(m_mutex);
        const bool known = std::any_of(list.begin(), list.end(), [&](const RegistrationPtr& existing) {
            return existing->monitor == monitor;
        });
        if (known) return Result::InvalidArgument;
        list.push_back(std::move(registration));
        return Result::Success;
    });
}

Result::Code MonitorRegistration::Unregister(List& list, void* monitor) {
    return AtBoundary([&] {
        std::unique_lock lock(m_mutex);
        const auto found = std::find_if(list.begin(), list.end(), [&](const RegistrationPtr& existing) {
            return existing->monitor == monitor;
        });
        if (found == list.end()) return Result::NoSuchEntry;
        const RegistrationPtr registration = *found;
        list.erase(found);
        registration->active = false;
        const std::size_t own = DeliveringOnThisThread(registration.get());
        m_idle.wait(lock, [&] { return registration->inFlight == own; });
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
