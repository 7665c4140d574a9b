#include "devhost/tool/KernelRecord.h"

#include <algorithm>
#include <cstring>
#include <tuple>

#include "devhost/tool/bpf/LiveEvents.h"

namespace KALVO::DevHost::Tool {

namespace {

// Calls `visit` with each name of `names` (each ending in a NUL, or at the end), first to last.
template <class Visit>
void ForEachName(std::string_view names, Visit visit) {
    std::size_t start = 0;
    while (start < names.size()) {
        const std::size_t end = std::min(names.find('\0', start), names.size());
        visit(names.substr(start, end - start));
        start = end + 1;
    }
}

}  // namespace

std::string JoinLeafFirstPath(std::string_view names) {
    // One string of the whole length, filled from its end: the leaf comes last.
    std::size_t length = 0;
    ForEachName(names, [&length](std::string_view name) { length += 1 + name.size(); });
    if (length == 0) return "/";
    std::string path(length, '/');
    ForEachName(names, [&path, &length](std::string_view name) {
        length -= name.size();
        path.replace(length, name.size(), name);
        --length;  // the slash before it
    });
    return path;
}

std::string Unmetafy(std::string_view line) {
    constexpr char Meta = '\x83';
    std::string plain;
    plain.reserve(line.size());
    for (std::size_t at = 0; at < line.size(); ++at) {
        if (line[at] == Meta && at + 1 < line.size())
            plain.push_back(static_cast<char>(line[++at] ^ 0x20));
        else
            plain.push_back(line[at]);
    }
    return plain;
}

namespace {

KernelEvent LineEvent(const live_event& header, std::string_view data) {
    KernelEvent event{.kind = KernelEventKind::Line, .process = {.pid = header.pid}, .kernelTimeNs = header.time};
    // The kernel side stops reading one byte past the longest whole line: a line that filled its
    // buffer went on beyond it, even when zsh's escapes make it shorter once decoded.
    const bool filled = data.size() >= LIVE_LINE_BYTES - 1;
    if (header.encoding == LIVE_LINE_ZSH) {
        event.line = Unmetafy(data);
        if (!filled && !event.line.empty() && event.line.back() == '\n') event.line.pop_back();
    } else {
        event.line = std::string(data);
    }
    event.incomplete = filled || event.line.size() > MaxShellLineBytes;
    if (event.line.size() > MaxShellLineBytes) event.line.resize(MaxShellLineBytes);
    return event;
}

}  // namespace

std::optional<KernelEvent> DecodeKernelRecord(std::string_view bytes, const ProcFs& procfs) {
    live_event header;
    if (bytes.size() < sizeof header) return std::nullopt;
    std::memcpy(&header, bytes.data(), sizeof header);
    const std::string_view body = bytes.substr(sizeof header);
    if (std::uint64_t{header.path_bytes} + header.data_bytes > body.size()) return std::nullopt;
    const std::string_view data = body.substr(header.path_bytes, header.data_bytes);
    switch (header.kind) {
    case LIVE_EXIT: return KernelEvent{.process = {.pid = header.pid}, .kernelTimeNs = header.time};
    case LIVE_LINE: return LineEvent(header, data);
    case LIVE_FORK:
        return KernelEvent{.kind = KernelEventKind::Fork,
                           .process = procfs.Record(header.pid, header.parent_pid, header.start, header.user_id),
                           .kernelTimeNs = header.time};
    case LIVE_EXEC: break;
    default: return std::nullopt;
    }
    // The kernel's records need no /proc: a program that ends at once is still known whole.
    KernelEvent event{.kind = KernelEventKind::Exec,
                      .process = procfs.Record(header.pid, header.parent_pid, header.start, header.user_id),
                      .kernelTimeNs = header.time};
    event.process.path = JoinLeafFirstPath(body.substr(0, header.path_bytes));
    event.process.commandLine = CommandLineOf(std::string(data));
    if (header.truncated) {  // longer than the kernel side reads: the rest from /proc while it lives
        const std::optional<ProcessRecord> whole = procfs.ReadProcess(header.pid);
        if (whole && whole->uid == event.process.uid && whole->path && whole->commandLine)
            std::tie(event.process.path, event.process.commandLine) = std::tie(whole->path, whole->commandLine);
        else
            event.incomplete = true;
    }
    return event;
}

}  // namespace KALVO::DevHost::Tool
