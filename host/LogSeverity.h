// Severities of log lines sent to the host's ILogSink; the numbers are the host's.
#pragma once

#include <cstdint>

namespace KALVO::Logging::v0 {

enum class Severity : std::uint32_t {
    Error = 2,  // failures
    Warn = 3,   // configuration and synchronize warnings
    Info = 4,   // notices, e.g. that an event was skipped
    Trace = 7,  // entry traces
};

}  // namespace KALVO::Logging::v0
