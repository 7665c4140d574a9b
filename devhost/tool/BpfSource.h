// BpfSource: this machine's process events and shell input from BPF programs in the kernel
// (bpf/LiveEvents.bpf.c, loaded through its libbpf skeleton): each new program with its path
// and arguments read at the exec itself, forks and exits, and every line readline returns in
// bash (or in any shell through libreadline). Needs root, a kernel with BTF and a build with
// libbpf; where any is missing, opening throws BpfUnavailable and the caller uses another source.
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>

namespace KALVO::DevHost::Tool {

class BpfUnavailable : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

struct BpfEvent {
    enum class Type { Exec, Fork, Exit, Line };  // also the order of the loss counters
    Type type = Type::Exec;
    std::uint64_t pid = 0;
    std::uint64_t parentPid = 0;
    std::uint64_t userId = 0;
    std::uint64_t startNs = 0;    // the process's start in nanoseconds after boot
    std::string path;             // Exec: the executable's path
    std::string arguments;        // Exec: the argument vector, NUL-separated; Line: the line
    bool truncated = false;       // Exec: path or arguments incomplete; Line: the line was longer
};

class BpfSource {
public:
    static constexpr std::size_t Kinds = 4;

    // Loads and attaches the programs. Throws BpfUnavailable saying why not.
    BpfSource();
    ~BpfSource();

    BpfSource(const BpfSource&) = delete;  // owns the loaded programs
    BpfSource& operator=(const BpfSource&) = delete;

    // The shells whose readline is watched, for the user.
    const std::string& Shells() const noexcept { return m_shells; }

    // Waits up to `timeoutMs` for events and hands each to `handle`, on this thread.
    void Receive(int timeoutMs, const std::function<void(const BpfEvent&)>& handle);

    // Events the kernel side could not hand over (ring buffer full, a failed read), by type.
    std::array<std::uint64_t, Kinds> Losses() const noexcept;

private:
    struct Loaded;
    std::unique_ptr<Loaded> m_loaded;
    std::string m_shells;
};

}  // namespace KALVO::DevHost::Tool
