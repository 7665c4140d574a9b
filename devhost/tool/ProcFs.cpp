#include "devhost/tool/ProcFs.h"

#include <dirent.h>
#include <fcntl.h>
#include <pwd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <memory>
#include <stdexcept>
#include <string_view>
#include <system_error>

namespace KALVO::DevHost::Tool {

namespace {

constexpr unsigned KernelThreadFlag = 0x00200000;  // PF_KTHREAD in the flags field of stat

std::string ProcPath(std::uint64_t pid, char const* leaf) { return "/proc/" + std::to_string(pid) + "/" + leaf; }

// The whole file, or nothing when it cannot be opened or read. /proc files report a size of 0,
// so they are read until the end.
std::optional<std::string> ReadFile(const std::string& path) {
    const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) return std::nullopt;
    std::string content;
    char buffer[8192];
    for (;;) {
        const ssize_t count = ::read(fd, buffer, sizeof buffer);
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) {
            ::close(fd);
            return std::nullopt;
        }
        if (count == 0) break;
        content.append(buffer, static_cast<std::size_t>(count));
    }
    ::close(fd);
    return content;
}

template <class T>
std::optional<T> ParseNumber(std::string_view text) {
    T value{};
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
    return value;
}

// The n-th space-separated field of `text` (0-based).
std::string_view Field(std::string_view text, std::size_t index) {
    std::size_t position = 0;
    for (std::size_t field = 0;; ++field) {
        while (position < text.size() && text[position] == ' ') ++position;
        const std::size_t end = std::min(text.find(' ', position), text.size());
        if (field == index) return text.substr(position, end - position);
        if (end >= text.size()) return {};
        position = end;
    }
}

std::optional<std::uint64_t> RealUserId(std::uint64_t pid) {
    const std::optional<std::string> status = ReadFile(ProcPath(pid, "status"));
    if (!status) return std::nullopt;
    const std::size_t line = status->find("\nUid:");
    if (line == std::string::npos) return std::nullopt;
    std::size_t start = line + 5;
    while (start < status->size() && ((*status)[start] == '\t' || (*status)[start] == ' ')) ++start;
    std::size_t end = start;
    while (end < status->size() && (*status)[end] >= '0' && (*status)[end] <= '9') ++end;
    return ParseNumber<std::uint64_t>(std::string_view(*status).substr(start, end - start));
}

}  // namespace

std::string CommandLineOf(std::string arguments) {
    while (!arguments.empty() && arguments.back() == '\0') arguments.pop_back();
    std::replace(arguments.begin(), arguments.end(), '\0', ' ');
    return arguments;
}

ProcFs::ProcFs() {
    const std::optional<std::string> bootId = ReadFile("/proc/sys/kernel/random/boot_id");
    if (!bootId) throw std::runtime_error("cannot read /proc/sys/kernel/random/boot_id: is /proc mounted?");
    m_bootId = *bootId;
    while (!m_bootId.empty() && (m_bootId.back() == '\n' || m_bootId.back() == ' ')) m_bootId.pop_back();

    if (const std::optional<std::string> stat = ReadFile("/proc/stat")) {
        const std::size_t line = stat->find("\nbtime ");
        if (line != std::string::npos) {
            const std::size_t start = line + 7;
            const std::size_t end = std::min(stat->find('\n', start), stat->size());
            m_bootTime = ParseNumber<std::uint64_t>(std::string_view(*stat).substr(start, end - start)).value_or(0);
        }
    }
    if (const long ticks = ::sysconf(_SC_CLK_TCK); ticks > 0) m_ticksPerSecond = static_cast<std::uint64_t>(ticks);
}

std::vector<std::uint64_t> ProcFs::ProcessIds() const {
    std::vector<std::uint64_t> pids;
    const std::unique_ptr<DIR, int (*)(DIR*)> directory(::opendir("/proc"), ::closedir);
    if (!directory) return pids;
    while (const dirent* entry = ::readdir(directory.get())) {
        if (const auto pid = ParseNumber<std::uint64_t>(entry->d_name)) pids.push_back(*pid);
    }
    std::sort(pids.begin(), pids.end());
    return pids;
}

