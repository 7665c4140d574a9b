// LiveSource: this machine's processes as events, for the live and record commands. Every
// process running at the start is announced as existing; then creations, terminations and (with
// BPF) the lines typed into shells come from the first source that works: BPF programs in the
// kernel, the kernel's netlink process connector, or polling /proc (which can miss programs
// that live shorter than one polling interval).
#pragma once

#include <array>
#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "devhost/tool/BpfSource.h"
#include "devhost/tool/EventSink.h"
#include "devhost/tool/NetlinkConnector.h"
#include "devhost/tool/ProcFs.h"
#include "devhost/tool/SignalWatcher.h"

namespace KALVO::DevHost::Tool {

// Any: the first of BPF, netlink and polling that works; the others: that one or fail.
enum class LiveSourceKind { Any, Bpf, Netlink, Poll };

struct LiveOptions {
    LiveSourceKind source = LiveSourceKind::Any;
    std::optional<std::uint64_t> treeRoot;  // only this process and its descendants
    std::chrono::milliseconds pollInterval{200};
};

struct LiveStatistics {
    std::uint64_t missed = 0;     // new programs gone before they could be read
    std::uint64_t overflows = 0;  // times the kernel dropped netlink events
    std::array<std::uint64_t, BpfSource::Kinds> lost{};  // BPF: events the kernel could not hand over
    std::uint64_t truncatedArguments = 0;  // BPF: creations delivered with an incomplete command line or path
    std::uint64_t truncatedLines = 0;      // BPF: shell lines delivered incomplete
};

class LiveSource {
public:
    // Subscribes to the kernel's events (unless polling), so nothing that happens from here on
    // is lost. Throws std::runtime_error when /proc cannot be read or the source asked for
    // cannot be had.
    explicit LiveSource(LiveOptions options);
    ~LiveSource();

    // Which source is used, and why not the ones before it, for the user.
    const std::string& Description() const noexcept { return m_description; }

    // Announces the running processes, then follows creations and terminations until a stop is
    // requested or `deadline` passes. On the calling thread.
    void Run(EventSink& sink, SignalWatcher& signals, std::optional<SignalWatcher::Clock::time_point> deadline);

    LiveStatistics Statistics() const noexcept { return m_statistics; }

private:
    LiveOptions m_options;
    ProcFs m_procfs;
    std::unique_ptr<BpfSource> m_bpf;               // null unless BPF is used
    std::unique_ptr<NetlinkConnector> m_connector;  // null unless netlink is used
    std::string m_description;
    LiveStatistics m_statistics;
};

}  // namespace KALVO::DevHost::Tool
