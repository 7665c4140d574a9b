// The keys under which the monitor counts repeats (one per normalised parent-to-child process
// step and one per shell and command) and the rules of that counting. Kept apart from the
// handlers, which decide by them, so that anything that forecasts the sensor's volume computes
// exactly the keys the sensor counts and counts them as it does.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "monitor/CollapseExpression.h"

namespace KALVO::SecurityMonitor {

// "<parent path>|<child path>|<parent command line>|<child command line>", paths and command
// lines normalised, and each command line that `collapse` matches whole replaced by "<>".
// `collapse` must not change during the call (the monitor holds its configuration lock).
// Throws std::bad_alloc, and std::regex_error when the matcher gives up on a text.
std::string ProcessTreeKey(std::string_view parentPath, std::string_view childPath, std::string_view parentCommandLine,
                           std::string_view childCommandLine, CollapseExpression const& collapse);

// "<shell path>|<shell command line>|<command>", the path normalised; the command is kept as
// typed. Empty when both the path and the command are empty: nothing tells such commands
// apart, so they are not counted. Throws std::bad_alloc.
std::string ShellCommandKey(std::string_view shellPath, std::string_view shellCommandLine, std::string_view command);

// How many keys of each kind (process steps, shell commands) keep a count: a new key makes the
// least recently counted one forget its count, which starts from zero if it comes back.
inline constexpr std::size_t RepeatCacheCapacity = 512;

// Whether repeats are counted at all: a report limit of 0 reports every event and spares the
// counting, keys included.
constexpr bool CountsRepeats(std::int32_t reportLimit) noexcept { return reportLimit != 0; }

// Whether an event of this key is counted, where repeats are: an empty key tells no commands
// apart (see ShellCommandKey), so its events are all reported.
constexpr bool IsCountedKey(std::string_view key) noexcept { return !key.empty(); }

// Whether the `count`th occurrence of a counted key is reported. Compared as unsigned: a
// negative limit never suppresses anything.
constexpr bool WithinReportLimit(std::uint64_t count, std::int32_t reportLimit) noexcept {
    return count <= static_cast<std::uint32_t>(reportLimit);
}

}  // namespace KALVO::SecurityMonitor
