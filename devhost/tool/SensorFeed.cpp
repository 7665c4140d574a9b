#include "devhost/tool/SensorFeed.h"

namespace KALVO::DevHost::Tool {

void SensorFeed::Deliver(const TraceEvent& event) {
    MonitorRegistration& monitors = m_host.Monitors();
    const auto process = m_host.MakeProcess(event.process);
    switch (event.kind) {
        case EventKind::Create:
            monitors.DeliverProcessCreate(process, m_host.MakeProcess(event.parent.value_or(ProcessRecord{})));
            break;
        case EventKind::Exists:
            monitors.DeliverProcessExists(process);
            break;
        case EventKind::Terminate:
            monitors.DeliverProcessTerminate(process);
            break;
        case EventKind::Shell:
            monitors.DeliverShellCommand(process, event.command);
            break;
    }
    m_delivered[static_cast<std::size_t>(event.kind)].fetch_add(1, std::memory_order_relaxed);
}

std::uint64_t SensorFeed::Delivered(EventKind kind) const noexcept {
    return m_delivered[static_cast<std::size_t>(kind)].load(std::memory_order_relaxed);
}

std::uint64_t SensorFeed::Delivered() const noexcept {
    std::uint64_t total = 0;
    for (const auto& count : m_delivered) total += count.load(std::memory_order_relaxed);
    return total;
}

}  // namespace KALVO::DevHost::Tool
