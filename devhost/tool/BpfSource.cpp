// The BPF source: this machine's process events and shell input from BPF programs in the kernel
// (bpf/LiveEvents.bpf.c, loaded through its libbpf skeleton): each new program with its path
// and arguments read at the exec itself, forks and exits, and every line a shell's line editor
// returns (readline in bash, zle in zsh). Needs root, a kernel with BTF and a build with
// libbpf; where any is missing, opening throws SourceUnavailable. The records are decoded in
// KernelRecord.cpp.
#include "devhost/tool/LiveSource.h"

#include <stdexcept>

#ifndef KALVO_BPF

namespace KALVO::DevHost::Tool {

std::unique_ptr<KernelSource> OpenBpfSource(const ProcFs&) {
    throw std::runtime_error("this build has no BPF support (libbpf was not found)");
}

}  // namespace KALVO::DevHost::Tool

#else

#include <bpf/libbpf.h>
#include <fcntl.h>
#include <fmt/format.h>
#include <gelf.h>
#include <glob.h>
#include <poll.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <set>

#include "LiveEvents.skel.h"
#include "devhost/tool/Console.h"
#include "devhost/tool/DeliveryLatency.h"
#include "devhost/tool/KernelRecord.h"
#include "devhost/tool/bpf/LiveEvents.h"

namespace KALVO::DevHost::Tool {

namespace {

// The longest pause between looks at the ring while records keep coming: the delay of a
// record in a storm, which the threshold's wake-up cuts short. Every pause is a sleep and a
// wake-up, which on a virtual machine costs tens of microseconds of CPU: fewer, longer pauses
// make a storm cheaper, at the price of its delay.
constexpr std::chrono::microseconds MaxPoll{32'000};
constexpr std::chrono::microseconds FirstPoll{250};

// The address `name` has in the ELF file `path` (its symbol's value), if it has one.
std::optional<std::uint64_t> SymbolAddress(const std::string& path, std::string_view name) {
    const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) return std::nullopt;
    std::optional<std::uint64_t> address;
    ::elf_version(EV_CURRENT);
    Elf* elf = ::elf_begin(fd, ELF_C_READ, nullptr);
    for (Elf_Scn* section = elf ? ::elf_nextscn(elf, nullptr) : nullptr; section && !address;
         section = ::elf_nextscn(elf, section)) {
        GElf_Shdr header{};
        if (!::gelf_getshdr(section, &header) || (header.sh_type != SHT_DYNSYM && header.sh_type != SHT_SYMTAB))
            continue;
        Elf_Data* data = ::elf_getdata(section, nullptr);
        const std::size_t count = header.sh_entsize ? header.sh_size / header.sh_entsize : 0;
        for (std::size_t index = 0; data && index < count && !address; ++index) {
            GElf_Sym symbol{};
            if (!::gelf_getsym(data, static_cast<int>(index), &symbol) || symbol.st_value == 0) continue;
            char const* symbolName = ::elf_strptr(elf, header.sh_link, symbol.st_name);
            if (symbolName && name == symbolName) address = symbol.st_value;
        }
    }
    if (elf) ::elf_end(elf);
    ::close(fd);
    return address;
}

// The kernel's encoding of a device number, as the kernel side reads it from a superblock.
std::uint64_t KernelDevice(dev_t device) { return (std::uint64_t{major(device)} << 20) | minor(device); }

std::vector<std::string> Glob(char const* pattern) {
    std::vector<std::string> paths;
    glob_t found{};
    if (::glob(pattern, 0, nullptr, &found) == 0) paths.assign(found.gl_pathv, found.gl_pathv + found.gl_pathc);
    ::globfree(&found);
    return paths;
}

class BpfSource final : public KernelSource {
public:
    // Loads and attaches the programs, and the probes on the shells' line editors.
    explicit BpfSource(const ProcFs& procfs) : m_procfs(procfs) {
        libbpf_set_print(nullptr);  // the reason for a failure is told in one line
        m_skeleton.reset(live_events__open_and_load());
        // libbpf sets errno when it fails.
        if (!m_skeleton) throw SystemFailure("loading the BPF programs");
        if (live_events__attach(m_skeleton.get()) != 0) throw SystemFailure("attaching the BPF programs");
        m_ring.reset(ring_buffer__new(bpf_map__fd(m_skeleton->maps.events), &BpfSource::OnRecord, this, nullptr));
        if (!m_ring) throw SystemFailure("opening the ring buffer");
        WatchShells();
    }

