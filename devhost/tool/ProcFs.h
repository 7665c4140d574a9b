// ProcFs: this machine's process table as the stand-in host describes processes, read from
// /proc. A process's uid joins the boot id, the pid and the start time, so it stays the same for
// the whole life of the process and differs for a later process given the same pid.
//
// One thread only; every read may find the process already gone.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "devhost/ProcessRecord.h"

namespace KALVO::DevHost::Tool {

// What /proc/PID/stat says of a process.
struct ProcStat {
    std::uint64_t parentPid = 0;
    std::uint64_t startTicks = 0;  // clock ticks after boot
    std::string uid;               // see ProcessUid
    bool runsProgram = false;      // neither a kernel thread nor a zombie
};

// The command line of an argument vector as it lies in memory: the arguments joined by spaces.
std::string CommandLineOf(std::string arguments);

class ProcFs {
public:
    // Reads the boot id, the boot time and the clock tick rate. Throws std::runtime_error when
    // /proc is not there to read.
    ProcFs();

    // The pids of every process now running (not of threads), ascending.
    std::vector<std::uint64_t> ProcessIds() const;
    std::optional<ProcStat> ReadStat(std::uint64_t pid) const;
    // The executable's path, or nothing when unreadable (gone, a kernel thread, not allowed).
    std::optional<std::string> ReadPath(std::uint64_t pid) const;
    // The full record: pid, parent, path, command line (arguments joined by spaces), uid, the
    // real user's id and name, and the start time. Nothing for a kernel thread, a zombie, or a
    // process that is gone; kernel threads are left out because they run no program.
    std::optional<ProcessRecord> ReadProcess(std::uint64_t pid) const;

    // A record from what the kernel said of a process (its start in nanoseconds after boot),
    // without reading /proc: the uid, the user's name and the start time made as above.
    ProcessRecord Record(std::uint64_t pid, std::uint64_t parentPid, std::uint64_t startNs, std::uint64_t userId) const;

private:
    std::string UserName(std::uint64_t userId) const;

    std::string m_bootId;
    std::uint64_t m_bootTime = 0;  // seconds since the epoch
    std::uint64_t m_ticksPerSecond = 100;
    mutable std::unordered_map<std::uint64_t, std::string> m_users;  // names by user id, as looked up
};

}  // namespace KALVO::DevHost::Tool
