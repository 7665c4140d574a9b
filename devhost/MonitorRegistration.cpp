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

std::atomic<std::uint64_t> g_nextInstance{1};

// Sequence numbers this thread may hand out for one registration service.
struct SequenceBlock {
    std::uint64_t owner = 0;  // the service's m_id
    std::uint64_t next = 0;
    std::uint64_t end = 0;
};
constinit thread_local SequenceBlock t_sequence;
constexpr std::uint64_t SequenceBlockSize = 1024;

}  // namespace

MonitorRegistration::MonitorRegistration(std::shared_ptr<FaultInjector> faults, std::shared_ptr<ObjectLedger> ledger,
                                         HostRef<TrackedObject<LogSink>> log)
    : m_faults(std::move(faults)),
      m_ledger(std::move(ledger)),
      m_log(std::move(log)),
      m_id(g_nextInstance.fetch_add(1, std::memory_order_relaxed)) {
    for (Board* board : {&m_process, &m_shell}) {
        board->owner = std::make_shared<const Snapshot>();
        board->current.store(board->owner.get(), std::memory_order_seq_cst);
    }
}

std::uint64_t MonitorRegistration::NextSequence() noexcept {
    SequenceBlock& block = t_sequence;
    if (block.owner != m_id || block.next == block.end) {
        // Relaxed: the numbers only need to be distinct.
        const std::uint64_t first = m_sequence.fetch_add(SequenceBlockSize, std::memory_order_relaxed) + 1;
        block = SequenceBlock{m_id, first, first + SequenceBlockSize};
    }
    return block.next++;
}

template <class Call>
std::size_t MonitorRegistration::Deliver(Board& board, std::uint32_t bit, EventKind kind, Call&& call) {
    const ReaderGate::Section section = board.gate.Enter();
    // seq_cst: pairs with the section's entry against a writer's publication and sampling.
    const Snapshot& registrations = *board.current.load(std::memory_order_seq_cst);
    ObjectPtr<TrackedObject<EventInfo>> event;
    std::size_t reached = 0;
    for (const std::shared_ptr<Registration>& registration : registrations) {
        // Relaxed: another thread's unregistration waits for this delivery anyway; the flag only
        // matters to this thread's own unregistration from inside a callback.
        if ((registration->mask & bit) == 0 || !registration->active.load(std::memory_order_relaxed)) continue;
        if (!event) event = TrackedObject<EventInfo>::MakeUnlisted(kind, NextSequence());
        ObjectPtr<IEventInfo> eventCopy(event.Get());
        try {
            call(registration->monitor, eventCopy);
        } catch (...) {
            m_escaped.fetch_add(1, std::memory_order_relaxed);
            if (m_log) m_log->HostLine(2, "a monitor callback let an exception escape");
        }
        ++reached;
    }
    // With the host's reference the only one left, nobody can take another: the event ends
    // here without the ledger. A monitor that kept it makes it an object to account for.
    if (event && event->Tracking().references.load(std::memory_order_acquire) != 1) event->List(m_ledger);
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

std::vector<MonitorRegistration::Registered> MonitorRegistration::Describe(const Snapshot& snapshot) {
    std::vector<Registered> registered;
    for (const std::shared_ptr<Registration>& registration : snapshot) {
        registered.push_back({registration->monitor, registration->mask});
    }
    return registered;
}

std::vector<MonitorRegistration::Registered> MonitorRegistration::ProcessMonitors() const {
    std::lock_guard lock(m_mutex);
    return Describe(*m_process.owner);
}

std::vector<MonitorRegistration::Registered> MonitorRegistration::ShellMonitors() const {
    std::lock_guard lock(m_mutex);
    return Describe(*m_shell.owner);
}

std::uint64_t MonitorRegistration::EscapedExceptions() const noexcept { return m_escaped.load(std::memory_order_relaxed); }

void MonitorRegistration::Replace(Board& board, std::unique_lock<std::mutex>& lock, std::shared_ptr<const Snapshot> next) {
    std::shared_ptr<const Snapshot> replaced = std::exchange(board.owner, std::move(next));
    board.current.store(board.owner.get(), std::memory_order_seq_cst);
    board.retired.push_back(std::move(replaced));  // reserved by the caller: cannot throw
    // A delivery on this very thread may still be reading any retired list; then they wait
    // for a later writer.
    std::vector<std::shared_ptr<const Snapshot>> unreachable;
    if (!board.gate.Inside()) unreachable.swap(board.retired);
    lock.unlock();
    try {
        board.gate.WaitForReaders();
    } catch (...) {
        lock.lock();
        board.retired.insert(board.retired.end(), unreachable.begin(), unreachable.end());
        throw;
    }
}

void MonitorRegistration::Clear() {
    for (Board* board : {&m_process, &m_shell}) {
        auto empty = std::make_shared<const Snapshot>();
        std::unique_lock lock(m_mutex);
        board->retired.reserve(board->retired.size() + 1);
        for (const std::shared_ptr<Registration>& registration : *board->owner) {
            registration->active.store(false, std::memory_order_relaxed);
        }
        Replace(*board, lock, std::move(empty));
    }
}

Result::Code MonitorRegistration::LookupInterface(Agent::Hosting::InterfaceId id, Agent::Hosting::IObject*& out) {
    return AnswerObjectOnly<ESP::v0::IMonitorRegistration>(this, id, out);
}

Result::Code MonitorRegistration::Register(Board& board, void* monitor, std::uint32_t mask) {
    if (!monitor) return Result::InvalidArgument;
    return AtBoundary([&] {
        auto registration = std::make_shared<Registration>(monitor, mask);
        std::lock_guard lock(m_mutex);
        const Snapshot& current = *board.owner;
        const bool known = std::any_of(current.begin(), current.end(), [&](const std::shared_ptr<Registration>& existing) {
            return existing->monitor == monitor;
        });
        if (known) return Result::InvalidArgument;
        auto next = std::make_shared<Snapshot>(current);
        next->push_back(std::move(registration));
        board.retired.reserve(board.retired.size() + 1);
        std::shared_ptr<const Snapshot> replaced = std::exchange(board.owner, std::move(next));
        board.current.store(board.owner.get(), std::memory_order_seq_cst);
        board.retired.push_back(std::move(replaced));
        // The replaced list is freed by a later unregistration, once no delivery reads it.
        return Result::Success;
    });
}

Result::Code MonitorRegistration::Unregister(Board& board, void* monitor) {
    return AtBoundary([&] {
        std::unique_lock lock(m_mutex);
        const Snapshot& current = *board.owner;
        const auto found = std::find_if(current.begin(), current.end(), [&](const std::shared_ptr<Registration>& existing) {
            return existing->monitor == monitor;
        });
        if (found == current.end()) return Result::NoSuchEntry;
        auto next = std::make_shared<Snapshot>();
        next->reserve(current.size() - 1);
        for (const std::shared_ptr<Registration>& registration : current) {
            if (registration != *found) next->push_back(registration);
        }
        board.retired.reserve(board.retired.size() + 1);
        (*found)->active.store(false, std::memory_order_relaxed);
        Replace(board, lock, std::move(next));
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
