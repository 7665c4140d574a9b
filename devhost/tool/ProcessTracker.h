// ProcessTracker: turns what is known of this machine's processes (a scan of /proc, the
// kernel's records of execs, forks and exits, or successive scans) into the host's process events: every running process once as "exists", each new program as "create"
// with its parent's record, the end of each process it announced as "terminate", and the lines
// shells received as "shell".
//
// It remembers the processes it announced, so that an ending carries the same record (and
// uid) as the announcement even though the process is gone from /proc by then. Optionally
// limited to one process and its descendants (a build, a test run). One thread only.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <unordered_map>

#include "devhost/tool/EventSink.h"
#include "devhost/tool/ProcFs.h"

namespace KALVO::DevHost::Tool {

class ProcessTracker {
public:
    // `procfs` and `sink` are borrowed and must outlive the tracker. With `treeRoot`, only that
    // process and its descendants are announced.
    ProcessTracker(const ProcFs& procfs, EventSink& sink, std::optional<std::uint64_t> treeRoot);

    // Announces every process running now as existing; returns how many.
    std::size_t ScanExisting();
    // A process started a new program: announced as created by its parent, with the parent's
    // record as this tracker knows it (else as /proc has it).
    void OnExec(ProcessRecord record);
    // A new process running its parent's program: known for its children and lines, not announced.
    void OnFork(ProcessRecord record);
    // The process `pid` ended: its termination is announced if it was announced itself.
    void OnExit(std::uint64_t pid);
    // A line the shell `pid` received.
    void OnShellLine(std::uint64_t pid, std::string line);
    // Compares /proc with what was announced: new processes and programs replaced in place
    // (a new executable path) are announced as created, vanished ones as terminated.
    void Reconcile();

private:
    bool InTree(std::uint64_t pid, std::uint64_t parentPid) const;
    ProcessRecord ParentRecord(std::uint64_t parentPid) const;
    // Delivers the event, stamped with the time.
    void Announce(EventKind kind, ProcessRecord process, std::optional<ProcessRecord> parent = std::nullopt,
                  std::string command = {});

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
