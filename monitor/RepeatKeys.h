// The keys under which the monitor counts repeats: one per normalised parent-to-child process
// step and one per shell and command. Kept apart from the handlers so that anything that
// forecasts the sensor's volume computes exactly the keys the sensor counts.
#pragma once

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

}  // namespace KALVO::SecurityMonitor
