#include "devhost/tool/LiveSource.h"

#include <algorithm>

#include "devhost/tool/Console.h"
#include "devhost/tool/ProcessTracker.h"

namespace KALVO::DevHost::Tool {

using Clock = SignalWatcher::Clock;

LiveSource::LiveSource(LiveOptions options) : m_options(options) {
    const std::string polling = "polling /proc every " + std::to_string(m_options.pollInterval.count()) + " ms";
    if (m_options.forcePolling) {
        m_description = polling + " (--poll)";
        return;
    }
    try {
        m_connector = std::make_unique<NetlinkConnector>();
        m_description = "process events from the kernel's netlink process connector";
    } catch (const NetlinkUnavailable& error) {
        m_description = polling + " (netlink process connector unavailable: " + error.what() + ")";
    }
}

LiveSource::~LiveSource() = default;

void LiveSource::Run(EventSink& sink, SignalWatcher& signals, std::optional<Clock::time_point> deadline) {
    ProcessTracker tracker(m_procfs, sink, m_options.treeRoot);
    const auto expired = [&] { return signals.StopRequested() || (deadline && Clock::now() >= *deadline); };

    const std::size_t running = tracker.ScanExisting();
    Note("announced " + std::to_string(running) + " running process(es); following new ones");
    if (m_connector) {
        // Events queued since the subscription include processes the scan already announced:
        // their exec is announced again as a creation, which is what happened.
        while (!expired()) {
            int wait = 200;  // bounds the reaction to a stop request
            if (deadline) {
                const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(*deadline - Clock::now()).count();
                wait = static_cast<int>(std::clamp<long long>(left, 0, wait));
            }
            m_connector->Receive(wait, [&](const KernelProcessEvent& event) {
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
