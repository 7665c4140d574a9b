// EventSink: where events go, whatever their source: into the sensor (SensorSession) or into a
// trace (TraceWriter). A sink is fed from one thread or, for a replay on several threads, from
// many at once, so every sink is thread-safe.
#pragma once

#include <array>
#include <atomic>
#include <cstdint>

#include "devhost/tool/TraceEvent.h"

namespace KALVO::DevHost::Tool {

class EventSink {
public:
    virtual ~EventSink() = default;
    // Any thread. Throws only what the destination throws (std::bad_alloc, write failures).
    virtual void Deliver(const TraceEvent& event) = 0;
};

// What a sink counts by EventKind, from any thread: counters only, so relaxed.
using EventCounts = std::array<std::atomic<std::uint64_t>, EventKindCount>;

// A snapshot of counters, for a summary.
template <std::size_t N>
std::array<std::uint64_t, N> Snapshot(const std::array<std::atomic<std::uint64_t>, N>& counts) {
    std::array<std::uint64_t, N> values{};
    for (std::size_t index = 0; index < N; ++index) values[index] = counts[index].load(std::memory_order_relaxed);
    return values;
}

}  // namespace KALVO::DevHost::Tool
