#include "devhost/tool/ProcFs.h"

#include <dirent.h>
#include <pwd.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <sstream>
#include <stdexcept>

namespace KALVO::DevHost::Tool {

namespace {

constexpr unsigned KernelThreadFlag = 0x00200000;  // PF_KTHREAD in the flags field of stat

std::string ProcPath(std::uint64_t pid, char const* leaf) { return "/proc/" + std::to_string(pid) + "/" + leaf; }

// The whole file, empty when it cannot be read. /proc files report a size of 0, so they are
// read until the end.
std::string ReadFile(const std::string& path) {
    std::ostringstream content;
    content << std::ifstream(path, std::ios::binary).rdbuf();
    return content.str();
}

// The number that follows `key` in `text` (a line's name in /proc/stat or /proc/PID/status).
std::optional<std::uint64_t> NumberAfter(const std::string& text, char const* key) {
    const std::size_t at = text.find(key);
    unsigned long long value = 0;
    if (at == std::string::npos || std::sscanf(text.c_str() + at + std::strlen(key), "%llu", &value) != 1)
        return std::nullopt;
    return value;
}

}  // namespace

std::string CommandLineOf(std::string arguments) {
    while (!arguments.empty() && arguments.back() == '\0') arguments.pop_back();
    std::replace(arguments.begin(), arguments.end(), '\0', ' ');
    return arguments;
}

ProcFs::ProcFs() {
    const std::string bootId = ReadFile("/proc/sys/kernel/random/boot_id");
    m_bootId = bootId.substr(0, bootId.find_first_of("\n "));
    if (m_bootId.empty()) throw std::runtime_error("cannot read /proc/sys/kernel/random/boot_id: is /proc mounted?");
    m_bootTime = NumberAfter(ReadFile("/proc/stat"), "\nbtime ").value_or(0);
    if (const long ticks = ::sysconf(_SC_CLK_TCK); ticks > 0) m_ticksPerSecond = static_cast<std::uint64_t>(ticks);
}

std::vector<std::uint64_t> ProcFs::ProcessIds() const {
    std::vector<std::uint64_t> pids;
    const std::unique_ptr<DIR, int (*)(DIR*)> directory(::opendir("/proc"), ::closedir);
    if (!directory) return pids;
    while (const dirent* entry = ::readdir(directory.get())) {
        const char* end = entry->d_name + std::strlen(entry->d_name);
        std::uint64_t pid = 0;
        if (std::from_chars(entry->d_name, end, pid).ptr == end) pids.push_back(pid);
    }
    std::sort(pids.begin(), pids.end());
    return pids;
}

std::optional<ProcStat> ProcFs::ReadStat(std::uint64_t pid) const {
    const std::string content = ReadFile(ProcPath(pid, "stat"));
    // The command name in parentheses may itself hold spaces and parentheses: the fields
    // resume after the last ')', with the state, the parent, four skipped, the flags, twelve
    // skipped and the start time.
    const std::size_t close = content.rfind(')');
    char state = 0;
    unsigned flags = 0;
    unsigned long long parent = 0, start = 0;
    if (close == std::string::npos ||
        std::sscanf(content.c_str() + close + 1,
                    " %c %llu %*s %*s %*s %*s %u %*s %*s %*s %*s %*s %*s %*s %*s %*s %*s %*s %*s %llu", &state,
                    &parent, &flags, &start) != 4)
        return std::nullopt;
    return ProcStat{.parentPid = parent, .startTicks = start, .uid = ProcessUid(m_bootId, pid, start),
                    .runsProgram = (flags & KernelThreadFlag) == 0 && state != 'Z' && state != 'X'};
}

std::optional<std::string> ProcFs::ReadPath(std::uint64_t pid) const {
    std::error_code error;
    std::string target = std::filesystem::read_symlink(ProcPath(pid, "exe"), error);
    if (error) return std::nullopt;
    return target;
}

std::optional<ProcessRecord> ProcFs::ReadProcess(std::uint64_t pid) const {
    const std::optional<ProcStat> stat = ReadStat(pid);
    if (!stat || !stat->runsProgram) return std::nullopt;
    ProcessRecord record{.pid = pid, .parentPid = stat->parentPid, .path = ReadPath(pid),
                         .commandLine = CommandLineOf(ReadFile(ProcPath(pid, "cmdline"))), .uid = stat->uid,
                         .userId = NumberAfter(ReadFile(ProcPath(pid, "status")), "\nUid:"),
                         .startTime = m_bootTime + stat->startTicks / m_ticksPerSecond};
    if (record.userId) record.user = UserName(*record.userId);
    // The process may have ended and its pid been taken while we read: then the parts above
    // may belong to two processes, and the record is dropped like a process already gone.
    const std::optional<ProcStat> again = ReadStat(pid);
    if (!again || again->uid != stat->uid) return std::nullopt;
    return record;
}

ProcessRecord ProcFs::Record(std::uint64_t pid, std::uint64_t parentPid, std::uint64_t startNs,
                             std::uint64_t userId) const {
    // The kernel turns start_boottime into the clock ticks of /proc/PID/stat the same way.
    const std::uint64_t ticks = startNs / (1'000'000'000 / m_ticksPerSecond);
    return ProcessRecord{.pid = pid, .parentPid = parentPid, .uid = ProcessUid(m_bootId, pid, ticks), .userId = userId,
                         .user = UserName(userId), .startTime = m_bootTime + ticks / m_ticksPerSecond};
}

std::string ProcFs::UserName(std::uint64_t userId) const {
    const auto [known, added] = m_users.try_emplace(userId);
    if (!added) return known->second;
    passwd entry{};
    passwd* found = nullptr;
    std::vector<char> buffer(16384);
    if (::getpwuid_r(static_cast<uid_t>(userId), &entry, buffer.data(), buffer.size(), &found) == 0 && found &&
        found->pw_name)
        known->second = found->pw_name;
    return known->second;
}

}  // namespace KALVO::DevHost::Tool
