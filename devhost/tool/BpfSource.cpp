#include "devhost/tool/BpfSource.h"

#ifndef KALVO_BPF

namespace KALVO::DevHost::Tool {

struct BpfSource::Loaded {};
BpfSource::BpfSource() { throw BpfUnavailable("this build has no BPF support (libbpf was not found)"); }
BpfSource::~BpfSource() = default;
void BpfSource::Receive(int, const std::function<void(const BpfEvent&)>&) {}
std::array<std::uint64_t, BpfSource::Kinds> BpfSource::Losses() const noexcept { return {}; }

}  // namespace KALVO::DevHost::Tool

#else

#include <bpf/libbpf.h>
#include <glob.h>
#include <sys/stat.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <set>
#include <thread>
#include <utility>
#include <vector>

#include "LiveEvents.skel.h"
#include "devhost/tool/bpf/LiveEvents.h"

namespace KALVO::DevHost::Tool {

namespace {

// Where readline lives: bash carries its own copy; other shells link the library.
std::vector<std::string> ReadlineCandidates() {
    std::vector<std::string> files = {"/bin/bash"};
    glob_t found{};
    if (::glob("/usr/lib/*/libreadline.so.*", 0, nullptr, &found) == 0)
        files.insert(files.end(), found.gl_pathv, found.gl_pathv + found.gl_pathc);
    ::globfree(&found);
    return files;
}

// The path's names arrive leaf first, each ending in a NUL.
std::string JoinPath(std::string_view names) {
    std::string path;
    while (!names.empty()) {
        const std::size_t end = names.find('\0');
        path.insert(0, "/" + std::string(names.substr(0, end)));
        names.remove_prefix(end == std::string_view::npos ? names.size() : end + 1);
    }
    return path.empty() ? "/" : path;
}

}  // namespace

struct BpfSource::Loaded {
    live_events* skeleton = nullptr;
    ring_buffer* ring = nullptr;
    std::vector<bpf_link*> links;
    const std::function<void(const BpfEvent&)>* handle = nullptr;

    ~Loaded() {
        if (ring) ring_buffer__free(ring);
        for (bpf_link* link : links) bpf_link__destroy(link);
        if (skeleton) live_events__destroy(skeleton);
    }

    static int OnRecord(void* context, void* data, size_t size) {
        const auto* loaded = static_cast<const Loaded*>(context);
        live_event header;
        if (size < sizeof header) return 0;
        std::memcpy(&header, data, sizeof header);
        const std::string_view body(static_cast<const char*>(data) + sizeof header, size - sizeof header);
        if (header.path_bytes + header.data_bytes > body.size()) return 0;
        BpfEvent event;
        event.type = static_cast<BpfEvent::Type>(header.kind);
        event.pid = header.pid;
        event.parentPid = header.parent_pid;
        event.userId = header.user_id;
        event.startNs = header.start;
        if (header.kind == LIVE_EXEC) event.path = JoinPath(body.substr(0, header.path_bytes));
        event.arguments = body.substr(header.path_bytes, header.data_bytes);
        event.truncated = header.flags != 0;
        (*loaded->handle)(event);
        return 0;
    }
};

BpfSource::BpfSource() : m_loaded(std::make_unique<Loaded>()) {
    libbpf_set_print(nullptr);  // the reason for a failure is told in one line below
    const auto fail = [](const std::string& step, int error) {
        throw BpfUnavailable(step + ": " + std::strerror(error < 0 ? -error : error));
    };
    m_loaded->skeleton = live_events__open_and_load();
    if (!m_loaded->skeleton) fail("loading the BPF programs", errno);
    if (const int error = live_events__attach(m_loaded->skeleton); error != 0) fail("attaching the BPF programs", error);

    std::set<std::pair<dev_t, ino_t>> attached;  // a file reached by two names is watched once
    for (const std::string& file : ReadlineCandidates()) {
        struct stat status{};
        if (::stat(file.c_str(), &status) != 0 || !attached.emplace(status.st_dev, status.st_ino).second) continue;
        LIBBPF_OPTS(bpf_uprobe_opts, options, .retprobe = true, .func_name = "readline");
        bpf_link* link = bpf_program__attach_uprobe_opts(m_loaded->skeleton->progs.on_readline, -1, file.c_str(), 0, &options);
        if (!link) continue;  // no readline in it
        m_loaded->links.push_back(link);
        m_shells += (m_shells.empty() ? "" : ", ") + file;
    }

    m_loaded->ring = ring_buffer__new(bpf_map__fd(m_loaded->skeleton->maps.events), &Loaded::OnRecord, m_loaded.get(), nullptr);
    if (!m_loaded->ring) fail("opening the ring buffer", errno);
}

BpfSource::~BpfSource() = default;

void BpfSource::Receive(int timeoutMs, const std::function<void(const BpfEvent&)>& handle) {
    m_loaded->handle = &handle;
    // After records came, a pause of 50 ms (unnoticed on a screen): the kernel wakes a reader
    // only once it has caught up, so a storm is read in batches, not one wake-up per record,
    // which had cost more than everything else done for an exec.
    if (ring_buffer__poll(m_loaded->ring, timeoutMs) > 0) std::this_thread::sleep_for(std::chrono::milliseconds(50));
}

std::array<std::uint64_t, BpfSource::Kinds> BpfSource::Losses() const noexcept {
    std::array<std::uint64_t, Kinds> losses{};
    for (std::size_t kind = 0; kind < Kinds; ++kind) losses[kind] = m_loaded->skeleton->bss->losses[kind];
    return losses;
}

}  // namespace KALVO::DevHost::Tool

#endif
