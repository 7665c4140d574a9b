// LiveSource: this machine's processes as events, for the live and record commands. Every
// process running at the start is announced as existing; then creations, terminations and (with
// BPF) the lines typed into shells come from the first source that works: BPF programs in the
// kernel, the kernel's netlink process connector, or polling /proc (which can miss programs
// that live shorter than one polling interval).
#pragma once

#include <cerrno>
#include <memory>
#include <system_error>

#include "devhost/tool/EventSink.h"
#include "devhost/tool/ProcFs.h"
#include "devhost/tool/SignalWatcher.h"

namespace KALVO::DevHost::Tool {

class ProcessTracker;

// Any: the first of BPF, netlink and polling that works; the others: that one or fail.
enum class LiveSourceKind { Any, Bpf, Netlink, Poll };

struct LiveOptions {
    LiveSourceKind source = LiveSourceKind::Any;
    std::optional<std::uint64_t> treeRoot;  // only this process and its descendants
};

// One of the kernel's ways of telling what processes do, as it happens: it hands what it learns
// to a tracker. Subscribed when opened, so nothing that happens from then on is lost.
class KernelSource {
public:
    virtual ~KernelSource() = default;
    // Waits up to `timeoutMs` for events and hands them to `tracker`, on this thread.
    virtual void Receive(int timeoutMs, ProcessTracker& tracker) = 0;
    // What was lost or arrived incomplete, on stderr, once the run is over.
    virtual void NoteStatistics() const = 0;

    std::string description;  // which source this is, for the user
};

// Why a system call failed, as the reason a source cannot be had: "step: what errno says".
inline std::system_error SystemFailure(char const* step) { return {errno, std::generic_category(), step}; }

// The two kernel sources (BpfSource.cpp, NetlinkConnector.cpp). Each throws std::runtime_error
// saying why it cannot be had here (no right to it, no support in this build or kernel).
std::unique_ptr<KernelSource> OpenBpfSource(const ProcFs& procfs);
std::unique_ptr<KernelSource> OpenNetlinkSource(const ProcFs& procfs);

class LiveSource {
public:
    // Opens the source. Throws std::runtime_error when /proc cannot be read or the source asked
    // for cannot be had.
    explicit LiveSource(LiveOptions options);

    // Which source is used, and why not the ones before it, for the user.
    const std::string& Description() const noexcept { return m_description; }

    // Announces the running processes, then follows creations and terminations until a stop is
    // requested or `deadline` passes. On the calling thread.
    void Run(EventSink& sink, SignalWatcher& signals, std::optional<SignalWatcher::Clock::time_point> deadline);

    // What the source missed, lost or cut short, on stderr, once Run is over.
    void NoteStatistics() const {
        if (m_source) m_source->NoteStatistics();
    }

private:
    LiveOptions m_options;
    ProcFs m_procfs;
    std::unique_ptr<KernelSource> m_source;  // null: polling /proc
    std::string m_description;
};

}  // namespace KALVO::DevHost::Tool
