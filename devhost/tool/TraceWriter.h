// TraceWriter: the sink of the record command; writes each event as one trace line and counts
// them by kind for the summary.
#pragma once

#include <array>
#include <atomic>
#include <cstdint>

#include "devhost/tool/EventSink.h"
#include "devhost/tool/LineOutput.h"

namespace KALVO::DevHost::Tool {

class TraceWriter final : public EventSink {
public:
    // `output` is borrowed and must outlive the writer.
    explicit TraceWriter(LineOutput& output) noexcept : m_output(output) {}

    void Deliver(const TraceEvent& event) override;
    std::uint64_t Written(EventKind kind) const noexcept;

private:
    LineOutput& m_output;
    std::array<std::atomic<std::uint64_t>, EventKindCount> m_written{};  // counters only: relaxed
};

}  // namespace KALVO::DevHost::Tool
