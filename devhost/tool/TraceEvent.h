// TraceEvent: one event as the tool carries it between its sources (the machine's process
// table, a recorded trace) and its destinations (the sensor, a trace file). The process records
// are the stand-in host's own, so an event turns into the host's process objects unchanged.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

#include "devhost/ProcessRecord.h"

namespace KALVO::DevHost::Tool {

enum class EventKind { Create, Exists, Terminate, Shell };

inline constexpr std::size_t EventKindCount = 4;

struct TraceEvent {
    EventKind kind = EventKind::Exists;
    ProcessRecord process;                // the process created, found, ended, or the shell
    std::optional<ProcessRecord> parent{};  // the creator; present exactly for Create
    std::string command{};                // the command a shell received; Shell only
    std::optional<std::uint64_t> time{};  // when it happened, in nanoseconds since the epoch
};

}  // namespace KALVO::DevHost::Tool
