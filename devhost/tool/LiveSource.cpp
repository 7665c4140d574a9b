#include "devhost/tool/LiveSource.h"

#include <algorithm>
#include <stdexcept>

#include "devhost/tool/Console.h"
#include "devhost/tool/ProcessTracker.h"

namespace KALVO::DevHost::Tool {

using Clock = SignalWatcher::Clock;

LiveSource::LiveSource(LiveOptions options) : m_options(options) {
    const LiveSourceKind source = m_options.source;
    std::string unavailable;  // why the sources tried before were not used
    if (source == LiveSourceKind::Any || source == LiveSourceKind::Bpf) {
        try {
            m_bpf = std::make_unique<BpfSource>();
            m_description = "process events and shell lines from BPF programs in the kernel (readline watched in " +
                            (m_bpf->Shells().empty() ? std::string("no shell") : m_bpf->Shells()) + ")";
            return;
        } catch (const BpfUnavailable& error) {
            if (source == LiveSourceKind::Bpf) throw std::runtime_error(std::string("--source bpf: ") + error.what());
            unavailable = std::string("BPF unavailable: ") + error.what();
        }
    }
    if (source == LiveSourceKind::Any || source == LiveSourceKind::Netlink) {
        try {
            m_connector = std::make_unique<NetlinkConnector>();
            m_description = "process events from the kernel's netlink process connector" +
                            (unavailable.empty() ? "" : " (" + unavailable + ")");
            return;
        } catch (const NetlinkUnavailable& error) {
            if (source == LiveSourceKind::Netlink) throw std::runtime_error(std::string("--source netlink: ") + error.what());
            unavailable += std::string(unavailable.empty() ? "" : "; ") + "netlink process connector unavailable: " + error.what();
        }
    }
    m_description = "polling /proc every " + std::to_string(m_options.pollInterval.count()) + " ms (" +
                    (unavailable.empty() ? std::string("--source poll") : unavailable) + ")";
}

LiveSource::~LiveSource() = default;

void LiveSource::Run(EventSink& sink, SignalWatcher& signals, std::optional<Clock::time_point> deadline) {
    ProcessTracker tracker(m_procfs, sink, m_options.treeRoot);
    const auto expired = [&] { return signals.StopRequested() || (deadline && Clock::now() >= *deadline); };
    const auto wait = [&] {  // bounds the reaction to a stop request
        if (!deadline) return 200;
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(*deadline - Clock::now()).count();
        return static_cast<int>(std::clamp<long long>(left, 0, 200));
    };
    // The kernel's records need no /proc: a program that ends at once is still known whole.
    const auto onBpf = [&](const BpfEvent& event) {
        if (event.type == BpfEvent::Type::Exit) return tracker.OnExit(event.pid);
        if (event.type == BpfEvent::Type::Line) {
            if (event.truncated) ++m_statistics.truncatedLines;
            return tracker.OnShellLine(event.pid, event.arguments);
        }
        ProcessRecord record = m_procfs.Record(event.pid, event.parentPid, event.startNs, event.userId);
        if (event.type == BpfEvent::Type::Fork) return tracker.OnFork(std::move(record));
        record.path = event.path;
        record.commandLine = CommandLineOf(event.arguments);
        if (event.truncated) {  // longer than the kernel side reads: the rest from /proc while it lives
            const std::optional<ProcessRecord> whole = m_procfs.ReadProcess(event.pid);
            if (whole && whole->uid == record.uid && whole->path && whole->commandLine) {
                record.path = whole->path;
                record.commandLine = whole->commandLine;
            } else {
                ++m_statistics.truncatedArguments;
            }
        }
        tracker.OnExec(std::move(record));
    };

    const std::size_t running = tracker.ScanExisting();
    Note("announced " + std::to_string(running) + " running process(es); following new ones");
    // Events queued since the subscription include processes the scan already announced: their
    // exec is announced again as a creation, which is what happened.
    if (m_bpf) {
        while (!expired()) m_bpf->Receive(wait(), onBpf);
        m_bpf->Receive(0, onBpf);  // what happened before the stop, still in the ring buffer
        m_statistics.lost = m_bpf->Losses();
    } else if (m_connector) {
        while (!expired()) {
            m_connector->Receive(wait(), [&](const KernelProcessEvent& event) {
                if (event.type == KernelProcessEvent::Type::Exec) tracker.OnExec(event.pid);
                if (event.type == KernelProcessEvent::Type::Exit) tracker.OnExit(event.pid);
            });
        }
        m_statistics.overflows = m_connector->Overflows();
    } else {
        auto next = Clock::now();
        while (!expired()) {
            next += m_options.pollInterval;
            const auto wake = deadline ? std::min(next, *deadline) : next;
            if (signals.SleepUntil(wake)) break;
            if (deadline && Clock::now() >= *deadline) break;
            tracker.Reconcile();
        }
    }
    m_statistics.missed = tracker.Missed();
}

}  // namespace KALVO::DevHost::Tool
