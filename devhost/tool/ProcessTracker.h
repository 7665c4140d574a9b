// ProcessTracker: turns what is known of this machine's processes (a scan of /proc, the
// kernel's exec and exit notices, successive scans, or the BPF source's records) into the
// host's process events: every running process once as "exists", each new program as "create"
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
    // The process `pid` started a new program: announced as created by its parent.
    void OnExec(std::uint64_t pid);
    // The process `pid` ended: its termination is announced if it was announced itself.
    void OnExit(std::uint64_t pid);
    // The BPF source's events, which carry the records themselves, so /proc is read only to
    // fill a gap. A new program, announced as created by its parent as this tracker knows it:
    void OnExec(ProcessRecord record);
    // A new process running its parent's program: known for its children and lines, not announced.
    void OnFork(ProcessRecord record);
    // A line the shell `pid` received.
    void OnShellLine(std::uint64_t pid, const std::string& line);
    // Compares /proc with what was announced: new processes and programs replaced in place
    // (a new executable path) are announced as created, vanished ones as terminated.
    void Reconcile();

    // New programs that ended before their record could be read, so were never announced.
    std::uint64_t Missed() const noexcept { return m_missed; }

private:
    bool InTree(std::uint64_t pid, std::uint64_t parentPid) const;
    // The record of `pid`: from /proc first, or (tableFirst) from the processes known first.
    ProcessRecord ParentRecord(std::uint64_t parentPid, bool tableFirst = false) const;
    void Announce(EventKind kind, const ProcessRecord& process, std::optional<ProcessRecord> parent = std::nullopt);
    void Announce(TraceEvent& event);  // stamps its time

    const ProcFs& m_procfs;
    EventSink& m_sink;
    std::optional<std::uint64_t> m_treeRoot;
    std::unordered_map<std::uint64_t, ProcessRecord> m_announced;  // running processes announced, by pid
    std::unordered_map<std::uint64_t, ProcessRecord> m_forked;     // BPF: forked, not (yet) announced
    // Processes passed over (kernel threads, zombies, outside the tree) by pid, with their start
    // ticks, so Reconcile does not read them again and again.
    std::unordered_map<std::uint64_t, std::uint64_t> m_passedOver;
    std::uint64_t m_missed = 0;
};

}  // namespace KALVO::DevHost::Tool
