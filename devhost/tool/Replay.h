// Replay: a recorded trace delivered to a sink, on one thread in the trace's order or on
// several at once (as the agent delivers events on several threads). The trace is streamed, so
// it may be of any length and may come from a pipe ("-" reads stdin) while it is written.
// Malformed lines are skipped, each named by its line number; the rest is delivered.
#pragma once

#include <cstdint>
#include <string>

#include "devhost/tool/EventSink.h"
#include "devhost/tool/SignalWatcher.h"

namespace KALVO::DevHost::Tool {

// Delivers the trace at `path` ("-": stdin) on `threads` threads until its end or a stop
// request; returns how many malformed lines were skipped. Throws std::runtime_error when the
// trace cannot be opened or read, and what the sink throws.
std::uint64_t Replay(const std::string& path, unsigned threads, EventSink& sink, SignalWatcher& signals);

}  // namespace KALVO::DevHost::Tool
