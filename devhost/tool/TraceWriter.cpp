#include "devhost/tool/TraceWriter.h"

#include "devhost/tool/TraceFormat.h"

namespace KALVO::DevHost::Tool {

void TraceWriter::Deliver(const TraceEvent& event) {
    m_output.Write(FormatTraceLine(event));
    if (!m_output.Failed()) m_written[static_cast<std::size_t>(event.kind)].fetch_add(1, std::memory_order_relaxed);
}

std::uint64_t TraceWriter::Written(EventKind kind) const noexcept {
    return m_written[static_cast<std::size_t>(kind)].load(std::memory_order_relaxed);
}

}  // namespace KALVO::DevHost::Tool
