// The trace format, and the replay of a trace. JSON Lines, one event a line, so a trace can be
// recorded on one machine, read and edited by hand, and replayed into the sensor anywhere:
//
//   {"kind":"create","process":{…},"parent":{…}}
//   {"kind":"exists","process":{…}}            {"kind":"terminate","process":{…}}
//   {"kind":"shell","process":{…},"command":"ls -la"}
//
// Any event may carry "time", when it happened in nanoseconds since the epoch (recorded traces
// always do), from which a forecast scales a trace's volume to a day.
// A process is {"pid":N,"ppid":N,"path":"…","command_line":"…","uid":"…","user_id":N,
// "user":"…","start_time":N} with the names of the host's process view; every member may be
// left out (path or command_line null or absent: the host answers null). Unknown members are
// ignored, so traces stay readable by older builds.
//
// A replay delivers the events on one thread in the trace's order or on several at once (as the
// agent delivers events on several threads). The trace is streamed, so it may be of any length
// and may come from a pipe ("-" reads stdin) while it is written. Malformed lines are skipped,
// each named by its line number; the rest is delivered.
#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>

#include "devhost/tool/EventSink.h"
#include "devhost/tool/SignalWatcher.h"
#include "devhost/tool/TraceEvent.h"

namespace KALVO::DevHost::Tool {

// A line that is not an event; the message says what is wrong with it, in one line.
class TraceFormatError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// One line of JSON, without the line feed. Bytes that are not UTF-8 are written as U+FFFD,
// so every line is valid JSON for any reader. Throws std::bad_alloc only.
std::string FormatTraceLine(const TraceEvent& event);

// Parses one line. Strings are taken byte for byte, valid UTF-8 or not, so a hand-made trace
// can hand the sensor any bytes. Nesting is parsed without recursion. Throws TraceFormatError.
TraceEvent ParseTraceLine(std::string_view line);

// Delivers the trace at `path` ("-": stdin) on `threads` threads until its end or a stop
// request; returns how many malformed lines were skipped. Throws std::runtime_error when the
// trace cannot be opened or read, and what the sink throws.
std::uint64_t Replay(const std::string& path, unsigned threads, EventSink& sink, SignalWatcher& signals);

}  // namespace KALVO::DevHost::Tool
