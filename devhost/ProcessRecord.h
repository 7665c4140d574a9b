// ProcessRecord: what the stand-in host knows of one process, the input from which it makes
// its process-information objects (tests describe processes with it; a tool fills it from the
// machine's process table).
#pragma once

#include <fmt/format.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace KALVO::DevHost {

// Every member has a default, so records can be written with designated initializers.
struct ProcessRecord {
    std::uint64_t pid = 0;
    std::uint64_t parentPid = 0;
    std::optional<std::string> path{};         // none: GetPath answers null
    std::optional<std::string> commandLine{};  // none: GetCommandLine answers null
    // The host's identifier of the process, unique and stable for its life (see ProcessUid).
    // When empty the host makes one with no boot id and the start time standing for the ticks.
    std::string uid{};
    std::optional<std::uint64_t> userId{};
    std::string user{};           // the user's name; empty when unknown
    std::uint64_t startTime = 0;  // seconds since the Unix epoch; 0 when unknown
};

// "<boot id>:<pid>:<start time in ticks>": the boot id keeps uids of two boots apart, the
// start time those of two processes with the same pid.
inline std::string ProcessUid(std::string_view bootId, std::uint64_t pid, std::uint64_t startTicks) {
    return fmt::format("{}:{}:{}", bootId, pid, startTicks);
}

}  // namespace KALVO::DevHost
