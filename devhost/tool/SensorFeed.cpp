#include "devhost/tool/SensorFeed.h"

#include "devhost/tool/TraceFormat.h"

namespace KALVO::DevHost::Tool {

void SensorFeed::Deliver(const TraceEvent& event) {
    MonitorRegistration& monitors = m_host.Monitors();
    const auto process = m_host.MakeProcess(event.process);
    switch (event.kind) {
        case EventKind::Create:
            monitors.DeliverProcessCreate(process, m_host.MakeProcess(event.parent.value_or(ProcessRecord{})));
            break;
        case EventKind::Exists: monitors.DeliverProcessExists(process); break;
        case EventKind::Terminate: monitors.DeliverProcessTerminate(process); break;
        case EventKind::Shell: monitors.DeliverShellCommand(process, event.command); break;
    }
    m_delivered.Add(event.kind);
}

void TraceWriter::Deliver(const TraceEvent& event) {
    m_output.Write(FormatTraceLine(event));
    if (!m_output.Failed()) m_written.Add(event.kind);
}

}  // namespace KALVO::DevHost::Tool
