#include "devhost/tool/ProcessTracker.h"

#include <algorithm>
#include <chrono>
#include <unordered_set>
#include <utility>
#include <vector>

namespace KALVO::DevHost::Tool {

ProcessTracker::ProcessTracker(const ProcFs& procfs, EventSink& sink, std::optional<std::uint64_t> treeRoot)
    : m_procfs(procfs), m_sink(sink), m_treeRoot(treeRoot) {}

std::size_t ProcessTracker::ScanExisting() {
    for (const std::uint64_t pid : m_procfs.ProcessIds()) {
        std::optional<ProcessRecord> record = m_procfs.ReadProcess(pid);
        if (!record || !InTree(pid, record->parentPid)) continue;
        m_announced[pid] = *record;
        Announce(EventKind::Exists, std::move(*record));
    }
    return m_announced.size();
}

void ProcessTracker::OnExec(ProcessRecord record) {
    if (!InTree(record.pid, record.parentPid)) return;
    m_forked.erase(record.pid);
    ProcessRecord parent = ParentRecord(record.parentPid);
    m_announced[record.pid] = record;
    Announce(EventKind::Create, std::move(record), std::move(parent));
}

void ProcessTracker::OnFork(ProcessRecord record) {
    if (!InTree(record.pid, record.parentPid)) return;
    const ProcessRecord parent = ParentRecord(record.parentPid);
    record.path = parent.path;
    record.commandLine = parent.commandLine;
    m_forked[record.pid] = std::move(record);
}

void ProcessTracker::OnShellLine(std::uint64_t pid, std::string line) {
    ProcessRecord shell = ParentRecord(pid);
    if (InTree(pid, shell.parentPid))
        Announce(EventKind::Shell, std::move(shell), std::nullopt, std::move(line));
}

void ProcessTracker::OnExit(std::uint64_t pid) {
    m_forked.erase(pid);
    if (auto announced = m_announced.extract(pid))
        Announce(EventKind::Terminate, std::move(announced.mapped()));
}

void ProcessTracker::Reconcile() {
    std::unordered_set<std::uint64_t> present;
    std::vector<ProcessRecord> created;
    for (const std::uint64_t pid : m_procfs.ProcessIds()) {
        const std::optional<ProcStat> stat = m_procfs.ReadStat(pid);
        if (!stat) continue;
        present.insert(pid);
        if (const auto announced = m_announced.find(pid); announced != m_announced.end()) {
            if (announced->second.uid == stat->uid) {
                // Same process; a new executable means it replaced its program.
                if (m_procfs.ReadPath(pid) == announced->second.path) continue;
                if (std::optional<ProcessRecord> record = m_procfs.ReadProcess(pid)) created.push_back(std::move(*record));
                continue;
            }
            OnExit(pid);  // the pid was taken by a new process since the last look
        }
        if (const auto passed = m_passedOver.find(pid); passed != m_passedOver.end() && passed->second == stat->uid)
            continue;
        std::optional<ProcessRecord> record = m_procfs.ReadProcess(pid);
        if (record && InTree(pid, record->parentPid))
            created.push_back(std::move(*record));
        else
            m_passedOver[pid] = stat->uid;
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
    for (ProcessRecord& record : created) OnExec(std::move(record));
}

bool ProcessTracker::InTree(std::uint64_t pid, std::uint64_t parentPid) const {
    // A process announced stays a member, whatever became of its parent.
    if (!m_treeRoot || pid == *m_treeRoot || m_announced.contains(pid)) return true;
    std::uint64_t ancestor = parentPid;
    // Deeper than any real process tree; a bound so a cycle seen in a changing /proc cannot loop.
    for (int depth = 0; depth < 512; ++depth) {
        // Under a tree filter only members of the tree are ever announced.
        if (ancestor == *m_treeRoot || m_announced.contains(ancestor) || m_forked.contains(ancestor)) return true;
        if (ancestor <= 1) return false;
        const std::optional<ProcStat> stat = m_procfs.ReadStat(ancestor);
        if (!stat) return false;
        ancestor = stat->parentPid;
    }
    return false;
}

ProcessRecord ProcessTracker::ParentRecord(std::uint64_t parentPid) const {
    if (const auto forked = m_forked.find(parentPid); forked != m_forked.end()) return forked->second;
    if (const auto announced = m_announced.find(parentPid); announced != m_announced.end()) return announced->second;
    if (std::optional<ProcessRecord> current = m_procfs.ReadProcess(parentPid)) return std::move(*current);
    // A kernel thread (which starts helper programs) or a parent already gone: what is known.
    const std::optional<ProcStat> stat = m_procfs.ReadStat(parentPid);
    return {.pid = parentPid, .parentPid = stat ? stat->parentPid : 0, .uid = stat ? stat->uid : ""};
}

void ProcessTracker::Announce(EventKind kind, ProcessRecord process, std::optional<ProcessRecord> parent, std::string command) {
    const auto now = std::chrono::duration_cast<std::chrono::nanoseconds>(std::chrono::system_clock::now().time_since_epoch());
    m_sink.Deliver(TraceEvent{kind, std::move(process), std::move(parent), std::move(command),
                              static_cast<std::uint64_t>(now.count())});
}

}  // namespace KALVO::DevHost::Tool
