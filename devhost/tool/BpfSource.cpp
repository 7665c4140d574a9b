// The BPF source: this machine's process events and shell input from BPF programs in the kernel
// (bpf/LiveEvents.bpf.c, loaded through its libbpf skeleton): each new program with its path
// and arguments read at the exec itself, forks and exits, and every line readline returns in
// bash (or in any shell through libreadline). Needs root, a kernel with BTF and a build with
// libbpf; where any is missing, opening throws SourceUnavailable.
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
#include <fmt/format.h>
#include <glob.h>
#include <sys/stat.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <set>
#include <thread>
#include <tuple>

#include "LiveEvents.skel.h"
#include "devhost/tool/Console.h"
#include "devhost/tool/bpf/LiveEvents.h"

namespace KALVO::DevHost::Tool {

namespace {

// The path's names arrive leaf first, each ending in a NUL.
std::string JoinPath(std::string_view names) {
    std::string path;
    for (std::size_t start = 0, end = 0; start < names.size(); start = end + 1) {
        end = std::min(names.find('\0', start), names.size());
        path.insert(0, "/" + std::string(names.substr(start, end - start)));
    }
    return path.empty() ? "/" : path;
}

class BpfSource final : public KernelSource {
public:
    // Loads and attaches the programs, and a uretprobe on readline wherever it lives: bash
    // carries its own copy; other shells link the library.
    explicit BpfSource(const ProcFs& procfs) : m_procfs(procfs) {
        libbpf_set_print(nullptr);  // the reason for a failure is told in one line
        m_skeleton.reset(live_events__open_and_load());
        // libbpf sets errno when it fails.
        if (!m_skeleton) throw SystemFailure("loading the BPF programs");
        if (live_events__attach(m_skeleton.get()) != 0) throw SystemFailure("attaching the BPF programs");

        std::vector<std::string> files = {"/bin/bash"};
        glob_t found{};
        if (::glob("/usr/lib/*/libreadline.so.*", 0, nullptr, &found) == 0)
            files.insert(files.end(), found.gl_pathv, found.gl_pathv + found.gl_pathc);
        ::globfree(&found);
        std::string shells;
        std::set<std::pair<dev_t, ino_t>> attached;  // a file reached by two names is watched once
        for (const std::string& file : files) {
            struct stat status {};
            if (::stat(file.c_str(), &status) != 0 || !attached.emplace(status.st_dev, status.st_ino).second) continue;
            LIBBPF_OPTS(bpf_uprobe_opts, options, .retprobe = true, .func_name = "readline");
            bpf_link* link =
                bpf_program__attach_uprobe_opts(m_skeleton->progs.on_readline, -1, file.c_str(), 0, &options);
            if (!link) continue;  // no readline in it
            m_links.emplace_back(link, bpf_link__destroy);
            shells += (shells.empty() ? "" : ", ") + file;
        }
        m_ring.reset(ring_buffer__new(bpf_map__fd(m_skeleton->maps.events), &BpfSource::OnRecord, this, nullptr));
        if (!m_ring) throw SystemFailure("opening the ring buffer");
        description =
            fmt::format("process events and shell lines from BPF programs in the kernel (readline watched in {})",
                        shells.empty() ? "no shell" : shells);
    }

    void Receive(int timeoutMs, ProcessTracker& tracker) override {
        m_tracker = &tracker;
        // After records came, a pause of 50 ms (unnoticed on a screen): the kernel wakes a reader
        // only once it has caught up, so a storm is read in batches, not one wake-up per record,
        // which had cost more than everything else done for an exec.
        if (ring_buffer__poll(m_ring.get(), timeoutMs) > 0) std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }

    void NoteStatistics() const override {
        const auto& lost = m_skeleton->bss->losses;
        if (lost[LIVE_EXEC] + lost[LIVE_FORK] + lost[LIVE_EXIT] + lost[LIVE_LINE] != 0)
            Warn(fmt::format("the kernel could not hand over {} exec, {} fork, {} exit and {} shell line event(s)",
                             lost[LIVE_EXEC], lost[LIVE_FORK], lost[LIVE_EXIT], lost[LIVE_LINE]));
        if (m_truncatedArguments + m_truncatedLines != 0)
            Note(
                fmt::format("truncated: {} creation(s) whose command line or path was longer than read at the exec and "
                            "ended before /proc could complete it, {} shell line(s) longer than 64 KiB",
                            m_truncatedArguments, m_truncatedLines));
    }

private:
    static int OnRecord(void* context, void* data, std::size_t size) {
        if (size >= sizeof(live_event)) static_cast<BpfSource*>(context)->Handle(static_cast<const char*>(data), size);
        return 0;
    }

    // The kernel's records need no /proc: a program that ends at once is still known whole.
    void Handle(const char* data, std::size_t size) {
        live_event header;
        std::memcpy(&header, data, sizeof header);
        const std::string_view body(data + sizeof header, size - sizeof header);
        if (std::uint64_t{header.path_bytes} + header.data_bytes > body.size()) return;
        std::string payload(body.substr(header.path_bytes, header.data_bytes));  // the arguments or the line
        if (header.kind == LIVE_EXIT) return m_tracker->OnExit(header.pid);
        if (header.kind == LIVE_LINE) {
            m_truncatedLines += header.truncated;
            return m_tracker->OnShellLine(header.pid, std::move(payload));
        }
        ProcessRecord record = m_procfs.Record(header.pid, header.parent_pid, header.start, header.user_id);
        if (header.kind == LIVE_FORK) return m_tracker->OnFork(std::move(record));
        record.path = JoinPath(body.substr(0, header.path_bytes));
        record.commandLine = CommandLineOf(std::move(payload));
        if (header.truncated) {  // longer than the kernel side reads: the rest from /proc while it lives
            const std::optional<ProcessRecord> whole = m_procfs.ReadProcess(header.pid);
            if (whole && whole->uid == record.uid && whole->path && whole->commandLine)
                std::tie(record.path, record.commandLine) = std::tie(whole->path, whole->commandLine);
            else
                ++m_truncatedArguments;
        }
        m_tracker->OnExec(std::move(record));
    }

    const ProcFs& m_procfs;
    ProcessTracker* m_tracker = nullptr;  // the one Receive hands records to
    // Declared so that they are destroyed in this order: ring buffer, readline probes, programs.
    std::unique_ptr<live_events, decltype(&live_events__destroy)> m_skeleton{nullptr, live_events__destroy};
    std::vector<std::unique_ptr<bpf_link, decltype(&bpf_link__destroy)>> m_links;
    std::unique_ptr<ring_buffer, decltype(&ring_buffer__free)> m_ring{nullptr, ring_buffer__free};
    std::uint64_t m_truncatedArguments = 0;  // creations delivered with an incomplete command line or path
    std::uint64_t m_truncatedLines = 0;      // shell lines delivered incomplete
};

}  // namespace

std::unique_ptr<KernelSource> OpenBpfSource(const ProcFs& procfs) { return std::make_unique<BpfSource>(procfs); }

}  // namespace KALVO::DevHost::Tool

#endif