    void Receive(int timeoutMs, ProcessTracker& tracker) override {
        m_tracker = &tracker;
        CountLostExecs();
        // Asleep until a record comes while this reader is not looking (every such record forces
        // a wake-up, as does one that fills the ring past the threshold): a lone record is read at
        // once. Since more may follow (an exec follows its fork), the ring is then looked at after
        // 0.25, 0.5, 1... milliseconds up to MaxPoll, with wake-ups off below the threshold, until
        // a look finds nothing: a storm is read in batches of many records, not one wake-up a
        // record (each costs more than an exec's work). On a busy machine records may never stop
        // coming: the looks end by `timeoutMs` anyway, so that a stop request is seen, and go on
        // where they were at the next call.
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
        if (!m_looking) {
            if (Take(timeoutMs) <= 0) return;
            m_looking = true;
            m_nextLook = FirstPoll;
            m_skeleton->bss->reader_polling = 1;
        }
        while (std::chrono::steady_clock::now() < deadline) {
            CountLostExecs();
            // The ring's epoll file is ready once a wake-up came (past the threshold).
            pollfd ring{ring_buffer__epoll_fd(m_ring.get()), POLLIN, 0};
            const timespec timeout{0, std::chrono::nanoseconds(m_nextLook).count()};
            ::ppoll(&ring, 1, &timeout, nullptr);
            if (Take(0) <= 0) {
                m_looking = false;
                m_skeleton->bss->reader_polling = 0;
                // Records that read the flag before it was cleared woke nobody: taken here, so
                // that the reader has caught up and the next record wakes it.
                ring_buffer__consume(m_ring.get());
                return;
            }
            m_nextLook = std::min(2 * m_nextLook, MaxPoll);
        }
        // Still looking: what came since the last look (all there is, at a stop).
        ring_buffer__consume(m_ring.get());
    }

    void NoteStatistics() const override {
        if (const std::string loss = Loss(); !loss.empty()) Warn(loss);
        if (m_waitingZshPrompts != 0)
            Note(fmt::format("possibly missed: the line typed at each of {} zsh prompt(s) already waiting at the start",
                             m_waitingZshPrompts));
        if (m_truncatedArguments + m_truncatedLines != 0)
            Note(
                fmt::format("truncated: {} creation(s) whose command line or path was longer than read at the exec and "
                            "ended before /proc could complete it, {} shell line(s) longer than 64 KiB",
                            m_truncatedArguments, m_truncatedLines));
        if (m_malformed != 0) Warn(fmt::format("{} malformed record(s) from the kernel ignored", m_malformed));
        if (const std::string latency = m_latency.Summary(); !latency.empty())
            Note("creations from the kernel's exec to the sensor: " + latency);
    }

    std::string Loss() const override {
        const auto& lost = m_skeleton->bss->losses;
        if (lost[LIVE_EXEC] + lost[LIVE_FORK] + lost[LIVE_EXIT] + lost[LIVE_LINE] == 0) return {};
        return fmt::format(
            "the kernel could not hand over {} exec, {} fork, {} exit and {} shell line event(s); "
            "lost creations of the processes followed: {}",
            lost[LIVE_EXEC], lost[LIVE_FORK], lost[LIVE_EXIT], lost[LIVE_LINE],
            m_lostFollowedExecs + m_skeleton->bss->unattributed_exec_losses);
    }

private:
    // Waits up to `timeoutMs` for a wake-up (and clears it, so that the next wait sleeps), then
    // hands over every record there is, woken for or not. Returns how many.
    int Take(int timeoutMs) {
        const int woken = ring_buffer__poll(m_ring.get(), timeoutMs);
        return std::max(woken, 0) + ring_buffer__consume(m_ring.get());
    }

    // Fills the map of shells and attaches to their line editors: readline in bash (which carries
    // its own copy) and in the library other shells link, zle in zsh. Lines of programs that
    // are not shells (python, sqlite3, gdb link the same readline) are left out in the kernel.
    void WatchShells() {
        std::vector<std::string> shells = {"/bin/bash", "/bin/zsh"};
        std::ifstream listed("/etc/shells");
        for (std::string line; std::getline(listed, line);)
            if (line.starts_with('/')) shells.push_back(line);
        for (const std::string& shell : shells) {
            struct stat status {};
            if (::stat(shell.c_str(), &status) != 0) continue;
            const live_file_key key{KernelDevice(status.st_dev), status.st_ino};
            const std::uint8_t yes = 1;
            bpf_map__update_elem(m_skeleton->maps.shells, &key, sizeof key, &yes, sizeof yes, BPF_ANY);
        }

        std::vector<std::string> editors = {"/bin/bash"};
        for (const std::string& library : Glob("/usr/lib/*/libreadline.so.*")) editors.push_back(library);
        std::string watched;
        std::set<std::pair<dev_t, ino_t>> attached;  // a file reached by two names is watched once
        for (const std::string& file : editors) {
            struct stat status {};
            if (::stat(file.c_str(), &status) != 0 || !attached.emplace(status.st_dev, status.st_ino).second) continue;
            // The return first, then the start that arms it, then the acceptance that covers calls
            // whose start was not seen: a call is then seen by exactly one of the two.
            if (!Attach(m_skeleton->progs.on_readline, file, "readline", true, 0)) continue;
            Attach(m_skeleton->progs.on_readline_entry, file, "readline", false, 0);
            const std::optional<std::uint64_t> accept = SymbolAddress(file, "rl_newline");
            const std::optional<std::uint64_t> buffer = SymbolAddress(file, "rl_line_buffer");
            if (accept && buffer) Attach(m_skeleton->progs.on_accept, file, "rl_newline", false, *buffer - *accept);
            watched += (watched.empty() ? "" : ", ") + file;
        }
        bool zle = false;
        for (const std::string& module : Glob("/usr/lib/*/zsh/*/zsh/zle.so")) {
            if (!Attach(m_skeleton->progs.on_zleread, module, "zleread", true, 0)) continue;
            zle = true;
            watched += (watched.empty() ? "" : ", ") + module;
        }
        // A zsh already in its line editor returns its line unseen: counted as possibly missed.
        for (const std::uint64_t pid : zle ? m_procfs.ProcessIds() : std::vector<std::uint64_t>{}) {
            const std::optional<std::string> path = m_procfs.ReadPath(pid);
            if (path && std::filesystem::path(*path).filename().string().starts_with("zsh")) ++m_waitingZshPrompts;
        }
        description =
            fmt::format("process events and shell lines from BPF programs in the kernel (line editors watched in {})",
                        watched.empty() ? "no shell" : watched);
    }

