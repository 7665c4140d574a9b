// ProcessTracker: turns what is known of this machine's processes (a scan of /proc, the
// kernel's records of execs, forks and exits, or successive scans) into the host's process
// events: every running process once as "exists", each new program as "create" with its
// parent's record, the end of each process it announced as "terminate", and the lines shells
// received as "shell".
//
// It remembers the processes it announced, so that an ending carries the same record (and
// uid) as the announcement even though the process is gone from /proc by then. Optionally
// limited to one process and its descendants (a build, a test run). One thread only.
#pragma once

#include <chrono>
#include <unordered_set>
#include <utility>

#include "devhost/tool/EventSink.h"
#include "devhost/tool/ProcFs.h"

namespace KALVO::DevHost::Tool {

class ProcessTracker {
public:
    // `procfs` and `sink` are borrowed and must outlive the tracker. With `treeRoot`, only that
    // process and its descendants are announced.
    ProcessTracker(const ProcFs& procfs, EventSink& sink, std::optional<std::uint64_t> treeRoot)
        : m_procfs(procfs), m_sink(sink), m_treeRoot(treeRoot) {}

    // Announces every process running now as existing; returns how many.
    std::size_t ScanExisting() {
        Reconcile(EventKind::Exists);
        return m_announced.size();
    }

    // A process started a new program: announced as created by its parent, with the parent's
    // record as this tracker knows it (else as /proc has it).
    void OnExec(ProcessRecord record) {
        if (InTree(record.pid, record.parentPid)) Adopt(EventKind::Create, std::move(record));
    }

    // A new process running its parent's program: known for its children and lines, not announced.
    void OnFork(ProcessRecord record) {
        if (!InTree(record.pid, record.parentPid)) return;
        const ProcessRecord parent = ParentRecord(record.parentPid);
        record.path = parent.path;
        record.commandLine = parent.commandLine;
        m_forked[record.pid] = std::move(record);
    }

    // The process `pid` ended: its termination is announced if it was announced itself.
    void OnExit(std::uint64_t pid) {
        m_forked.erase(pid);
        if (auto announced = m_announced.extract(pid)) Announce(EventKind::Terminate, std::move(announced.mapped()));
    }

    // A line the shell `pid` received.
    void OnShellLine(std::uint64_t pid, std::string line) {
        ProcessRecord shell = ParentRecord(pid);
        if (InTree(pid, shell.parentPid)) Announce(EventKind::Shell, std::move(shell), std::nullopt, std::move(line));
    }

    // Compares /proc with what was announced: new processes and programs replaced in place (a
    // new executable path) are announced as `kind`, vanished ones as terminated.
    void Reconcile(EventKind kind = EventKind::Create) {
        std::unordered_set<std::uint64_t> present;
        for (const std::uint64_t pid : m_procfs.ProcessIds()) {
            const std::optional<ProcStat> stat = m_procfs.ReadStat(pid);
            if (!stat) continue;
            present.insert(pid);
            if (const auto announced = m_announced.find(pid); announced != m_announced.end()) {
                if (announced->second.uid != stat->uid)
                    OnExit(pid);  // the pid was taken by a new process since the last look
                else if (m_procfs.ReadPath(pid) == announced->second.path)
                    continue;  // the same process, still running the same program
            }
            if (const auto passed = m_passedOver.find(pid); passed != m_passedOver.end() && passed->second == stat->uid)
                continue;
            std::optional<ProcessRecord> record = m_procfs.ReadProcess(pid);
            if (record && InTree(pid, record->parentPid))
                Adopt(kind, std::move(*record));
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
    }

private:
    bool InTree(std::uint64_t pid, std::uint64_t parentPid) const {
        // A process announced stays a member, whatever became of its parent.
        if (!m_treeRoot || pid == *m_treeRoot || m_announced.contains(pid)) return true;
        std::uint64_t ancestor = parentPid;
        // Deeper than any real process tree; a bound so a cycle seen in a changing /proc cannot loop.
        for (int depth = 0; depth < 512; ++depth) {
            // Under a tree filter only members of the tree are ever announced.
            if (ancestor == *m_treeRoot || m_announced.contains(ancestor) || m_forked.contains(ancestor)) return true;
            const std::optional<ProcStat> stat = ancestor > 1 ? m_procfs.ReadStat(ancestor) : std::nullopt;
            if (!stat) return false;
            ancestor = stat->parentPid;
        }
        return false;
    }

    ProcessRecord ParentRecord(std::uint64_t parentPid) const {
        if (const auto forked = m_forked.find(parentPid); forked != m_forked.end()) return forked->second;
        if (const auto announced = m_announced.find(parentPid); announced != m_announced.end()) return announced->second;
        if (std::optional<ProcessRecord> current = m_procfs.ReadProcess(parentPid)) return std::move(*current);
        // A kernel thread (which starts helper programs) or a parent already gone: what is known.
        const std::optional<ProcStat> stat = m_procfs.ReadStat(parentPid);
        return {.pid = parentPid, .parentPid = stat ? stat->parentPid : 0, .uid = stat ? stat->uid : ""};
    }

    // Announces a process found (Exists) or a new program (Create, with its parent), and keeps
    // its record for its end.
    void Adopt(EventKind kind, ProcessRecord record) {
        std::optional<ProcessRecord> parent;
        if (kind == EventKind::Create) parent = ParentRecord(record.parentPid);
        m_forked.erase(record.pid);
        m_announced[record.pid] = record;
        Announce(kind, std::move(record), std::move(parent));
    }

    // Delivers the event, stamped with the time.
    void Announce(EventKind kind, ProcessRecord process, std::optional<ProcessRecord> parent = std::nullopt,
                  std::string command = {}) {
        const auto now = std::chrono::system_clock::now().time_since_epoch();
        m_sink.Deliver(TraceEvent{kind, std::move(process), std::move(parent), std::move(command),
                                  static_cast<std::uint64_t>(std::chrono::nanoseconds(now).count())});
    }

    const ProcFs& m_procfs;
    EventSink& m_sink;
    std::optional<std::uint64_t> m_treeRoot;
    std::unordered_map<std::uint64_t, ProcessRecord> m_announced;  // running processes announced, by pid
    std::unordered_map<std::uint64_t, ProcessRecord> m_forked;     // forked, not (yet) announced
    // Processes Reconcile passed over (kernel threads, zombies, outside the tree) by pid, with
    // their uid, so it does not read them again and again.
    std::unordered_map<std::uint64_t, std::string> m_passedOver;
};

}  // namespace KALVO::DevHost::Tool
