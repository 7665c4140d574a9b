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
#include <map>
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
        m_known[record.pid] = {std::move(record), false};
    }

    // The process `pid` ended: its termination is announced if it was announced itself.
    void OnExit(std::uint64_t pid) {
        if (auto known = m_known.extract(pid); known && known.mapped().announced)
            Announce(EventKind::Terminate, std::move(known.mapped().record));
    }

    // A line the shell `pid` received.
    void OnShellLine(std::uint64_t pid, std::string line) {
        ProcessRecord shell = ParentRecord(pid);
        if (InTree(pid, shell.parentPid)) Announce(EventKind::Shell, std::move(shell), std::move(line));
    }

    // Whether the process `pid`, child of `parentPid`, is one this tracker follows (for what
    // the kernel could not hand over).
    bool Follows(std::uint64_t pid, std::uint64_t parentPid) const { return InTree(pid, parentPid); }

    // Compares /proc with what was announced: new processes and programs replaced in place (a
    // new executable path) are announced as `kind`, vanished ones as terminated. Returns how many
    // processes are known now: on the first call (kind Exists), how many were announced as running.
    std::size_t Reconcile(EventKind kind = EventKind::Create) {
        std::unordered_set<std::uint64_t> present;
        for (const std::uint64_t pid : m_procfs.ProcessIds()) {
            const std::optional<ProcStat> stat = m_procfs.ReadStat(pid);
            if (!stat) continue;
            present.insert(pid);
            if (const auto known = m_known.find(pid); known != m_known.end()) {
                if (known->second.record.uid != stat->uid)
                    OnExit(pid);  // the pid was taken by a new process since the last look
                else if (m_procfs.ReadPath(pid) == known->second.record.path)
                    continue;  // the same process, still running the same program
            }
            // Kernel threads, zombies and processes outside the tree are told apart by their stat alone.
            if (!stat->runsProgram || !InTree(pid, stat->parentPid)) continue;
            if (std::optional<ProcessRecord> record = m_procfs.ReadProcess(pid)) Adopt(kind, std::move(*record));
        }
        // In pid order; the iterator moves on before OnExit erases the entry it was at.
        for (auto known = m_known.begin(); known != m_known.end();)
            if (const std::uint64_t pid = (known++)->first; !present.contains(pid)) OnExit(pid);
        return m_known.size();
    }

private:
    bool InTree(std::uint64_t pid, std::uint64_t parentPid) const {
        // A process known stays a member, whatever became of its parent.
        if (!m_treeRoot || pid == *m_treeRoot || m_known.contains(pid)) return true;
        // Deeper than any real process tree; a bound so a cycle seen in a changing /proc cannot loop.
        std::uint64_t ancestor = parentPid;
        for (int depth = 0; depth < 512; ++depth) {
            // Under a tree filter only members of the tree are ever known.
            if (ancestor == *m_treeRoot || m_known.contains(ancestor)) return true;
            const std::optional<ProcStat> stat = ancestor > 1 ? m_procfs.ReadStat(ancestor) : std::nullopt;
            if (!stat) return false;
            ancestor = stat->parentPid;
        }
        return false;
    }

    ProcessRecord ParentRecord(std::uint64_t parentPid) const {
        if (const auto known = m_known.find(parentPid); known != m_known.end()) return known->second.record;
        if (std::optional<ProcessRecord> current = m_procfs.ReadProcess(parentPid)) return std::move(*current);
        // A kernel thread (which starts helper programs) or a parent already gone: what is known.
        const std::optional<ProcStat> stat = m_procfs.ReadStat(parentPid);
        return {.pid = parentPid, .parentPid = stat ? stat->parentPid : 0, .uid = stat ? stat->uid : ""};
    }

    // Announces a process found (Exists) or a new program (Create), and keeps its record for its end.
    void Adopt(EventKind kind, ProcessRecord record) {
        m_known[record.pid] = {record, true};
        Announce(kind, std::move(record));
    }

    // Delivers the event, stamped with the time; a creation with its parent's record.
    void Announce(EventKind kind, ProcessRecord process, std::string command = {}) {
        std::optional<ProcessRecord> parent;
        if (kind == EventKind::Create) parent = ParentRecord(process.parentPid);
        const auto now = std::chrono::system_clock::now().time_since_epoch() / std::chrono::nanoseconds(1);
        m_sink.Deliver(TraceEvent{kind, std::move(process), std::move(parent), std::move(command),
                                  static_cast<std::uint64_t>(now)});
    }

    const ProcFs& m_procfs;
    EventSink& m_sink;
    std::optional<std::uint64_t> m_treeRoot;
    // The processes known, by pid: those announced (whose end is announced too), and those forked
    // and not (yet) announced, known for their children and lines.
    struct Known {
        ProcessRecord record;
        bool announced = false;  // forked processes are known, for their children, but not announced
    };
    std::map<std::uint64_t, Known> m_known;
};

}  // namespace KALVO::DevHost::Tool
