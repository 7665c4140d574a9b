// EventSink: where events go, whatever their source: into the sensor (SensorSession) or into a
// trace (TraceWriter). A sink is fed from one thread or, for a replay on several threads, from
// many at once, so every sink is thread-safe.
#pragma once

#include "devhost/tool/TraceEvent.h"

namespace KALVO::DevHost::Tool {

class EventSink {
public:
    virtual ~EventSink() = default;
    // Any thread. Throws only what the destination throws (std::bad_alloc, write failures).
    virtual void Deliver(const TraceEvent& event) = 0;
};

}  // namespace KALVO::DevHost::Tool