std::optional<ProcStat> ProcFs::ReadStat(std::uint64_t pid) const {
    const std::optional<std::string> content = ReadFile(ProcPath(pid, "stat"));
    if (!content) return std::nullopt;
    // The command name in parentheses may itself hold spaces and parentheses: the fields
    // resume after the last ')'.
    const std::size_t close = content->rfind(')');
    if (close == std::string::npos) return std::nullopt;
    const std::string_view rest = std::string_view(*content).substr(close + 1);
    // rest: " state ppid pgrp session tty tpgid flags minflt ... starttime(20th after ')')"
    ProcStat stat;
    stat.pid = pid;
    const std::string_view state = Field(rest, 0);
    if (state.size() != 1) return std::nullopt;
    stat.state = state[0];
    const auto parent = ParseNumber<std::uint64_t>(Field(rest, 1));
    const auto flags = ParseNumber<unsigned>(Field(rest, 6));
    const auto start = ParseNumber<std::uint64_t>(Field(rest, 19));
    if (!parent || !flags || !start) return std::nullopt;
    stat.parentPid = *parent;
    stat.kernelThread = (*flags & KernelThreadFlag) != 0;
    stat.startTicks = *start;
    return stat;
}

std::optional<std::string> ProcFs::ReadPath(std::uint64_t pid) const {
    const std::string link = ProcPath(pid, "exe");
    std::string target(256, '\0');
    for (;;) {
        const ssize_t length = ::readlink(link.c_str(), target.data(), target.size());
        if (length < 0) return std::nullopt;
        if (static_cast<std::size_t>(length) < target.size()) {
            target.resize(static_cast<std::size_t>(length));
            return target;
        }
        if (target.size() >= (1u << 20)) return std::nullopt;
        target.resize(target.size() * 2);
    }
}

std::optional<ProcessRecord> ProcFs::ReadProcess(std::uint64_t pid) const {
    const std::optional<ProcStat> stat = ReadStat(pid);
    if (!stat || stat->kernelThread || stat->state == 'Z' || stat->state == 'X') return std::nullopt;

    ProcessRecord record;
    record.pid = pid;
    record.parentPid = stat->parentPid;
    record.path = ReadPath(pid);
    if (std::optional<std::string> arguments = ReadFile(ProcPath(pid, "cmdline")))
        record.commandLine = CommandLineOf(std::move(*arguments));
    record.uid = UidOf(*stat);
    record.userId = RealUserId(pid);
    if (record.userId) record.user = UserName(*record.userId);
    record.startTime = m_bootTime + stat->startTicks / m_ticksPerSecond;

    // The process may have ended and its pid been taken while we read: then the parts above
    // may belong to two processes, and the record is dropped like a process already gone.
    const std::optional<ProcStat> again = ReadStat(pid);
    if (!again || again->startTicks != stat->startTicks) return std::nullopt;
    return record;
}

ProcessRecord ProcFs::Record(std::uint64_t pid, std::uint64_t parentPid, std::uint64_t startNs,
                             std::uint64_t userId) const {
    // The kernel turns start_boottime into the clock ticks of /proc/PID/stat the same way.
    const std::uint64_t ticks = startNs / (1'000'000'000 / m_ticksPerSecond);
    return ProcessRecord{.pid = pid, .parentPid = parentPid, .uid = ProcessUid(m_bootId, pid, ticks), .userId = userId,
                         .user = UserName(userId), .startTime = m_bootTime + ticks / m_ticksPerSecond};
}

std::string ProcFs::UidOf(const ProcStat& stat) const {
    return ProcessUid(m_bootId, stat.pid, stat.startTicks);
}

std::string ProcFs::UserName(std::uint64_t userId) const {
    std::lock_guard lock(m_usersMutex);
    if (const auto known = m_users.find(userId); known != m_users.end()) return known->second;
    std::string name;
    passwd entry{};
    passwd* found = nullptr;
    std::vector<char> buffer(16384);
    if (::getpwuid_r(static_cast<uid_t>(userId), &entry, buffer.data(), buffer.size(), &found) == 0 && found &&
        found->pw_name) {
        name = found->pw_name;
    }
    m_users.emplace(userId, name);
    return name;
}

}  // namespace KALVO::DevHost::Tool
