#include "devhost/tool/ProcessTracker.h"

#include <algorithm>
#include <chrono>
#include <unordered_set>
#include <utility>
#include <vector>

namespace KALVO::DevHost::Tool {

namespace {

// Deeper than any real process tree; a bound so a cycle seen in a changing /proc cannot loop.
constexpr int MaxAncestry = 512;

}  // namespace

ProcessTracker::ProcessTracker(const ProcFs& procfs, EventSink& sink, std::optional<std::uint64_t> treeRoot)
    : m_procfs(procfs), m_sink(sink), m_treeRoot(treeRoot) {}

std::size_t ProcessTracker::ScanExisting() {
    std::size_t announced = 0;
    for (const std::uint64_t pid : m_procfs.ProcessIds()) {
        const std::optional<ProcessRecord> record = m_procfs.ReadProcess(pid);
        if (!record || !InTree(pid, record->parentPid)) {
            if (const auto stat = m_procfs.ReadStat(pid)) m_passedOver[pid] = stat->startTicks;
            continue;
        }
        m_announced[pid] = *record;
        Announce(EventKind::Exists, *record);
        ++announced;
    }
    return announced;
}

void ProcessTracker::OnExec(std::uint64_t pid) {
    const std::optional<ProcessRecord> record = m_procfs.ReadProcess(pid);
    if (!record) {
        ++m_missed;
        return;
    }
    if (!InTree(pid, record->parentPid)) return;
    m_passedOver.erase(pid);
    m_announced[pid] = *record;
    Announce(EventKind::Create, *record, ParentRecord(record->parentPid));
}

void ProcessTracker::OnExec(ProcessRecord record) {
    if (!InTree(record.pid, record.parentPid)) return;
    m_forked.erase(record.pid);
    ProcessRecord parent = ParentRecord(record.parentPid, true);
    const std::uint64_t pid = record.pid;
    Announce(EventKind::Create, m_announced[pid] = std::move(record), std::move(parent));
}

void ProcessTracker::OnFork(ProcessRecord record) {
    if (!InTree(record.pid, record.parentPid)) return;
    const ProcessRecord parent = ParentRecord(record.parentPid, true);
    record.path = parent.path;
    record.commandLine = parent.commandLine;
    m_forked[record.pid] = std::move(record);
}

void ProcessTracker::OnShellLine(std::uint64_t pid, const std::string& line) {
    const ProcessRecord shell = ParentRecord(pid, true);
    if (!InTree(pid, shell.parentPid)) return;
    TraceEvent event;
    event.kind = EventKind::Shell;
    event.process = shell;
    event.command = line;
    Announce(event);
}

void ProcessTracker::OnExit(std::uint64_t pid) {
    m_passedOver.erase(pid);
    m_forked.erase(pid);
    const auto announced = m_announced.find(pid);
    if (announced == m_announced.end()) return;
    const ProcessRecord record = std::move(announced->second);
    m_announced.erase(announced);
    Announce(EventKind::Terminate, record);
}

void ProcessTracker::Reconcile() {
    std::unordered_set<std::uint64_t> present;
    std::vector<ProcessRecord> created;
    for (const std::uint64_t pid : m_procfs.ProcessIds()) {
        const std::optional<ProcStat> stat = m_procfs.ReadStat(pid);
        if (!stat) continue;
        present.insert(pid);
        if (const auto announced = m_announced.find(pid); announced != m_announced.end()) {
            if (announced->second.uid == m_procfs.UidOf(*stat)) {
                // Same process; a new executable means it replaced its program.
                if (m_procfs.ReadPath(pid) == announced->second.path) continue;
                if (std::optional<ProcessRecord> record = m_procfs.ReadProcess(pid)) created.push_back(std::move(*record));
                continue;
            }
            OnExit(pid);  // the pid was taken by a new process since the last look
        }
        if (const auto passed = m_passedOver.find(pid); passed != m_passedOver.end() && passed->second == stat->startTicks)
            continue;
        std::optional<ProcessRecord> record = m_procfs.ReadProcess(pid);
        if (!record || !InTree(pid, record->parentPid)) {
            m_passedOver[pid] = stat->startTicks;
            continue;
        }
        created.push_back(std::move(*record));
    }

    std::vector<std::uint64_t> ended;
    for (const auto& [pid, record] : m_announced) {
        if (!present.contains(pid)) ended.push_back(pid);
    }
    std::sort(ended.begin(), ended.end());
    for (const std::uint64_t pid : ended) OnExit(pid);
    std::erase_if(m_passedOver, [&](const auto& entry) { return !present.contains(entry.first); });

    // Parents before children, as far as the start times tell.
    std::stable_sort(created.begin(), created.end(),
                     [](const ProcessRecord& a, const ProcessRecord& b) { return a.startTime < b.startTime; });
    for (const ProcessRecord& record : created) {
        m_passedOver.erase(record.pid);
        m_announced[record.pid] = record;
        Announce(EventKind::Create, record, ParentRecord(record.parentPid));
    }
}

bool ProcessTracker::InTree(std::uint64_t pid, std::uint64_t parentPid) const {
    if (!m_treeRoot || pid == *m_treeRoot) return true;
    std::uint64_t ancestor = parentPid;
    for (int depth = 0; depth < MaxAncestry; ++depth) {
        if (ancestor == *m_treeRoot) return true;
        if (ancestor <= 1) return false;
        // Under a tree filter only members of the tree are ever announced.
        if (m_announced.contains(ancestor) || m_forked.contains(ancestor)) return true;
        const std::optional<ProcStat> stat = m_procfs.ReadStat(ancestor);
        if (!stat) return false;
        ancestor = stat->parentPid;
    }
    return false;
}

ProcessRecord ProcessTracker::ParentRecord(std::uint64_t parentPid, bool tableFirst) const {
    if (tableFirst) {
        if (const auto forked = m_forked.find(parentPid); forked != m_forked.end()) return forked->second;
        if (const auto announced = m_announced.find(parentPid); announced != m_announced.end()) return announced->second;
    }
    if (std::optional<ProcessRecord> current = m_procfs.ReadProcess(parentPid)) return std::move(*current);
    if (const auto announced = m_announced.find(parentPid); announced != m_announced.end()) return announced->second;
    // A kernel thread (which starts helper programs) or a parent already gone: what is known.
    ProcessRecord record;
    record.pid = parentPid;
    if (const std::optional<ProcStat> stat = m_procfs.ReadStat(parentPid)) {
        record.parentPid = stat->parentPid;
        record.uid = m_procfs.UidOf(*stat);
    }
    return record;
}

void ProcessTracker::Announce(EventKind kind, const ProcessRecord& process, std::optional<ProcessRecord> parent) {
    TraceEvent event;
    event.kind = kind;
    event.process = process;
    event.parent = std::move(parent);
    Announce(event);
}

void ProcessTracker::Announce(TraceEvent& event) {
    event.time = static_cast<std::uint64_t>(
        std::chrono::duration_cast<std::chrono::nanoseconds>(std::chrono::system_clock::now().time_since_epoch()).count());
    m_sink.Deliver(event);
}

}  // namespace KALVO::DevHost::Tool