    bool Attach(bpf_program* program, const std::string& file, char const* function, bool atReturn,
                std::uint64_t cookie) {
        LIBBPF_OPTS(bpf_uprobe_opts, options, .bpf_cookie = cookie, .retprobe = atReturn, .func_name = function);
        bpf_link* link = bpf_program__attach_uprobe_opts(program, -1, file.c_str(), 0, &options);
        if (!link) return false;
        m_links.emplace_back(link, bpf_link__destroy);
        return true;
    }

    // Takes the kernel's list of execs it could not hand over and counts those of the processes
    // followed. Before the records that came after them, so a parent still counts as followed.
    void CountLostExecs() {
        // The counter is in memory shared with the kernel: free to read, unlike a walk of the map.
        const std::uint64_t losses = m_skeleton->bss->losses[LIVE_EXEC];
        if (losses == m_execLossesSeen) return;
        m_execLossesSeen = losses;
        bpf_map* lost = m_skeleton->maps.lost_execs;
        std::uint32_t pid = 0;
        while (bpf_map__get_next_key(lost, nullptr, &pid, sizeof pid) == 0) {
            std::uint32_t parent = 0;
            if (bpf_map__lookup_and_delete_elem(lost, &pid, sizeof pid, &parent, sizeof parent, 0) != 0) break;
            if (m_tracker->Follows(pid, parent)) ++m_lostFollowedExecs;
        }
    }

    static int OnRecord(void* context, void* data, std::size_t size) {
        static_cast<BpfSource*>(context)->Handle(std::string_view(static_cast<const char*>(data), size));
        return 0;
    }

    void Handle(std::string_view bytes) {
        std::optional<KernelEvent> event = DecodeKernelRecord(bytes, m_procfs);
        if (!event) {
            ++m_malformed;
            return;
        }
        switch (event->kind) {
        case KernelEventKind::Exit: return m_tracker->OnExit(event->process.pid);
        case KernelEventKind::Fork: return m_tracker->OnFork(std::move(event->process));
        case KernelEventKind::Line:
            m_truncatedLines += event->incomplete;
            return m_tracker->OnShellLine(event->process.pid, std::move(event->line));
        case KernelEventKind::Exec:
            m_truncatedArguments += event->incomplete;
            m_tracker->OnExec(std::move(event->process));
            m_latency.Delivered(event->kernelTimeNs);
            return;
        }
    }

    const ProcFs& m_procfs;
    ProcessTracker* m_tracker = nullptr;  // the one Receive hands records to
    // Declared so that they are destroyed in this order: ring buffer, probes, programs.
    std::unique_ptr<live_events, decltype(&live_events__destroy)> m_skeleton{nullptr, live_events__destroy};
    std::vector<std::unique_ptr<bpf_link, decltype(&bpf_link__destroy)>> m_links;
    std::unique_ptr<ring_buffer, decltype(&ring_buffer__free)> m_ring{nullptr, ring_buffer__free};
    bool m_looking = false;                           // records kept coming at the last look
    std::chrono::microseconds m_nextLook{FirstPoll};  // the pause before the next look, while looking
    std::uint64_t m_truncatedArguments = 0;           // creations delivered with an incomplete command line or path
    std::uint64_t m_truncatedLines = 0;               // shell lines delivered incomplete
    std::uint64_t m_malformed = 0;                    // records that could not be decoded
    std::uint64_t m_lostFollowedExecs = 0;            // execs not handed over, of processes the tracker follows
    std::uint64_t m_execLossesSeen = 0;               // the kernel's count of lost execs when the map was last taken
    std::uint64_t m_waitingZshPrompts = 0;            // zsh processes running when the probes were attached
    DeliveryLatency m_latency;
};

}  // namespace

std::unique_ptr<KernelSource> OpenBpfSource(const ProcFs& procfs) { return std::make_unique<BpfSource>(procfs); }

}  // namespace KALVO::DevHost::Tool

#endif
