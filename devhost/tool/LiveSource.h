// LiveSource: this machine's processes as events, for the live and record commands. Every
// process running at the start is announced as existing; then creations, terminations and (with
// BPF) the lines typed into shells come from the first source that works: BPF programs in the
// kernel, the kernel's netlink process connector, or polling /proc (which can miss programs
// that live shorter than one polling interval).
#pragma once

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <memory>
#include <stdexcept>
#include <system_error>

#include "devhost/tool/Console.h"
#include "devhost/tool/EventSink.h"
#include "devhost/tool/ProcFs.h"
#include "devhost/tool/ProcessTracker.h"
#include "devhost/tool/SignalWatcher.h"

namespace KALVO::DevHost::Tool {

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
    // What was lost, in one line, once the run is over; empty when nothing was.
    virtual std::string Loss() const { return {}; }

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
    using Clock = SignalWatcher::Clock;
    // How often /proc is polled, and the longest wait for the kernel's events, which bounds the
    // reaction to a stop request.
    static constexpr std::chrono::milliseconds Interval{200};

    // Opens the source. Throws std::runtime_error when /proc cannot be read or the source asked
    // for cannot be had.
    explicit LiveSource(LiveOptions options) : m_options(options) {
        std::string unavailable;  // why the sources tried before were not used
        const auto open = [&](LiveSourceKind kind, char const* name, char const* what, const auto& opener) {
            if (m_source || (options.source != LiveSourceKind::Any && options.source != kind)) return;
            try {
                m_source = opener(m_procfs);
            } catch (const std::runtime_error& error) {
                if (options.source == kind)
                    throw std::runtime_error(fmt::format("--source {}: {}", name, error.what()));
                unavailable += fmt::format("{}{} unavailable: {}", unavailable.empty() ? "" : "; ", what, error.what());
            }
        };
        open(LiveSourceKind::Bpf, "bpf", "BPF", OpenBpfSource);
        open(LiveSourceKind::Netlink, "netlink", "netlink process connector", OpenNetlinkSource);
        m_description = m_source ? m_source->description + (unavailable.empty() ? "" : " (" + unavailable + ")")
                                 : fmt::format("polling /proc every {} ms ({})", Interval.count(),
                                               unavailable.empty() ? "--source poll" : unavailable);
    }

    // Which source is used, and why not the ones before it, for the user.
    const std::string& Description() const noexcept { return m_description; }

    // Announces the running processes, then follows creations and terminations until a stop is
    // requested or `deadline` passes. On the calling thread.
    void Run(EventSink& sink, SignalWatcher& signals, std::optional<Clock::time_point> deadline) {
        ProcessTracker tracker(m_procfs, sink, m_options.treeRoot);
        Note(fmt::format("announced {} running process(es); following new ones", tracker.Reconcile(EventKind::Exists)));
        // Events queued since the subscription include processes the scan already announced: their
        // exec is announced again as a creation, which is what happened.
        while (!signals.StopRequested() && (!deadline || Clock::now() < *deadline)) {
            const auto wait = std::clamp<Clock::duration>(deadline ? *deadline - Clock::now() : Interval, {}, Interval);
            if (m_source)
                m_source->Receive(static_cast<int>(std::chrono::duration_cast<std::chrono::milliseconds>(wait).count()),
                                  tracker);
            else if (!signals.SleepUntil(Clock::now() + wait))
                tracker.Reconcile();
        }
        if (m_source) m_source->Receive(0, tracker);  // what happened before the stop, still queued
    }

    // What the source missed, lost or cut short, on stderr, once Run is over.
    void NoteStatistics() const {
        if (m_source) m_source->NoteStatistics();
    }

    // What the source lost, in one line; empty when nothing was (or it cannot tell, polling).
    std::string Loss() const { return m_source ? m_source->Loss() : std::string(); }

private:
    LiveOptions m_options;
    ProcFs m_procfs;
    std::unique_ptr<KernelSource> m_source;  // null: polling /proc
    std::string m_description;
};

}  // namespace KALVO::DevHost::Tool
