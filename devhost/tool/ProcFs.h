// ProcFs: this machine's process table as the stand-in host describes processes, read from
// /proc. A process's uid joins the boot id, the pid and the start time, so it stays the same for
// the whole life of the process and differs for a later process given the same pid.
//
// One thread only; every read may find the process already gone.
#pragma once

#include <pwd.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <unordered_map>
#include <utility>
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
inline std::string CommandLineOf(std::string arguments) {
    while (!arguments.empty() && arguments.back() == '\0') arguments.pop_back();
    std::replace(arguments.begin(), arguments.end(), '\0', ' ');
    return arguments;
}

class ProcFs {
public:
    // Reads the boot id, the boot time and the clock tick rate. Throws std::runtime_error when
    // /proc is not there to read. `root` is /proc but in tests, which lay out a table of their own.
    explicit ProcFs(std::string root = "/proc") : m_root(std::move(root)) {
        std::istringstream(ReadFile(m_root + "/sys/kernel/random/boot_id")) >> m_bootId;
        if (m_bootId.empty())
            throw std::runtime_error("cannot read " + m_root + "/sys/kernel/random/boot_id: is /proc mounted?");
        m_bootTime = NumberAfter(ReadFile(m_root + "/stat"), "\nbtime ").value_or(0);
        if (const long ticks = ::sysconf(_SC_CLK_TCK); ticks > 0)
            m_nsPerTick = 1'000'000'000 / static_cast<std::uint64_t>(ticks);
    }

    // The pids of every process now running (not of threads), ascending.
    std::vector<std::uint64_t> ProcessIds() const {
        std::vector<std::uint64_t> pids;
        for (const auto& entry : std::filesystem::directory_iterator(m_root)) {
            // Only digits: a pid, never empty nor larger than the kernel's pid limit.
            if (const std::string name = entry.path().filename();
                name.find_first_not_of("0123456789") == std::string::npos)
                pids.push_back(std::stoull(name));
        }
        std::sort(pids.begin(), pids.end());  // /proc lists them so; another directory need not
        return pids;
    }

    std::optional<ProcStat> ReadStat(std::uint64_t pid) const {
        const std::string content = ReadFile(ProcPath(pid, "stat"));
        // The command name in parentheses may itself hold spaces and parentheses: the fields
        // resume after the last ')', with the state, the parent, four skipped, the flags, twelve
        // skipped and the start time.
        const std::size_t close = content.rfind(')');
        char state = 0;
        unsigned flags = 0;
        unsigned long long parent = 0;
        unsigned long long start = 0;
        if (close == std::string::npos ||
            std::sscanf(content.c_str() + close + 1,
                        " %c %llu %*s %*s %*s %*s %u %*s %*s %*s %*s %*s %*s %*s %*s %*s %*s %*s %*s %llu", &state,
                        &parent, &flags, &start) != 4)
            return std::nullopt;
        constexpr unsigned KernelThreadFlag = 0x00200000;  // PF_KTHREAD in the flags field
        return ProcStat{.parentPid = parent,
                        .startTicks = start,
                        .uid = ProcessUid(m_bootId, pid, start),
                        .runsProgram = (flags & KernelThreadFlag) == 0 && state != 'Z' && state != 'X'};
    }

    // The executable's path, or nothing when unreadable (gone, a kernel thread, not allowed).
    std::optional<std::string> ReadPath(std::uint64_t pid) const {
        std::error_code error;
        std::string target = std::filesystem::read_symlink(ProcPath(pid, "exe"), error);
        return error ? std::nullopt : std::optional(std::move(target));
    }

    // The full record: pid, parent, path, command line (arguments joined by spaces), uid, the
    // real user's id and name, and the start time. Nothing for a kernel thread, a zombie, or a
    // process that is gone; kernel threads are left out because they run no program.
    std::optional<ProcessRecord> ReadProcess(std::uint64_t pid) const {
        const std::optional<ProcStat> stat = ReadStat(pid);
        if (!stat || !stat->runsProgram) return std::nullopt;
        ProcessRecord record = Record(pid, stat->parentPid, stat->startTicks * m_nsPerTick,
                                      NumberAfter(ReadFile(ProcPath(pid, "status")), "\nUid:"));
        record.path = ReadPath(pid);
        record.commandLine = CommandLineOf(ReadFile(ProcPath(pid, "cmdline")));
        // The process may have ended and its pid been taken while we read: then the parts above
        // may belong to two processes, and the record is dropped like a process already gone.
        const std::optional<ProcStat> again = ReadStat(pid);
        if (!again || again->uid != stat->uid) return std::nullopt;
        return record;
    }

    // A record from what the kernel said of a process (its start in nanoseconds after boot),
    // without reading /proc: the uid, the user's name and the start time (no path nor command line).
    ProcessRecord Record(std::uint64_t pid, std::uint64_t parentPid, std::uint64_t startNs,
                         std::optional<std::uint64_t> userId) const {
        // The kernel turns start_boottime into the clock ticks of /proc/PID/stat the same way.
        return ProcessRecord{.pid = pid,
                             .parentPid = parentPid,
                             .uid = ProcessUid(m_bootId, pid, startNs / m_nsPerTick),
                             .userId = userId,
                             .user = userId ? UserName(*userId) : "",
                             .startTime = m_bootTime + startNs / 1'000'000'000};
    }

private:
    std::string ProcPath(std::uint64_t pid, char const* leaf) const {
        return m_root + "/" + std::to_string(pid) + "/" + leaf;
    }

    // The whole file, empty when it cannot be read. /proc files report a size of 0, so they are
    // read until the end.
    static std::string ReadFile(const std::string& path) {
        std::ostringstream content;
        content << std::ifstream(path, std::ios::binary).rdbuf();
        return content.str();
    }

    // The number that follows `key` in `text` (a line's name in /proc/stat or /proc/PID/status).
    static std::optional<std::uint64_t> NumberAfter(const std::string& text, std::string_view key) {
        const std::size_t at = text.find(key);
        unsigned long long value = 0;
        if (at == std::string::npos || std::sscanf(text.c_str() + at + key.size(), "%llu", &value) != 1)
            return std::nullopt;
        return value;
    }

    std::string UserName(std::uint64_t userId) const {
        const auto [known, added] = m_users.try_emplace(userId);
        // getpwuid is not reentrant, but nothing else in this program looks users up.
        if (const passwd* entry = added ? ::getpwuid(static_cast<uid_t>(userId)) : nullptr; entry && entry->pw_name)
            known->second = entry->pw_name;
        return known->second;
    }

    std::string m_root;
    std::string m_bootId;
    std::uint64_t m_bootTime = 0;                                    // seconds since the epoch
    std::uint64_t m_nsPerTick = 10'000'000;                          // a clock tick of /proc/PID/stat
    mutable std::unordered_map<std::uint64_t, std::string> m_users;  // names by user id, as looked up
};

}  // namespace KALVO::DevHost::Tool
