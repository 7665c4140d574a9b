#include "devhost/tool/LiveSource.h"

#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <stdexcept>

#include "devhost/tool/Console.h"
#include "devhost/tool/ProcessTracker.h"

namespace KALVO::DevHost::Tool {

using Clock = SignalWatcher::Clock;

// How often /proc is polled, and the longest wait for the kernel's events, which bounds the
// reaction to a stop request.
constexpr std::chrono::milliseconds Interval{200};

LiveSource::LiveSource(LiveOptions options) : m_options(options) {
    std::string unavailable;  // why the sources tried before were not used
    const auto open = [&](LiveSourceKind kind, char const* name, char const* what, const auto& opener) {
        if (m_source || (options.source != LiveSourceKind::Any && options.source != kind)) return;
        try {
            m_source = opener(m_procfs);
        } catch (const std::runtime_error& error) {
            if (options.source == kind) throw std::runtime_error(fmt::format("--source {}: {}", name, error.what()));
            unavailable += fmt::format("{}{} unavailable: {}", unavailable.empty() ? "" : "; ", what, error.what());
        }
    };
    open(LiveSourceKind::Bpf, "bpf", "BPF", OpenBpfSource);
    open(LiveSourceKind::Netlink, "netlink", "netlink process connector", OpenNetlinkSource);
    if (m_source)
        m_description = m_source->description + (unavailable.empty() ? "" : " (" + unavailable + ")");
    else
        m_description = fmt::format("polling /proc every {} ms ({})", Interval.count(),
                                    unavailable.empty() ? "--source poll" : unavailable);
}

void LiveSource::Run(EventSink& sink, SignalWatcher& signals, std::optional<Clock::time_point> deadline) {
    ProcessTracker tracker(m_procfs, sink, m_options.treeRoot);
    Note(fmt::format("announced {} running process(es); following new ones", tracker.ScanExisting()));
    // Events queued since the subscription include processes the scan already announced: their
    // exec is announced again as a creation, which is what happened.
    while (!signals.StopRequested() && (!deadline || Clock::now() < *deadline)) {
        const auto wait = std::clamp<Clock::duration>(deadline ? *deadline - Clock::now() : Interval, {}, Interval);
        if (m_source)
            m_source->Receive(static_cast<int>(std::chrono::duration_cast<std::chrono::milliseconds>(wait).count()), tracker);
        else if (!signals.SleepUntil(Clock::now() + wait))
            tracker.Reconcile();
    }
    if (m_source) m_source->Receive(0, tracker);  // what happened before the stop, still queued
}

}  // namespace KALVO::DevHost::Tool
