// EventSink: where events go, whatever their source (the machine's process table, a recorded
// trace): into the sensor (SensorSession) or into a trace (TraceWriter). A sink is fed from one
// thread or, for a replay on several threads, from many at once, so every sink is thread-safe.
// An event's process records are the stand-in host's own, so an event turns into the host's
// process objects unchanged.
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <optional>
#include <string>

#include "devhost/ProcessRecord.h"

namespace KALVO::DevHost::Tool {

enum class EventKind { Create, Exists, Terminate, Shell };

struct TraceEvent {
    EventKind kind = EventKind::Exists;
    ProcessRecord process;                  // the process created, found, ended, or the shell
    std::optional<ProcessRecord> parent{};  // the creator; present exactly for Create
    std::string command{};                  // the command a shell received; Shell only
    std::optional<std::uint64_t> time{};    // when it happened, in nanoseconds since the epoch
};

class EventSink {
public:
    virtual ~EventSink() = default;
    // Any thread. Throws only what the destination throws (std::bad_alloc, write failures). The
    // event is the sink's own, so that its records can become the host's objects without a copy.
    virtual void Deliver(TraceEvent event) = 0;
};

// What a sink counts by EventKind, from any thread: counters only, so relaxed.
using EventCounts = std::array<std::atomic<std::uint64_t>, static_cast<std::size_t>(EventKind::Shell) + 1>;

// A snapshot of counters, for a summary.
template <std::size_t N>
std::array<std::uint64_t, N> Snapshot(const std::array<std::atomic<std::uint64_t>, N>& counts) {
    std::array<std::uint64_t, N> values{};
    for (std::size_t index = 0; index < N; ++index) values[index] = counts[index].load(std::memory_order_relaxed);
    return values;
}

}  // namespace KALVO::DevHost::Tool
