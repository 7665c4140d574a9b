// SensorFeed: hands events to the sensor the way the agent's event provider does, through the
// stand-in host's monitor registration, each with the host's own process objects, and counts
// what it delivered by kind for the run's summary.
#pragma once

#include <array>
#include <atomic>
#include <cstdint>

#include "devhost/Host.h"
#include "devhost/tool/EventSink.h"

namespace KALVO::DevHost::Tool {

class SensorFeed final : public EventSink {
public:
    // `host` is borrowed and must outlive the feed.
    explicit SensorFeed(Host& host) noexcept : m_host(host) {}

    // Any thread, concurrently: the host delivers on the caller's thread.
    void Deliver(const TraceEvent& event) override;

    std::uint64_t Delivered(EventKind kind) const noexcept;
    std::uint64_t Delivered() const noexcept;

private:
    Host& m_host;
    // Counters only: relaxed is enough, they are read after the feeding threads are joined.
    std::array<std::atomic<std::uint64_t>, EventKindCount> m_delivered{};
};

}  // namespace KALVO::DevHost::Tool
