// The two places events go. SensorFeed hands them to the sensor the way the agent's event
// provider does, through the stand-in host's monitor registration, each with the host's own
// process objects; TraceWriter writes each as one trace line, for the record command. Both
// count what they passed on by kind, for the run's summary.
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <numeric>

#include "devhost/Host.h"
#include "devhost/tool/EventSink.h"
#include "devhost/tool/LineOutput.h"

namespace KALVO::DevHost::Tool {

// Events by kind (an enumeration of N kinds), counted from any number of threads; read once the
// counting threads are joined.
template <class Kind, std::size_t N>
class KindCounts {
public:
    void Add(Kind kind) noexcept { m_counts[static_cast<std::size_t>(kind)].fetch_add(1, std::memory_order_relaxed); }
    std::uint64_t Of(Kind kind) const noexcept { return m_counts[static_cast<std::size_t>(kind)].load(std::memory_order_relaxed); }
    std::uint64_t Total() const noexcept {
        return std::accumulate(m_counts.begin(), m_counts.end(), std::uint64_t{0},
                               [](std::uint64_t sum, const auto& count) { return sum + count.load(std::memory_order_relaxed); });
    }

private:
    std::array<std::atomic<std::uint64_t>, N> m_counts{};  // counters only: relaxed
};

class SensorFeed final : public EventSink {
public:
    // `host` is borrowed and must outlive the feed.
    explicit SensorFeed(Host& host) noexcept : m_host(host) {}

    // Any thread, concurrently: the host delivers on the caller's thread.
    void Deliver(const TraceEvent& event) override;

    std::uint64_t Delivered(EventKind kind) const noexcept { return m_delivered.Of(kind); }
    std::uint64_t Delivered() const noexcept { return m_delivered.Total(); }

private:
    Host& m_host;
    KindCounts<EventKind, EventKindCount> m_delivered;
};

class TraceWriter final : public EventSink {
public:
    // `output` is borrowed and must outlive the writer.
    explicit TraceWriter(LineOutput& output) noexcept : m_output(output) {}

    void Deliver(const TraceEvent& event) override;
    std::uint64_t Written(EventKind kind) const noexcept { return m_written.Of(kind); }

private:
    LineOutput& m_output;
    KindCounts<EventKind, EventKindCount> m_written;
};

}  // namespace KALVO::DevHost::Tool
